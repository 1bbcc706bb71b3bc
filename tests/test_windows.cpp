// Windows counterparts of the POSIX-only tests: replacing files (attributes, read-only files, a
// writer stopped half-way, files held open elsewhere), the folder listing and its "." and ".." entries, names in the ANSI
// code page, and group names Windows cannot create.
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>

#include "platform/WinText.h"
#include "platform/fileio.h"
#include "testutil.h"

using namespace kvtest;
namespace fs = std::filesystem;

namespace {
DWORD attributes(const std::string& path) { return GetFileAttributesA(path.c_str()); }

std::vector<std::string> listed(const std::string& folder) {
    std::vector<std::string> names;
    char out[MAX_PATH * 3];
    if (callFn(OpenFolder, folder) != 0) return names;
    while (callFn(GetFile, nullptr, 0, out) == 0) names.push_back(out);
    callFn(CloseFolder);
    return names;
}
}  // namespace

TEST(Windows, ReplacementsKeepAttributesAndRefuseReadOnlyFiles) {
    TempDir dir;
    const std::string kept = dir / "kept.dat", locked = dir / "locked.dat";
    writeAll(kept, "old");
    writeAll(locked, "old");
    ASSERT_TRUE(SetFileAttributesA(kept.c_str(), FILE_ATTRIBUTE_HIDDEN));
    ASSERT_TRUE(SetFileAttributesA(locked.c_str(), FILE_ATTRIBUTE_READONLY));
    kv::OutputFile out;  // a writer stopped half-way: the old file whole, no sibling left
    ASSERT_TRUE(kv::openOutput(kept.c_str(), out));
    ASSERT_TRUE(kv::writeOutput(out, "ne", 2));
    EXPECT_FALSE(kv::closeOutput(out, false));
    EXPECT_EQ(readAll(kept), "old");
    EXPECT_TRUE(kv::storeFile(kept.c_str(), "new", 3));
    EXPECT_EQ(readAll(kept), "new");
    EXPECT_TRUE(attributes(kept) & FILE_ATTRIBUTE_HIDDEN);
    EXPECT_FALSE(kv::storeFile(locked.c_str(), "new", 3));
    callFn(GroupListAdd, "g", 1);
    EXPECT_EQ(callFn(GroupListSave, locked), -3);
    callFn(GroupListClear);
    EXPECT_EQ(readAll(locked), "old");
    EXPECT_EQ(listing(dir.path), "kept.dat locked.dat ");
    // A rename over an existing file replaces it, as on POSIX.
    EXPECT_EQ(callFn(FileRename, kept, 0, dir / "other"), 0);
    writeAll(kept, "second");
    EXPECT_EQ(callFn(FileRename, kept, 0, dir / "other"), 0);
    EXPECT_EQ(readAll(dir / "other"), "second");
    SetFileAttributesA(locked.c_str(), FILE_ATTRIBUTE_NORMAL);
}

// A file held open elsewhere without sharing (sharing is checked per open handle, whichever
// process holds it): a rewrite, a rename over it or of it and an append give their failure codes
// and leave it whole, with no sibling left behind.
TEST(Windows, FilesHeldOpenElsewhereStayWhole) {
    TempDir dir;
    const std::string held = dir / "held.lst", part = dir / "part.obj", other = dir / "other";
    writeAll(held, "old");
    writeAll(other, "other");
    writeAll(part, "v 0 0 0\nf 1 1 1\n");
    HANDLE h = CreateFileA(held.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    callFn(GroupListClear);
    callFn(GroupListAdd, "g", 1);
    EXPECT_EQ(callFn(GroupListSave, held), -3);
    EXPECT_EQ(callFn(FileRename, other, 0, held), -1);
    EXPECT_EQ(callFn(FileRename, held, 0, dir / "moved"), -1);
    callFn(GroupListClear);
    EXPECT_EQ(callFn(AppendOBJ, part, 0, held), -2);
    CloseHandle(h);
    callFn(GroupListClear);
    EXPECT_EQ(readAll(held), "old");
    EXPECT_EQ(readAll(other), "other");
    EXPECT_EQ(listing(dir.path), "held.lst other part.obj ");
}

TEST(Windows, ListingGivesDotsFirstAndEmptyFolderUsesTheBackslash) {
    TempDir dir;
    for (const char* name : {"a.txt", "b.obj", "noext"}) writeAll(dir / name, "x");
    const std::vector<std::string> names = listed(dir.path);
    ASSERT_EQ(names.size(), 5u);
    EXPECT_EQ(names[0], ".");
    EXPECT_EQ(names[1], "..");
    // A drive root lists neither itself, yet "." and ".." come first and no real entry is lost.
    const std::vector<std::string> root = listed("C:\\");
    ASSERT_GE(root.size(), 3u);
    EXPECT_EQ(root[0] + root[1], "...");
    EXPECT_EQ(std::count(root.begin(), root.end(), "."), 1);
    EXPECT_NE(std::find_if(root.begin(), root.end(), [](const std::string& n) { return _stricmp(n.c_str(), "windows") == 0; }), root.end());
    EXPECT_EQ(callFn(EmptyFolder, dir.path), 0);  // the backslash appended is a separator here
    EXPECT_EQ(listing(dir.path), "noext ");
}

TEST(Windows, NamesInTheAnsiCodePageAndNamesWindowsCannotCreate) {
    Sandbox box;
    // A name with a character beyond ASCII, as the host passes it: in the ANSI code page.
    char narrow[64] = {};
    ASSERT_GT(WideCharToMultiByte(CP_ACP, 0, L"pi\u00e8ce.obj", -1, narrow, sizeof narrow, nullptr, nullptr), 0);
    const std::string part = box.in + "/" + narrow;
    writeAll(box.in + "/plain.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    EXPECT_EQ(callFn(FileCopyTo, box.in + "/plain.obj", 0, part), 0);
    EXPECT_TRUE(fs::exists(fs::path(box.in) / L"pi\u00e8ce.obj"));
    std::string text;  // a character the code page lacks: no text (GetFilePath's 1234)
    EXPECT_EQ(kv::platform::narrow(L"\u4e00.obj", text), GetACP() == CP_UTF8);
    callFn(GroupListClear);
    EXPECT_EQ(callFn(AppendOBJ, part, 0, box.out + "/all.obj"), 3);
    callFn(GroupListClear);
    // Group names that leave the folder or that Windows cannot create: -3, nothing written.
    TempDir src;
    const auto before = box.tree();
    for (const char* name : {"CON", "nul.txt", "Com1", "lpt9.obj", "a:b", "x.", "x ", "..\\up", "a\\..\\..\\x", "C:\\abs",
                             "C:rel", "\\\\srv\\share\\p", "\\lead", "a<b", "q?", "p|q", "s*", "t\"u", "c\x01"}) {
        const std::string obj = src / "c.obj";
        writeAll(obj, std::string("v 0 0 0\nv 1 0 0\nv 0 1 0\ng ") + name + "\nf 1 2 3\n");
        EXPECT_EQ(callFn(SplitOBJtoVyx, obj, 0, box.out + "/"), -3) << name;
        EXPECT_EQ(box.tree(), before) << name;
    }
}
