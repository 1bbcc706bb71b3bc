// The polygroup list, the OBJ line rules, the append, the group-driven splits and the vertex
// transfer, plus a randomized posing round that checks every part comes back whole.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kelvane/Kelvane4.h"
#include "leanOBJ.h"
#include "testutil.h"
#include "util/text.h"

using kvtest::be32;
using kvtest::callFn;
using kvtest::exists;
using kvtest::f32;
using kvtest::readAll;
using kvtest::TempDir;
using kvtest::writeAll;

namespace {

std::vector<int32_t> faceIndices(std::string_view line) {
    std::vector<int32_t> out;
    std::string scratch;
    obj::forEachFaceIndex(line, scratch, [&](int32_t i) { out.push_back(i); });
    return out;
}

std::string vytFile(const std::vector<vertexS>& vs) {
    std::string s = be32(10001) + be32(uint32_t(16 + 12 * vs.size())) + be32(uint32_t(vs.size())) + be32(0);
    for (const vertexS& v : vs) s += f32(v.x) + f32(v.y) + f32(v.z);
    return s;
}

// Lists the files of a folder, sorted.
std::string listing(const std::string& dir) {
    return kvtest::run("LC_ALL=C ls " + dir + " | tr '\\n' ' '");
}

}  // namespace

TEST(ObjRules, LineKindsFaceReductionAndNumbers) {
    EXPECT_EQ(obj::classify("v 1 2 3"), obj::LineKind::Vertex);
    EXPECT_EQ(obj::classify("vt 0.5 0.5"), obj::LineKind::Other);
    EXPECT_EQ(obj::classify("vn 0 0 1"), obj::LineKind::Other);
    EXPECT_EQ(obj::classify(" v 1 2 3"), obj::LineKind::Other);
    EXPECT_EQ(obj::classify("v"), obj::LineKind::Other);
    EXPECT_EQ(obj::classify("fo 1 2"), obj::LineKind::Face);
    EXPECT_EQ(obj::classify("g"), obj::LineKind::Group);
    EXPECT_EQ(obj::classify("# c"), obj::LineKind::Comment);

    using V = std::vector<int32_t>;
    EXPECT_EQ(faceIndices("f 1 2/2 3"), (V{1, 2, 3}));
    EXPECT_EQ(faceIndices("f 12/40/7 3//1 9/1\r"), (V{12, 3, 9}));
    EXPECT_EQ(faceIndices("f 1 2 3 4\r"), (V{1, 2, 3, 4}));
    EXPECT_EQ(faceIndices("f12 3"), (V{2, 3}));  // the second character is skipped unchecked
    EXPECT_EQ(faceIndices("f 5 +6 -7 x 8"), (V{5, 6, -7}));
    EXPECT_EQ(faceIndices("f 1.5 2"), (V{1}));         // the read stops inside "1.5"
    EXPECT_EQ(faceIndices("f 4294967297 1"), (V{}));   // out of range: the first read fails
    EXPECT_EQ(faceIndices("f 3/1 4294967297/1 1/1"), (V{3}));
    EXPECT_EQ(faceIndices("f 3/1 12345678901/1 1/1"), (V{3}));
    EXPECT_EQ(faceIndices("f -/1 3/1"), (V{}));
    EXPECT_EQ(faceIndices("f /1  +4/1 2\t5/1 6"), (V{4, 2, 5, 6}));
    EXPECT_EQ(faceIndices("f 2147483647 -2147483648"), (V{2147483647, INT32_MIN}));
    EXPECT_EQ(faceIndices("f 1/2 a/3 4/4"), (V{1}));
    EXPECT_EQ(faceIndices("f"), (V{}));
    EXPECT_EQ(faceIndices("f 7"), (V{7}));

    vertexS v = obj::parseVertex("v 1 2 3");
    EXPECT_EQ(v.x, 1.0f);
    EXPECT_EQ(v.y, 2.0f);
    EXPECT_EQ(v.z, 3.0f);
    v = obj::parseVertex("v  +1.5\t-2e1 .25 7\r");
    EXPECT_EQ(v.x, 1.5f);
    EXPECT_EQ(v.y, -20.0f);
    EXPECT_EQ(v.z, 0.25f);
    v = obj::parseVertex("v 4 abc 6");
    EXPECT_EQ(v.x, 4.0f);
    EXPECT_EQ(v.y, 0.0f);
    EXPECT_EQ(v.z, 0.0f);
}

TEST(GroupList, RecordsFileBytesLoadAndSave) {
    TempDir dir;
    clearGroupsList();
    EXPECT_EQ(callFn(GroupListSize), -1);
    EXPECT_EQ(callFn(GroupListSave, (dir / "l.bin").c_str()), -1);
    EXPECT_FALSE(exists(dir / "l.bin"));
    EXPECT_EQ(callFn(GroupListAdd, "A", 0.9), -2);  // truncated to 0
    EXPECT_EQ(callFn(GroupListAdd, nullptr, 3), -1);
    EXPECT_EQ(callFn(GroupListAdd, nullptr, std::nan("")), -2);
    EXPECT_EQ(callFn(GroupListAdd, "A", 10), 0);
    EXPECT_EQ(callFn(GroupListAdd, "B", 5.7), 0);
    ASSERT_EQ(groupsList.size(), 2u);
    EXPECT_EQ(groupsList[1].firstFace, 10);
    EXPECT_EQ(groupsList[1].endFace, 15);
    EXPECT_EQ(faceIndex, 15);
    EXPECT_EQ(callFn(GroupListSize), 2);

    char out[256] = "x";
    EXPECT_EQ(callFn(GroupListGetName, nullptr, 1.9, out), 0);
    EXPECT_STREQ(out, "B");
    EXPECT_EQ(callFn(GroupListGetName, nullptr, 2, out), 0);
    EXPECT_STREQ(out, "null");
    EXPECT_EQ(callFn(GroupListGetName, nullptr, -0.5, out), 0);  // truncates to index 0
    EXPECT_STREQ(out, "A");
    EXPECT_EQ(callFn(GroupListGetName, nullptr, -1, out), -1);
    EXPECT_EQ(callFn(GroupListGetName, nullptr, std::nan(""), out), -1);

    const std::string file = dir / "l.bin";
    EXPECT_EQ(callFn(GroupListSave, nullptr), -9);
    EXPECT_EQ(callFn(GroupListSave, file.c_str()), 0);
    std::string bytes = readAll(file);
    ASSERT_EQ(bytes.size(), 272u);
    EXPECT_EQ(bytes.substr(0, 2), std::string("A\0", 2));
    EXPECT_EQ(bytes.substr(128, 8), be32(0) + be32(10));
    EXPECT_EQ(bytes.substr(136 + 128, 8), be32(10) + be32(15));

    callFn(GroupListClear);
    EXPECT_EQ(faceIndex, 0);
    EXPECT_EQ(callFn(GroupListLoad, file.c_str()), 0);
    ASSERT_EQ(groupsList.size(), 2u);
    EXPECT_STREQ(groupsList[0].name, "A");
    EXPECT_EQ(groupsList[0].endFace, 10);
    EXPECT_EQ(groupsList[1].firstFace, 10);
    EXPECT_EQ(faceIndex, 0);  // not recomputed from the records
    EXPECT_EQ(callFn(GroupListAdd, "C", 4), 0);
    EXPECT_EQ(groupsList[2].firstFace, 0);
    EXPECT_EQ(groupsList[2].endFace, 4);

    // A tail shorter than a record still yields one record.
    writeAll(dir / "tail.bin", bytes + std::string("Tail\0\0\0", 7));
    EXPECT_EQ(callFn(GroupListLoad, (dir / "tail.bin").c_str()), 0);
    ASSERT_EQ(groupsList.size(), 3u);
    EXPECT_STREQ(groupsList[2].name, "Tail");

    // A failed load still empties the list.
    EXPECT_EQ(callFn(GroupListLoad, (dir / "missing.bin").c_str()), -3);
    EXPECT_EQ(callFn(GroupListSize), -1);
    EXPECT_EQ(callFn(GroupListLoad, nullptr), -9);

    // Names of 128 bytes or more are cut to 127.
    const std::string longName(200, 'n');
    EXPECT_EQ(callFn(GroupListAdd, longName.c_str(), 1), 0);
    EXPECT_EQ(std::string(groupsList[0].name), longName.substr(0, 127));
    clearGroupsList();
}

TEST(AppendOBJ, RewritesGroupsAndFacesAcrossParts) {
    TempDir dir;
    clearGroupsList();
    const std::string part = dir / "Arm_L.obj", combined = dir / "combined.obj";
    writeAll(part,
             "# a part\n"
             "f 1 2 3\n"
             "g default\n"
             "v 0 0 0\n" "v 1 0 0\r\n" "v 1 1 0\n" "v 0 1 0\n" "v 0 0 1\n" "v 1 0 1\n" "v 1 1 1\n" "v 0 1 1\n"
             "vt 0.5 0.5\n" "vn 0 0 1\n" "vfoo\n" "usemtl skin\n"
             "g body\n"
             "f 1/1/1 2/2/2 3/3/3\n"
             "f 5//1 6//1 7//1 8//1\r\n"
             "f\n");
    char mem1[512];
    std::strcpy(mem1, combined.c_str());
    EXPECT_EQ(callFn(AppendOBJ, part.c_str(), 100, mem1), 8);
    const std::string once =
        "f 101 102 103 \n"
        "g Arm_L\n"
        "v 0 0 0\n" "v 1 0 0\r\n" "v 1 1 0\n" "v 0 1 0\n" "v 0 0 1\n" "v 1 0 1\n" "v 1 1 1\n" "v 0 1 1\n"
        "g Arm_L\n"
        "f 101 102 103 \n"
        "f 105 106 107 108 \n"
        "f \n";
    EXPECT_EQ(readAll(combined), once);
    ASSERT_EQ(groupsList.size(), 1u);
    EXPECT_STREQ(groupsList[0].name, "Arm_L");
    EXPECT_EQ(groupsList[0].firstFace, 0);
    EXPECT_EQ(groupsList[0].endFace, 4);

    // A second part (no "g" line) continues the face count and grows the file at its end.
    const std::string cube = dir / "sub/Cube.part.obj";
    std::filesystem::create_directory(dir / "sub");
    writeAll(cube, "v 0 0 0\nv 1 0 0\nv 1 1 0\nf 1 2 3\nf 3 2 1\n");
    EXPECT_EQ(callFn(AppendOBJ, cube.c_str(), 8.9, mem1), 3);
    EXPECT_EQ(readAll(combined), once + "v 0 0 0\nv 1 0 0\nv 1 1 0\nf 9 10 11 \nf 11 10 9 \n");
    ASSERT_EQ(groupsList.size(), 2u);
    EXPECT_STREQ(groupsList[1].name, "Cube.part");
    EXPECT_EQ(groupsList[1].firstFace, 4);
    EXPECT_EQ(groupsList[1].endFace, 6);
    EXPECT_EQ(faceIndex, 6);

    // Failures change neither the file nor the list.
    EXPECT_EQ(callFn(AppendOBJ, nullptr, 0, mem1), -9);
    EXPECT_EQ(callFn(AppendOBJ, part.c_str(), 0, nullptr), -9);
    EXPECT_EQ(groupsList.size(), 2u);
    EXPECT_EQ(faceIndex, 6);
    EXPECT_EQ(readAll(combined), once + "v 0 0 0\nv 1 0 0\nv 1 1 0\nf 9 10 11 \nf 11 10 9 \n");
    clearGroupsList();
}

TEST(SplitOBJ, FilesNamedByVertexCountWithVerbatimLines) {
    TempDir dir;
    const std::string in = dir / "posed.obj";
    writeAll(in,
             "# posed\n"
             "v 1.0 0 0\r\n" "v 2 0 0\n" "v 3 0 0 0.5\n" "vt 0 0\n" "vn 0 0 1\n" "v 4 0 0\n" "v 5 0 0\n"
             "g b\n"
             "f 3/1/1 4/2/1 5/3/1\n"
             "f 1 2 3\n"
             "g a\n"
             "f 1 99 -2 2\n"  // indices that name no vertex line are skipped
             "g b\n"
             "f 1 2 3\n");
    std::string out = dir / "parts/x.obj";
    std::filesystem::create_directory(dir / "parts");
    EXPECT_EQ(callFn(SplitOBJ, in.c_str(), 0, out.data()), 0);
    EXPECT_EQ(listing(dir / "parts"), "2.obj 5.obj ");
    EXPECT_EQ(readAll(dir / "parts/2.obj"), "v 1.0 0 0\r\nv 2 0 0\n");
    EXPECT_EQ(readAll(dir / "parts/5.obj"), "v 1.0 0 0\r\nv 2 0 0\nv 3 0 0 0.5\nv 4 0 0\nv 5 0 0\n");
    // A second run never overwrites.
    EXPECT_EQ(LeanSplitOBJ(in.c_str(), out.data()), 0);
    EXPECT_EQ(LeanSplitOBJ(in.c_str(), out.data()), 0);
    EXPECT_EQ(listing(dir / "parts"), "2.obj 2_copy1.obj 2_copy2.obj 5.obj 5_copy1.obj 5_copy2.obj ");
    EXPECT_EQ(readAll(dir / "parts/5_copy2.obj"), readAll(dir / "parts/5.obj"));

    // Two groups of one count: the name sorting first gets the plain name. Index 0 gives the
    // placeholder line; faces before the first "g" join the first name met.
    TempDir d2;
    writeAll(d2 / "in.obj", "v 1 1 1\nv 2 2 2\nf 0 1\ng zz\ng aa\nf 2\nf 1\ng zzz\n");
    std::string out2 = d2 / "o";
    EXPECT_EQ(LeanSplitOBJ((d2 / "in.obj").c_str(), out2.data()), -2);  // group zzz has no face
    EXPECT_EQ(listing(d2.path), "2.obj 2_copy1.obj in.obj ");
    EXPECT_EQ(readAll(d2 / "2.obj"), "v 1 1 1\nv 2 2 2\n");                // aa
    EXPECT_EQ(readAll(d2 / "2_copy1.obj"), "#start of vector\nv 1 1 1\n");  // zz

    // Errors: no text, no group at all.
    EXPECT_EQ(callFn(SplitOBJ, nullptr, 0, out.data()), -2);
    EXPECT_EQ(callFn(SplitOBJ, in.c_str(), 0, nullptr), -2);
    TempDir d3;
    writeAll(d3 / "in.obj", "v 1 1 1\nf 1 1 1\n");
    std::string out3 = d3 / "o";
    EXPECT_EQ(LeanSplitOBJ((d3 / "in.obj").c_str(), out3.data()), 0);
    EXPECT_EQ(listing(d3.path), "in.obj ");
    // Vertex lines of any length are copied whole.
    const std::string longLine = "v 1 2 3" + std::string(70000, ' ') + "4";
    writeAll(d3 / "long.obj", longLine + "\nv 5 6 7\ng L\nf 2 1\n");
    EXPECT_EQ(LeanSplitOBJ((d3 / "long.obj").c_str(), out3.data()), 0);
    EXPECT_EQ(readAll(d3 / "2.obj"), longLine + "\nv 5 6 7\n");
}

TEST(SplitOBJtoVyx, VertexFilesNamedByGroup) {
    TempDir dir;
    const std::string in = dir / "posed.obj";
    writeAll(in,
             "v 1 2 3\nv -0.5 4 1e2\nv 7 8 9\nvt 1 1\nv 10 11 12\n"
             "g Body\nf 1/1 2/1 3/1\nf 3 2 1\n"
             "g Arm_L\nf 4 0 9\n"
             "g Empty\n");
    std::string out = dir / "o.Vyt";
    EXPECT_EQ(callFn(SplitOBJtoVyx, in.c_str(), 0, out.data()), 0);
    EXPECT_EQ(readAll(dir / "Body.Vyt"), vytFile({{1, 2, 3}, {-0.5f, 4, 100}, {7, 8, 9}}));
    EXPECT_EQ(readAll(dir / "Body.Vyt").substr(16, 12), std::string("\x3F\x80\0\0\x40\0\0\0\x40\x40\0\0", 12));
    EXPECT_EQ(readAll(dir / "Arm_L.Vyt"), vytFile({{10, 11, 12}}));
    EXPECT_EQ(readAll(dir / "Empty.Vyt"), vytFile({}));
    EXPECT_EQ(LeanSplitVyx(in.c_str(), out.data()), 0);
    EXPECT_EQ(listing(dir.path),
              "Arm_L.Vyt Arm_L_copy1.Vyt Body.Vyt Body_copy1.Vyt Empty.Vyt Empty_copy1.Vyt posed.obj ");

    // A name with "/" lands in a subfolder, which must exist.
    TempDir d2;
    writeAll(d2 / "in.obj", "v 1 1 1\ng sub/part\nf 1\n");
    std::string o2 = d2 / "x";
    EXPECT_EQ(LeanSplitVyx((d2 / "in.obj").c_str(), o2.data()), -3);
    std::filesystem::create_directory(d2 / "sub");
    EXPECT_EQ(LeanSplitVyx((d2 / "in.obj").c_str(), o2.data()), 0);
    EXPECT_EQ(readAll(d2 / "sub/part.Vyt"), vytFile({{1, 1, 1}}));
    EXPECT_EQ(callFn(SplitOBJtoVyx, nullptr, 0, o2.data()), -2);
}

// Faces that span the whole mesh in every group: the vertex sets must stay correct when they
// outgrow their bit sets and fall back to sorted lists (with many duplicates, descending order).
TEST(SplitOBJtoVyx, GroupsSpanningTheWholeMesh) {
    TempDir dir;
    const int n = 200000;
    std::string text;
    for (int i = 1; i < n; ++i) text += "v 1 1 1\n";
    text += "v 9 9 9\n";
    for (int g = 0; g < 100; ++g) text += "g g" + std::to_string(100 + g) + "\nf 1 " + std::to_string(n) + "\n";
    text += "g zz\nf " + std::to_string(n) + " 100 3\n";
    for (int f = 0; f < 5000; ++f) text += "f 2 3 1\n";
    text += "g g100\nf " + std::to_string(n) + "\n";  // continues the first group
    writeAll(dir / "wide.obj", text);
    std::string out = dir / "o";
    ASSERT_EQ(LeanSplitVyx((dir / "wide.obj").c_str(), out.data()), 0);
    for (int g = 0; g < 100; ++g)
        ASSERT_EQ(readAll(dir / ("g" + std::to_string(100 + g) + ".Vyt")), vytFile({{1, 1, 1}, {9, 9, 9}})) << g;
    EXPECT_EQ(readAll(dir / "zz.Vyt"), vytFile({{1, 1, 1}, {1, 1, 1}, {1, 1, 1}, {1, 1, 1}, {9, 9, 9}}));
}

TEST(SwapVertices, CubeTransferAndFailures) {
    TempDir dir;
    std::string newV;
    for (int i = 0; i < 8; ++i) newV += "v " + std::to_string(i) + " 5 5\n";
    std::string mesh = "# cube\nmtllib c.mtl\n";
    for (int i = 0; i < 8; ++i) mesh += "v 0 0 " + std::to_string(i) + "\n";
    std::string rest;
    for (int i = 0; i < 6; ++i) rest += "vt 0." + std::to_string(i) + " 0\n";
    rest += "g Cube\n\n";
    for (int i = 0; i < 6; ++i) rest += "f 1/1 2/2 3/3 " + std::to_string(i + 4) + "/4\r\n";
    mesh += rest + "#end\n";
    writeAll(dir / "cube.obj", mesh);
    writeAll(dir / "8.obj", newV);
    char mem1[512];
    std::strcpy(mem1, (dir / "cube.obj").c_str());
    EXPECT_EQ(callFn(SwapVertices, (dir / "8.obj").c_str(), 0, mem1), 0);
    EXPECT_EQ(readAll(dir / "8.obj"), newV + "mtllib c.mtl\n" + rest);
    EXPECT_EQ(readAll(dir / "cube.obj"), mesh);  // only read
    EXPECT_EQ(callFn(SwapVertices, (dir / "8.obj").c_str(), 0, mem1), 0);
    EXPECT_EQ(readAll(dir / "8.obj"), newV + "mtllib c.mtl\n" + rest + "mtllib c.mtl\n" + rest);

    // The counts are not compared.
    writeAll(dir / "7.obj", newV.substr(0, newV.rfind("v ")));
    EXPECT_EQ(LeanSwapVertsOBJ((dir / "7.obj").c_str(), mem1), 0);

    EXPECT_EQ(LeanSwapVertsOBJ((dir / "fresh.obj").c_str(), (dir / "missing.obj").c_str()), -20);
    EXPECT_TRUE(exists(dir / "fresh.obj"));
    EXPECT_EQ(readAll(dir / "fresh.obj"), "");
    writeAll(dir / "novert.obj", "# x\nvt 0 0\nf 1 2 3\n");
    EXPECT_EQ(LeanSwapVertsOBJ((dir / "fresh.obj").c_str(), (dir / "novert.obj").c_str()), -30);
    EXPECT_EQ(readAll(dir / "fresh.obj"), "vt 0 0\nf 1 2 3\n");
    EXPECT_EQ(callFn(SwapVertices, nullptr, 0, mem1), -2);
    EXPECT_EQ(callFn(SwapVertices, "x", 0, nullptr), -2);
}

TEST(SwapVertices, LeanSwapVertsRewritesOnlyMatchingMeshes) {
    TempDir dir;
    const std::string mesh = "# old\nv 0 0 0\nvt 1 1\nv 1 1 1\nf 1/1 2/1 1/1\n";
    writeAll(dir / "mesh.obj", mesh);
    writeAll(dir / "one.obj", "v 9 9 9\n");
    writeAll(dir / "none.obj", "# nothing\n");
    writeAll(dir / "onlyv.obj", "v 0 0 0\nv 1 1 1\n");
    writeAll(dir / "two.obj", "g x\nv 5 5 5\nv 6 6 6\r\n");
    const std::string m = dir / "mesh.obj";
    EXPECT_FALSE(LeanSwapVerts((dir / "one.obj").c_str(), m.c_str()));      // 1 against 2
    EXPECT_FALSE(LeanSwapVerts((dir / "none.obj").c_str(), m.c_str()));     // no vertex
    EXPECT_FALSE(LeanSwapVerts((dir / "missing").c_str(), m.c_str()));
    EXPECT_FALSE(LeanSwapVerts((dir / "two.obj").c_str(), (dir / "missing").c_str()));
    EXPECT_FALSE(LeanSwapVerts((dir / "two.obj").c_str(), (dir / "onlyv.obj").c_str()));  // nothing else
    EXPECT_EQ(readAll(m), mesh);
    EXPECT_EQ(readAll(dir / "onlyv.obj"), "v 0 0 0\nv 1 1 1\n");
    EXPECT_TRUE(LeanSwapVerts((dir / "two.obj").c_str(), m.c_str()));
    EXPECT_EQ(readAll(m), "# written by Kelvane plugin for Vandor\nv 5 5 5\nv 6 6 6\r\nvt 1 1\nf 1/1 2/1 1/1\n");
}

// The posing round's own invariant, on random parts: append them all, move every vertex,
// split both ways, transfer back, and each part must come back with its own lines and the
// moved positions.
TEST(PosingRound, RandomPartsRoundTrip) {
    std::mt19937 rng(20261121);
    for (int round = 0; round < 4; ++round) {
        TempDir dir;
        clearGroupsList();
        const int parts = 2 + int(rng() % 5);
        std::vector<std::string> partRest(static_cast<size_t>(parts));
        std::vector<int> counts;
        std::string combined = dir / "combined.obj";
        int offset = 0;
        for (int p = 0; p < parts; ++p) {
            int n;
            do n = 3 + int(rng() % 60);
            while (std::find(counts.begin(), counts.end(), n) != counts.end());
            counts.push_back(n);
            const bool groupFirst = rng() % 2;
            std::string text = "# part " + std::to_string(p) + "\n" + (groupFirst ? "g part\n" : ""), rest;
            for (int i = 0; i < n; ++i) {
                text += "v " + std::to_string(int(rng() % 100)) + "." + std::to_string(i) + " 1 -2\n";
                rest += "vt 0." + std::to_string(i) + " 0.5\nvn 0 1 0\n";
            }
            // Faces cover every vertex, in the three index forms.
            for (int i = 0; i + 2 < n + 2; i += 2) {
                int a = i % n + 1, b = (i + 1) % n + 1, c = (i + 2) % n + 1;
                switch (rng() % 3) {
                    case 0: rest += "f " + std::to_string(a) + " " + std::to_string(b) + " " + std::to_string(c) + "\n"; break;
                    case 1: rest += "f " + std::to_string(a) + "/1/1 " + std::to_string(b) + "/2/1 " + std::to_string(c) + "/3/1\n"; break;
                    default: rest += "f " + std::to_string(a) + "//1 " + std::to_string(b) + "//1 " + std::to_string(c) + "//1\n";
                }
            }
            const std::string path = dir / ("P" + std::to_string(p) + ".obj");
            writeAll(path, text + (groupFirst ? "" : "g part\n") + rest);
            partRest[size_t(p)] = "g part\n" + rest;
            int added = int(LeanAddGroupOBJ(path.c_str(), combined.data(), offset));
            ASSERT_EQ(added, n);
            offset += added;
        }
        ASSERT_EQ(groupsList.size(), size_t(parts));

        // Pose: every vertex line of the combined mesh gets new coordinates.
        std::string posed, line;
        std::istringstream lines(readAll(combined));
        std::vector<vertexS> all;
        int k = 0;
        while (std::getline(lines, line)) {
            if (line.rfind("v ", 0) == 0) {
                vertexS v{float(k) * 0.5f, float(rng() % 1000) / 8.0f, -float(k)};
                all.push_back(v);
                char buf[96];
                std::snprintf(buf, sizeof buf, "v %g %g %g", double(v.x), double(v.y), double(v.z));
                line = buf;
                ++k;
            }
            posed += line + "\n";
        }
        writeAll(dir / "posed.obj", posed);
        std::filesystem::create_directory(dir / "obj");
        std::filesystem::create_directory(dir / "vyt");
        std::string outObj = dir / "obj/", outVyt = dir / "vyt/";
        ASSERT_EQ(LeanSplitOBJ((dir / "posed.obj").c_str(), outObj.data()), 0);
        ASSERT_EQ(LeanSplitVyx((dir / "posed.obj").c_str(), outVyt.data()), 0);

        size_t first = 0;
        for (int p = 0; p < parts; ++p) {
            const size_t n = size_t(counts[size_t(p)]);
            std::string expectV;
            std::vector<vertexS> expectVyt(all.begin() + long(first), all.begin() + long(first + n));
            for (const vertexS& v : expectVyt) {
                char buf[96];
                std::snprintf(buf, sizeof buf, "v %g %g %g\n", double(v.x), double(v.y), double(v.z));
                expectV += buf;
            }
            first += n;
            const std::string vfile = dir / ("obj/" + std::to_string(n) + ".obj");
            ASSERT_EQ(readAll(vfile), expectV) << "part " << p;
            EXPECT_EQ(readAll(dir / ("vyt/P" + std::to_string(p) + ".Vyt")), vytFile(expectVyt));
            const std::string mesh = dir / ("P" + std::to_string(p) + ".obj");
            ASSERT_EQ(LeanSwapVertsOBJ(vfile.c_str(), mesh.c_str()), 0);
            EXPECT_EQ(readAll(vfile), expectV + partRest[size_t(p)]) << "part " << p;
        }
    }
    clearGroupsList();
}

// The line scanner finds line feeds 64 bytes at a time, the vertex reader has a fast path for
// short decimals: both against plain references on random input.
TEST(ObjRules, ScannerAndNumberFastPathsMatchReferences) {
    std::mt19937 rng(77);
    for (int round = 0; round < 300; ++round) {
        std::string buf(rng() % 300, 'x');
        for (char& c : buf) c = "ab\n\r v"[rng() % (round % 2 ? 6 : 3)];
        std::vector<std::string> want;
        for (size_t at = 0; at < buf.size();) {
            size_t nl = buf.find('\n', at);
            if (nl == std::string::npos) nl = buf.size();
            want.push_back(buf.substr(at, nl - at));
            at = nl + 1;
        }
        std::vector<std::string> got;
        kv::LineScanner lines(buf.data(), buf.size());
        for (std::string_view l; lines.next(l);) got.emplace_back(l);
        ASSERT_EQ(got, want) << round;
    }
    // Vertex lines read as a standard input stream reads "v x y z": random texts of number
    // characters, plain decimals near float halfway points, and the edges of the float range.
    auto streamRead = [](const std::string& line) {
        std::istringstream in(line);
        std::string word;
        float xyz[3] = {0, 0, 0};
        in >> word >> xyz[0] >> xyz[1] >> xyz[2];
        return std::array<uint32_t, 3>{std::bit_cast<uint32_t>(xyz[0]), std::bit_cast<uint32_t>(xyz[1]),
                                       std::bit_cast<uint32_t>(xyz[2])};
    };
    auto parsed = [](const std::string& line) {
        const vertexS v = obj::parseVertex(line);
        return std::array<uint32_t, 3>{std::bit_cast<uint32_t>(v.x), std::bit_cast<uint32_t>(v.y),
                                       std::bit_cast<uint32_t>(v.z)};
    };
    std::vector<std::string> lines = {
        "v 1e-50 2 3", "v 1e-40 -5 6", "v 1e39 2 3", "v -1e39 2 3", "v -inf 1 2", "v nan 1 2", "v 1.5e 1 2",
        "v +.5 1 2", "v 0x1p3 1 2", "v 5. .5 -.5", "v . 1 2", "v 1e+ 2 3", "v 1e-9999999999999 4 5",
        "v 1e9999999999999 4 5", "v 0.0000000000000000000000000000000000000000000001 7 8", "v --1 2 3",
        "v +-1 2 3", "v 1.5x 2 3", "v 3.4028235e38 3.4028236e38 1", "v 16777217 16777219 -16777217.0",
        "v 16777217.00000001 16777216.99999999 0.1", "v 123456789012345678901 1e-3 7E2", "v 1 2", "v"};
    for (int round = 0; round < 20000; ++round) {
        std::string line = "v";
        for (int c = 0; c < 3; ++c) {
            line += " \t"[rng() % 2];
            if (round % 2) {  // a plain decimal
                char text[64];
                std::snprintf(text, sizeof text, "%s%.*f", rng() % 2 ? "-" : "", int(rng() % 12),
                              double(uint64_t(rng()) * rng() % 100000000000000ull) / std::pow(10.0, 1 + int(rng() % 12)));
                line += text;
            } else {
                for (int n = int(rng() % 8); n >= 0; --n) line += "0123456789.eE+-x"[rng() % 16];
            }
        }
        lines.push_back(line + (rng() % 2 ? "\r" : ""));
    }
    for (const std::string& line : lines) ASSERT_EQ(parsed(line), streamRead(line)) << line;
}
