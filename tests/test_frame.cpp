// The frame's exports as the host calls them: settings, the TPose list and its project file, file
// and folder operations, path splitting, and the number conversions every export goes through.
#include <gtest/gtest.h>

#include <dirent.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "FileOps.h"
#include "FrameState.h"
#include "PrjFile.h"
#include "meshfiles.h"

using namespace kvtest;

namespace {

const double kNaN = std::nan("");

void addRef(const char* name, double value, const char* data) { ASSERT_EQ(callFn(AddTPoseRef, name, value, data), 0); }

}  // namespace

// Null texts and blocks: each export gives its code without touching anything.
TEST(Frame, NullArgumentsGiveEachExportsCode) {
    TempDir dir;
    const std::string file = dir / "f.obj";
    writeAll(file, "v 0 0 0\ng a\nf 1 1 1\n");
    // Each export, its number, whether the text is null (else the file, and memBlock1 null), its code.
    const std::tuple<KelvaneFn, double, bool, float> cases[] = {
        {AppendOBJ, 0, true, -9}, {AppendOBJ, 0, false, -9}, {SplitOBJ, 0, true, -2}, {SplitOBJ, 0, false, -2},
        {SplitOBJtoVyx, 0, true, -2}, {ListSplitOBJtoVyx, 0, true, -2}, {ListSplitOBJtoOBJ, 0, false, -2},
        {SwapVertices, 0, true, -2}, {SwapVertices, 0, false, -2}, {GroupListAdd, 3, true, -1}, {GroupListLoad, 0, true, -9},
        {GetFaces, 0, true, -1}, {CheckName, 0, true, -1}, {outMRGB, 0, true, -9}, {outMRGB, 0, false, -9},
        {getFaceIDs, 1, true, -9}, {SwapVertices_Vyx, 0, true, -2}, {SwapVertices_Vyx, 0, false, -2},
        {GetUVTile, 0, true, -17}, {GetUVsFromVyx, 0, true, -1760}, {AddTPoseRef, 1, true, -2}, {AddTPoseRef, 1, false, -2},
        {FileCopyTo, 0, true, -1}, {FileCopyTo, 0, false, -1}, {FileRename, 0, true, -1}, {FileRename, 0, false, -1},
        {FileDelete, 0, true, -1}, {OpenFolder, 0, true, -1}, {EmptyFolder, 0, true, -1}, {SwapColorsPSD, 0, true, -1},
        {AddDatFile, 0, true, 0}, {AddDatFile, 0, false, 0}, {OpenPrjFile, 0, true, 0}, {OpenPrjFile, 0, false, 0},
    };
    callFn(GroupListClear);
    callFn(ClearTPoseList);
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto& [fn, number, nullText, code] = cases[i];
        char block[256] = {};
        EXPECT_EQ(nullText ? fn(nullptr, number, block, block) : fn(file.c_str(), number, nullptr, block), code) << i;
    }
    EXPECT_EQ(listing(dir.path), "f.obj ");
    EXPECT_EQ(readAll(file), "v 0 0 0\ng a\nf 1 1 1\n");
    EXPECT_EQ(callFn(GroupListSize), -1);
    EXPECT_TRUE(tPoseList.empty());
}

TEST(Frame, TPoseListAddLookUpAndCheckOrder) {
    callFn(ClearTPoseList);
    char data[] = "pose data", out[300];
    EXPECT_EQ(callFn(GetTPoseRef, nullptr, 0, out), -5);  // empty list: before the text is looked at
    EXPECT_EQ(callFn(AddTPoseRef, nullptr, 0, nullptr), -1);  // the value before the null checks
    EXPECT_EQ(callFn(AddTPoseRef, "a", -1, data), -1);
    EXPECT_TRUE(tPoseList.empty());
    EXPECT_EQ(callFn(AddTPoseRef, "arm", 0.5, data), 0);  // 0.5 > 0 passes, stored as 0
    EXPECT_EQ(callFn(AddTPoseRef, "leg", 3, "second"), 0);
    EXPECT_EQ(callFn(AddTPoseRef, "leg", 9, "shadowed"), 0);
    EXPECT_EQ(callFn(AddTPoseRef, "nan", kNaN, data), 0);  // NaN passes and becomes 2^31
    EXPECT_EQ(thisPrjHdr[2], 4u);
    for (auto [name, value, text] : std::vector<std::tuple<const char*, float, const char*>>{
             {"arm", 0, "pose data"}, {"leg", 3, "second"} /* the first match */, {"nan", 2147483648.0f, "pose data"}}) {
        EXPECT_EQ(callFn(GetTPoseRef, name, 0, out), value) << name;
        EXPECT_STREQ(out, text);
    }
    for (const char* missing : {"Leg" /* case-sensitive */, static_cast<const char*>(nullptr)}) EXPECT_EQ(callFn(GetTPoseRef, missing, 0, out), -1);
    // Names and data longer than their fields are cut, never overflow the record.
    EXPECT_EQ(callFn(AddTPoseRef, std::string(400, 'n').c_str(), 1, std::string(600, 'd').c_str()), 0);
    EXPECT_EQ(std::strlen(tPoseList.back().name), 254u);
    EXPECT_EQ(std::strlen(tPoseList.back().data), 256u);
    for (double refused : {0.0, -2.0, kNaN}) EXPECT_EQ(callFn(SetPrjModfier, nullptr, refused), -1);
    // Stored as an unsigned word: truncated, 2^31 and above kept whole, saturated at 2^32 - 1.
    for (auto [value, stored] : std::vector<std::pair<double, uint32_t>>{{2147483647.9, 0x7FFFFFFFu}, {2147483648.0, 0x80000000u}, {5e9, 0xFFFFFFFFu}, {7.9, 7u}}) {
        EXPECT_EQ(callFn(SetPrjModfier, nullptr, value), 0);
        EXPECT_EQ(thisPrjHdr[3], stored) << value;
    }
    EXPECT_EQ(callFn(GetPrjModfier), 7.0f);
    callFn(ClearTPoseList);  // the header too
    EXPECT_TRUE(tPoseList.empty());
    for (uint32_t w : thisPrjHdr) EXPECT_EQ(w, 0u);
}

// The project file: the exact layout written, data files attached as chunks, and a project
// reopened into the same records with its data files extracted.
TEST(PrjFile, WriteAttachReopen) {
    TempDir dir, out;
    const std::string prj = dir / "scene.prj";
    callFn(ClearTPoseList);
    for (const char* path : {static_cast<const char*>(nullptr), prj.c_str()}) EXPECT_EQ(callFn(WritePrjFile, path), -3);  // the list first
    EXPECT_FALSE(exists(prj));
    addRef("rest", 1, "rest data");
    addRef("arms up", 4000000000.0, "");
    addRef(std::string(254, 'n').c_str(), 4294967295.0, std::string(256, 'd').c_str());
    callFn(SetPrjModfier, nullptr, 77);
    EXPECT_EQ(callFn(WritePrjFile, nullptr), -1);
    ASSERT_EQ(callFn(WritePrjFile, prj), 0);
    const std::string records = prjHeader(3, 77) + prjRecord(1, "rest", "rest data") + prjRecord(4000000000u, "arms up", "") +
                                prjRecord(4294967295u, std::string(254, 'n'), std::string(256, 'd'));
    EXPECT_EQ(readAll(prj), records);
    const std::vector<TPoseRef> written = tPoseList;

    // Data files go after the records as chunks: number, length, two zero words, the bytes and
    // the last byte again (0 for an empty file); the number is read from the file's name.
    std::string a(100, '\0'), b;
    for (size_t i = 0; i < a.size(); ++i) a[i] = char(255 - i);
    for (int i = 0; i < 70000; ++i) b += char(i % 251);
    EXPECT_EQ(callFn(AddDatFile, dir / "none.dat", 0, dir / "missing/p.prj"), -1);  // the data file first
    for (auto [name, bytes] : {std::pair{"12.dat", a}, {"3000000000.bin", b}, {"7.dat", ""}}) {
        writeAll(dir / name, bytes);
        ASSERT_EQ(callFn(AddDatFile, dir / name, 0, prj), 0);
    }
    EXPECT_EQ(callFn(AddDatFile, dir / "12.dat", 0, dir / "missing/p.prj"), -2);
    EXPECT_EQ(readAll(prj), records + prjChunk(12, a) + prjChunk(3000000000u, b) + prjChunk(7, ""));
    for (auto [path, number] : std::vector<std::pair<const char*, uint32_t>>{
             {"C:\\a.b\\305.dat", 305}, {"/a.b/42pose.v2.dat", 42}, {"/x/4294967295", 4294967295u}, {"/x/4294967296.dat", 0}, {"/x/-3.dat", 0}})
        EXPECT_EQ(datFileNumber(path), number) << path;

    // Reopened (twice: the second replaces what the first read), the records come back byte
    // for byte and every chunk is extracted as <number>X.dat in the target's folder.
    callFn(ClearTPoseList);
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(callFn(OpenPrjFile, prj, 0, out / "anything.txt"), 0);
        ASSERT_EQ(tPoseList.size(), written.size());
        for (size_t i = 0; i < written.size(); ++i) EXPECT_EQ(std::memcmp(&tPoseList[i], &written[i], sizeof(TPoseRef)), 0) << i;
    }
    EXPECT_EQ(listing(out.path), "12X.dat 3000000000X.dat 7X.dat ");
    EXPECT_EQ(readAll(out / "12X.dat"), a);
    EXPECT_EQ(readAll(out / "3000000000X.dat"), b);
    EXPECT_EQ(callFn(GetPrjModfier), 77);
    // Written again from what was read: the same records.
    ASSERT_EQ(callFn(WritePrjFile, prj), 0);
    EXPECT_EQ(readAll(prj), records);
    EXPECT_EQ(listing(dir.path), "12.dat 3000000000.bin 7.dat scene.prj ");  // no temporary left behind
    callFn(ClearTPoseList);
}

TEST(PrjFile, HostileProjectsAreReadOnlyAsFarAsTheyGo) {
    TempDir dir, out;
    auto open = [&](const std::string& bytes) {
        writeAll(dir / "bad.prj", bytes);
        return callFn(OpenPrjFile, dir / "bad.prj", 0, out / "x");
    };
    // A count far beyond the file: no chunk is looked for beyond the counted records.
    const std::string rec = prjRecord(5, "only", "one");
    ASSERT_EQ(open(prjHeader(0xFFFFFFFFu, 9) + rec + rec.substr(0, 300) + prjChunk(1, "abc")), 0);
    EXPECT_EQ(thisPrjHdr[2], 0xFFFFFFFFu);  // the header holds what was read
    EXPECT_EQ(listing(out.path), "");
    // Chunk lengths 0 and 15 are skipped and the walk steps past them plus one byte; a length
    // of 2^32-1, or one that reaches the end of the file, is skipped and ends the walk. Here a
    // head of length 0 at P overlaps one of length 15 at P + 1, and a sound chunk follows at P + 17.
    std::string hostile = prjHeader(0) + '\0' + be32(5632) + be32(15) + be32(0) + be32(0);
    hostile += prjChunk(23, "kept") + be32(24) + be32(0xFFFFFFFFu) + be32(0) + be32(0) + "tail";
    ASSERT_EQ(open(hostile), 0);
    EXPECT_EQ(listing(out.path), "23X.dat ");
    EXPECT_EQ(readAll(out / "23X.dat"), "kept");
    std::filesystem::remove(out / "23X.dat");
    ASSERT_EQ(open(prjHeader(0) + std::string(4096, '\0')), 0);  // lengths 0 all along
    ASSERT_EQ(open(prjHeader(0) + be32(27) + be32(16) + be32(0) + be32(0)), 0);  // P + 16 < S is needed
    EXPECT_EQ(listing(out.path), "");
    ASSERT_EQ(open(prjHeader(0) + prjChunk(27, "")), 0);
    EXPECT_EQ(readAll(out / "27X.dat"), "");
    // A chunk whose output cannot be created is skipped; the next one is still extracted.
    std::filesystem::create_directory(out / "28X.dat");
    ASSERT_EQ(open(prjHeader(0) + prjChunk(28, "blocked") + prjChunk(29, "free")), 0);
    EXPECT_EQ(readAll(out / "29X.dat"), "free");
    callFn(ClearTPoseList);
}

TEST(Frame, FileDeleteCopyRename) {
    TempDir dir;
    const std::string a = dir / "a.bin", b = dir / "b.bin", c = dir / "c.bin";
    std::string payload(10007, '\0');  // several 4000-byte blocks and a short tail
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 31 + 7);
    writeAll(a, payload);
    writeAll(b, std::string(50000, 'x'));  // an older, longer destination is replaced
    EXPECT_EQ(callFn(FileCopyTo, a, 0, b), 0);
    EXPECT_TRUE(readAll(b) == payload);
    EXPECT_EQ(callFn(FileCopyTo, dir / "none.bin", 0, b), -1);  // the destination is deleted first
    EXPECT_FALSE(exists(b));
    EXPECT_EQ(callFn(FileCopyTo, a, 0, b), 0);
    EXPECT_EQ(callFn(FileCopyTo, a, 0, dir / "no/such/folder.bin"), -1);
    EXPECT_EQ(callFn(FileCopyTo, a, 0, a), -1);  // onto itself: the source is deleted first
    EXPECT_EQ(callFn(FileRename, b, 0, c), 0);
    EXPECT_EQ(listing(dir.path), "c.bin ");
    EXPECT_TRUE(readAll(c) == payload);
    EXPECT_EQ(callFn(FileDelete, c), 0);
    EXPECT_EQ(listing(dir.path), "");
}

TEST(Frame, FolderListing) {
    TempDir dir;
    writeAll(dir / "one.txt", "1");
    writeAll(dir / ".hidden", "h");
    char out[512];
    EXPECT_EQ(callFn(GetFile, nullptr, 0, out), -1);  // nothing open yet
    EXPECT_EQ(callFn(CloseFolder), -1);
    EXPECT_EQ(callFn(OpenFolder, dir / "missing"), -1);
    ASSERT_EQ(callFn(OpenFolder, dir.path), 0);
    ASSERT_EQ(callFn(OpenFolder, dir.path), 0);  // opening again while open starts a new listing
    std::multiset<std::string> names;
    while (callFn(GetFile, nullptr, 0, out) == 0) names.insert(out);
    EXPECT_EQ(names, (std::multiset<std::string>{".", "..", ".hidden", "one.txt"}));
    EXPECT_EQ(callFn(GetFile, nullptr, 0, out), -3);  // still open after the last entry
    EXPECT_EQ(callFn(CloseFolder), 0);
    EXPECT_EQ(callFn(CloseFolder), -1);
    EXPECT_EQ(callFn(GetFile, nullptr, 0, out), -1);
}

TEST(FileOps, PathSplittingAndTheNameBasedFolderTest) {
    for (auto [path, mode, part] : std::vector<std::tuple<const char*, int, const char*>>{
             {"/a/b/c.tar.gz", 1, "/a/b/"}, {"/a/b/c.tar.gz", 2, "c.tar"}, {"/a/b/c.tar.gz", 3, "/a/b/c.tar"},
             {"/a/b/c.tar.gz", 4, ".gz"}, {"/a/b/c.tar.gz", 6, "c.tar.gz"}, {"/a/b/c.tar.gz", 0, "/a/b/c.tar.gz"},
             {"/a/b/c.tar.gz", 5, "/a/b/c.tar.gz"}, {"/a/b/c.tar.gz", -1, "/a/b/c.tar.gz"},
             {"C:\\parts\\arm.obj", 1, "C:\\parts\\"}, {"C:\\parts\\arm.obj", 2, "arm"}, {"arm.obj", 1, ""},
             {"arm", 2, "arm"}, {"arm", 3, "arm"}, {"/x.y/arm", 3, "/x"} /* the last dot of the whole path */,
             {"/x.y/arm", 2, "arm"}})
        EXPECT_EQ(FileNameExtract(path, mode), part) << path << " " << mode;
    EXPECT_THROW(FileNameExtract("/a/b/c", 4), std::out_of_range);
    for (auto [path, isFolder] : std::vector<std::pair<const char*, bool>>{
             {"/a/b.c", false}, {"/a.b/c", true}, {"", true}, {"name.", false}, {"/a.b/c.d/", true}, {"x.y\\", true}, {"a\\b.c", false}})
        EXPECT_EQ(IsDirectory(path), isFolder) << path;
}

TEST(FileOps, EmptyFolderAppendsABackslashAndDeletesDottedNames) {
#ifdef _WIN32
    GTEST_SKIP() << "the backslash separates folders on Windows: test_windows.cpp";
#endif
    TempDir dir;
    // A path without a trailing backslash is opened with one appended: no such folder here.
    std::filesystem::create_directory(dir / "plain");
    writeAll(dir / "plain/keep.txt", "k");
    EXPECT_EQ(callFn(EmptyFolder, dir / "plain"), -1);
    EXPECT_TRUE(exists(dir / "plain/keep.txt"));
    // A folder whose path ends in a backslash is listed; each entry's full name is the folder
    // path followed directly by the entry name. The first two entries listed are skipped.
    const std::string box = dir / "box\\";
    std::filesystem::create_directory(box);
    for (const char* name : {"a.txt", "b.obj", "c.dat", "d.png", "noext"}) {
        writeAll(box + "/" + name, "inside");
        writeAll(box + name, "named by the folder path and entry");
    }
    std::vector<std::string> order;
    DIR* d = opendir(box.c_str());
    ASSERT_NE(d, nullptr);
    while (dirent* e = readdir(d)) order.push_back(e->d_name);
    closedir(d);
    EXPECT_EQ(callFn(EmptyFolder, box), 0);
    for (size_t i = 0; i < order.size(); ++i) {
        if (order[i] == "." || order[i] == "..") continue;
        const bool deleted = i >= 2 && order[i].find('.') != std::string::npos;
        EXPECT_EQ(exists(box + order[i]), !deleted) << order[i] << " at position " << i;
        EXPECT_TRUE(exists(box + "/" + order[i])) << order[i];
    }
}
