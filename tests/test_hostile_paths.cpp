// Path arguments no file can have — empty, a component beyond the system's name limit, a path
// of 5000 bytes, a folder where a file is wanted — through every export that takes one: each
// gives its "cannot open" or "cannot create" code and nothing changes on disk.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "hostile.h"

using namespace kvtest;

TEST(HostilePaths, PathsNoFileCanHaveGiveTheirCodes) {
    Sandbox box;
    const std::string sound = box.input("sound.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\ng a\nf 1 2 3\n");
    const std::vector<std::string> bad = {
        "",
        box.in + "/" + std::string(300, 'x'),                     // one name beyond 255 bytes
        box.in + "/" + std::string(5000, 'y'),                    // beyond the path limit as well
        "/nonexistent-kelvane-folder/" + std::string(100, 'z'),   // a folder that does not exist
        box.in,                                                   // a folder, not a file
    };
    struct Case {
        const char* name;
        KelvaneFn fn;
        bool badIsText;  // the bad path goes in text (else in memBlock1, with a sound text)
        float code;
    };
    const std::vector<Case> cases = {
        {"getFaceIDs", getFaceIDs, true, -1760},
        {"outMRGB", outMRGB, true, -1760},
        {"GetUVTile", GetUVTile, true, -17},
        {"GetUVsFromVyx", GetUVsFromVyx, true, -1760},
        {"GroupListLoad", GroupListLoad, true, -3},
        {"AppendOBJ", AppendOBJ, true, -1},
        {"SplitOBJ", SplitOBJ, true, -1},
        {"SplitOBJtoVyx", SplitOBJtoVyx, true, -1},
        {"SwapVertices (vertex file)", SwapVertices, true, -10},
        {"SwapVertices (mesh)", SwapVertices, false, -20},
        {"OpenPrjFile", OpenPrjFile, true, -17},
        {"AddDatFile", AddDatFile, true, -1},
        {"CropBMPfile", CropBMPfile, true, -1760},
        {"SwapColorsPSD", SwapColorsPSD, true, -1},
        {"MakeStencilPSD", MakeStencilPSD, true, -1},
        {"RGBtoGrayscale", RGBtoGrayscale, true, -1},
        {"CreateThumbnail", CreateThumbnail, true, -1},
        {"FileDelete", FileDelete, true, -1},
        {"FileCopyTo", FileCopyTo, true, -1},
        {"FileRename", FileRename, true, -1},
    };
    const std::string target = box.out + "/t";
    const auto before = box.tree();
    for (const std::string& path : bad) {
        SCOPED_TRACE(path.substr(0, 80) + " (" + std::to_string(path.size()) + " bytes)");
        for (const Case& c : cases) {
            SCOPED_TRACE(c.name);
            if (c.fn == FileRename && path == box.in) continue;  // a folder may be renamed
            // A second text that would work: the sound mesh, or a file in the output folder.
            const std::string other = c.fn == SwapVertices ? (c.badIsText ? sound : box.out + "/v.obj") : target;
            const float r = c.badIsText ? callFn(c.fn, path.c_str(), 16, other.c_str()) : callFn(c.fn, other.c_str(), 16, path.c_str());
            // SwapVertices creates its vertex file before it reads the mesh.
            std::filesystem::remove(box.out + "/v.obj");
            // A folder opens for reading but its read fails: a copy then fails and leaves no
            // cut copy behind (the tree check below).
            EXPECT_EQ(r, c.code) << r;
        }
        EXPECT_EQ(box.tree(), before);
    }
}

// Output paths no file can have, with sound inputs: each writer gives its "cannot create" code.
TEST(HostilePaths, OutputPathsNoFileCanHave) {
    Sandbox box;
    const std::string obj = box.input("sound.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\ng a\nf 1 2 3\n");
    const std::vector<std::string> bad = {
        box.out + "/" + std::string(300, 'x') + "/",  // a folder name beyond 255 bytes
        box.out + "/" + std::string(5000, 'y'),
        "/nonexistent-kelvane-folder/" + std::string(100, 'z'),
        box.out + "/folder",                          // a folder where the file should go
    };
    std::filesystem::create_directory(box.out + "/folder");
    const auto before = box.tree();
    for (const std::string& path : bad) {
        SCOPED_TRACE(path.substr(0, 80) + " (" + std::to_string(path.size()) + " bytes)");
        // The splits write into the folder of their path: a folder that cannot hold files.
        const bool folder = path == box.out + "/folder";
        const std::string folderOf = path + "/";
        if (!folder) {
            EXPECT_EQ(callFn(SplitOBJ, obj.c_str(), 0, folderOf.c_str()), -3);
            EXPECT_EQ(callFn(SplitOBJtoVyx, obj.c_str(), 0, folderOf.c_str()), -3);
        }
        callFn(GroupListClear, nullptr);
        EXPECT_EQ(callFn(AppendOBJ, obj.c_str(), 0, path.c_str()), -2);
        EXPECT_EQ(callFn(GroupListSize, nullptr), -1);  // a failed append records nothing
        callFn(GroupListAdd, "a", 1);
        EXPECT_EQ(callFn(GroupListSave, path.c_str()), -3);
        if (!folder) {
            EXPECT_EQ(callFn(ListSplitOBJtoOBJ, obj.c_str(), 0, folderOf.c_str()), -3);
        }
        callFn(ClearTPoseList, nullptr);
        callFn(AddTPoseRef, "r", 1, "d");
        EXPECT_EQ(callFn(WritePrjFile, path.c_str()), -17);
        EXPECT_EQ(box.tree(), before);
    }
    callFn(GroupListClear, nullptr);
    callFn(ClearTPoseList, nullptr);
}
