#include <gtest/gtest.h>

#include <dirent.h>

#include <filesystem>
#include <vector>
#include <stdexcept>

#include "FileOps.h"
#include "kelvane/Kelvane4.h"
#include "testutil.h"

TEST(FileOps, FileNameExtractModes) {
    const std::string p = "/a/b/c.tar.gz";
    EXPECT_EQ(FileNameExtract(p, 1), "/a/b/");
    EXPECT_EQ(FileNameExtract(p, 2), "c.tar");
    EXPECT_EQ(FileNameExtract(p, 3), "/a/b/c.tar");
    EXPECT_EQ(FileNameExtract(p, 4), ".gz");
    EXPECT_EQ(FileNameExtract(p, 6), "c.tar.gz");
    for (int mode : {0, 5, 7, 99, -1}) EXPECT_EQ(FileNameExtract(p, mode), p);

    // Backslashes separate too; without a separator the folder part is empty.
    EXPECT_EQ(FileNameExtract("C:\\parts\\arm.obj", 1), "C:\\parts\\");
    EXPECT_EQ(FileNameExtract("C:\\parts\\arm.obj", 2), "arm");
    EXPECT_EQ(FileNameExtract("arm.obj", 1), "");
    EXPECT_EQ(FileNameExtract("arm.obj", 6), "arm.obj");
    EXPECT_EQ(FileNameExtract("arm", 2), "arm");
    EXPECT_EQ(FileNameExtract("arm", 3), "arm");
    // Mode 3 cuts at the last dot of the whole path, even one in a folder name.
    EXPECT_EQ(FileNameExtract("/x.y/arm", 3), "/x");
    EXPECT_EQ(FileNameExtract("/x.y/arm", 2), "arm");
    EXPECT_THROW(FileNameExtract("/a/b/c", 4), std::out_of_range);
}

TEST(FileOps, IsDirectoryDecidesByTheName) {
    EXPECT_FALSE(IsDirectory("/a/b.c"));
    EXPECT_TRUE(IsDirectory("/a.b/c"));
    EXPECT_TRUE(IsDirectory("c"));
    EXPECT_TRUE(IsDirectory(""));
    EXPECT_FALSE(IsDirectory("name."));
    EXPECT_TRUE(IsDirectory("/a.b/c.d/"));
    EXPECT_TRUE(IsDirectory("x.y\\"));
    EXPECT_FALSE(IsDirectory("a\\b.c"));
}

TEST(FileOps, EmptyFolderAppendsABackslashAndDeletesDottedNames) {
    kvtest::TempDir dir;
    char mem2[4];

    // A path without a trailing backslash is opened with one appended: no such folder here.
    std::filesystem::create_directory(dir / "plain");
    kvtest::writeAll(dir / "plain/keep.txt", "k");
    EXPECT_EQ(EmptyFolder((dir / "plain").c_str(), 0, nullptr, mem2), -1);
    EXPECT_TRUE(kvtest::exists(dir / "plain/keep.txt"));
    EXPECT_EQ(EmptyFolder(nullptr, 0, nullptr, mem2), -1);

    // A folder whose path ends in a backslash is listed; each entry's full name is the
    // folder path followed directly by the entry name. The first two entries the system
    // returns are skipped, whatever they are.
    const std::string box = dir / "box\\";
    std::filesystem::create_directory(box);
    const std::vector<std::string> names = {"a.txt", "b.obj", "c.dat", "d.png", "noext"};
    for (const std::string& name : names) {
        kvtest::writeAll(box + "/" + name, "inside");
        kvtest::writeAll(box + name, "named by the folder path and entry");
    }
    std::vector<std::string> order;
    DIR* d = opendir(box.c_str());
    ASSERT_NE(d, nullptr);
    while (dirent* e = readdir(d)) order.push_back(e->d_name);
    closedir(d);
    ASSERT_EQ(order.size(), names.size() + 2);

    EXPECT_EQ(EmptyFolder(box.c_str(), 0, nullptr, mem2), 0);
    for (size_t i = 0; i < order.size(); ++i) {
        if (order[i] == "." || order[i] == "..") continue;
        const bool deleted = i >= 2 && order[i].find('.') != std::string::npos;
        EXPECT_EQ(kvtest::exists(box + order[i]), !deleted) << order[i] << " at position " << i;
        EXPECT_TRUE(kvtest::exists(box + "/" + order[i])) << order[i];
    }
    EXPECT_TRUE(kvtest::exists(box + "noext"));  // no dot: taken for a folder and kept
    EXPECT_EQ(ClearFolder(dir / "missing\\"), false);
}
