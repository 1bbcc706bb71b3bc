// OBJ processing as a posing round uses it: the polygroup list, the append that builds the
// combined mesh, the splits of the posed mesh by group and by list, the vertex transfer back
// into the parts, the face-count map and the unique names.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "leanOBJ/indexset.h"
#include "leanOBJ/leanOBJ.h"
#include "leanOBJ/objtext.h"
#include "meshfiles.h"
#include "util/text.h"

using namespace kvtest;
using namespace std::string_literals;

namespace {

void setList(const std::vector<std::pair<const char*, int>>& records) {
    clearGroupsList();
    for (auto [name, faces] : records) addToGroupsList(name, faces);
}

std::vector<int32_t> faceIndices(std::string_view line) {
    std::vector<int32_t> out;
    std::string scratch;
    obj::forEachFaceIndex(line, scratch, [&](int32_t i) { out.push_back(i); });
    return out;
}

}  // namespace

TEST(ObjRules, LineKindsAndFaceIndices) {
    using obj::LineKind;
    for (auto [line, kind] : std::vector<std::pair<const char*, LineKind>>{
             {"v 1 2 3", LineKind::Vertex}, {"vt 0.5 0.5", LineKind::Other}, {" v 1 2 3", LineKind::Other},
             {"v", LineKind::Other}, {"fo 1 2", LineKind::Face}, {"g", LineKind::Group}, {"# c", LineKind::Comment}})
        EXPECT_EQ(obj::classify(line), kind) << line;
    using V = std::vector<int32_t>;
    for (auto [line, want] : std::vector<std::pair<const char*, V>>{
             {"f 12/40/7 3//1 9/1\r", {12, 3, 9}},
             {"f12 3", {2, 3}},  // the second character is skipped unchecked
             {"f 5 +6 -7 x 8", {5, 6, -7}},
             {"f 1.5 2", {1}},  // the read stops inside "1.5"
             {"f 4294967297 1", {}},
             {"f 3/1 12345678901/1 1/1", {3}},
             {"f -/1 3/1", {}},
             {"f /1  +4/1 2\t5/1 6", {4, 2, 5, 6}},
             {"f 2147483647 -2147483648", {2147483647, INT32_MIN}}, {"f 1 2 3x 4\r", {1, 2, 3}},
             {"f 12345678 123456789/2 -99999999 7\t8", {12345678, 123456789, -99999999, 7, 8}},
             {"f", {}}})
        EXPECT_EQ(faceIndices(line), want) << line;
}

// The vertex reader has a fast path for short decimals: against a standard input stream reading
// "v x y z", on edge cases and random decimals.
TEST(ObjRules, VertexReaderMatchesTheStreamReference) {
    std::mt19937 rng(77);
    // Each line holds three texts in a row: those the plain reader refuses ("1.2.3", ".", "-") stand
    // between plain ones.
    std::vector<std::string> texts = {"16777217", "16777219", "1.2.3", "0.1", "0.5", ".", "0.25", "0.75", "-",
                                      "-16777217.0", "16777217.00000001", "16777216.99999999",
                                      "0.1", "3.4028235e38", "1e-3", "0.000000000000000000001", "123456789012345678901",
                                      "+1.5", "-2e1", ".25", "abc", "1e-50", "1e-40", "1e39", "-1e39", "-inf", "nan",
                                      "1.5e", "+.5", "0x1p3", "5.", ".", "1e+", "1e-9999999999999", "1e9999999999999",
                                      "--1", "+-1", "1.5x", "3.4028236e38", "7E2", "1-2", "12345678.5", std::string(100, '0') + "1e-60",
                                      "0.1e40", "-0.01e41", "0.001e-44", "123456789012345678", "1234567890123456789",
                                      "12345678901234567890", "0.1234567890123456789", "-1234567890.1234567890", "9007199254740993.5",
                                      "1" + std::string(439, '0') + "e-400", "0." + std::string(500, '0') + "1e450"};
    for (int round = 0; round < 20000; ++round) {
        char text[64];
        std::snprintf(text, sizeof text, "%s%.*f", rng() % 2 ? "-" : "", int(rng() % 23),
                      double(uint64_t(rng()) * rng() % 100000000000000ull) / std::pow(10.0, 1 + int(rng() % 12)));
        texts.push_back(text);
    }
    std::string after;  // what follows the line in the file: its bytes play no part
    while (after.size() < 80) after += "\nv -1.25 .5 -7";
    const char* blanks[] = {" ", "\t", "\r", " \t", "\t\r ", "  ", "\v", "\f "};  // every blank a stream skips
    for (size_t i = 0; i < texts.size(); ++i) {
        const std::string& t = texts[i];
        const std::string line = "v" + std::string(blanks[i % 8]) + t + blanks[(i / 8 + 1) % 8] + texts[(i + 1) % texts.size()] +
                                 blanks[(i / 64 + 2) % 8] + texts[(i + 2) % texts.size()] + (t.size() % 2 ? "\r" : ""),
                          buffer = line + (i % 3 ? after : "9\n");
        std::istringstream in(line);
        std::string word;
        float want[3] = {0, 0, 0};
        in >> word >> want[0] >> want[1] >> want[2];
        const vertexS v = obj::parseVertex(std::string_view(buffer).substr(0, line.size()), buffer.data() + buffer.size());
        ASSERT_EQ((std::array{std::bit_cast<uint32_t>(v.x), std::bit_cast<uint32_t>(v.y), std::bit_cast<uint32_t>(v.z)}),
                  (std::array{std::bit_cast<uint32_t>(want[0]), std::bit_cast<uint32_t>(want[1]), std::bit_cast<uint32_t>(want[2])}))
            << line;
    }
}

// Index sets, as bit sets grown up and down across words, as lists (over their byte budget) and
// joined from two halves: every range, its ends and starts inside a word included, holds the
// indices a plain set holds.
TEST(ObjRules, IndexSetRangesMatchAPlainSet) {
    std::mt19937 rng(5);
    for (uint64_t budget : {uint64_t(1) << 20, uint64_t(24), uint64_t(0)})
        for (int round = 0; round < 60; ++round) {
            obj::IndexSet set, other;
            std::set<uint64_t> want;
            uint64_t left = budget;
            const uint64_t base = rng() % 300, span = 1 + rng() % 400;
            for (int k = 0, n = 1 + int(rng() % 20); k < n; ++k) {
                const uint64_t i = base + rng() % span;  // in random order: the sets grow both ways
                (k % 2 && round % 2 ? other : set).insert(i, left);
                want.insert(i);
            }
            set.absorb(other, left);
            set.finish();
            for (int q = 0; q < 20; ++q) {
                const uint64_t from = q == 0 ? *want.begin() : q == 1 ? *want.rbegin() : rng() % 800;
                const uint64_t to = q < 2 ? from + (q == 0 ? span : 0) : from + rng() % 400;
                const std::vector<uint64_t> expect(want.lower_bound(from), want.upper_bound(to));
                std::vector<uint64_t> got;
                set.forEach(from, to, [&](uint64_t i) { got.push_back(i); });
                ASSERT_EQ(got, expect) << "budget " << budget << ", round " << round << ", [" << from << ", " << to << "]";
            }
        }
}

TEST(GroupList, AddNameSaveLoad) {
    TempDir dir;
    clearGroupsList();
    EXPECT_EQ(callFn(GroupListSize), -1);
    EXPECT_EQ(callFn(GroupListSave, dir / "l.bin"), -1);
    EXPECT_EQ(callFn(GroupListAdd, "A", 0.9), -2);  // truncated to 0
    EXPECT_EQ(callFn(GroupListAdd, nullptr, std::nan("")), -2);
    EXPECT_EQ(callFn(GroupListAdd, "A", 10), 0);
    EXPECT_EQ(callFn(GroupListAdd, "B", 5.7), 0);
    EXPECT_EQ(faceIndex, 15);
    EXPECT_EQ(callFn(GroupListSize), 2);
    char out[256] = "x";
    for (auto [number, code, name] : std::vector<std::tuple<double, float, const char*>>{
             {1.9, 0, "B"}, {2, 0, "null"}, {-0.5, 0, "A"}, {-1, -1, "A"}, {std::nan(""), -1, "A"}}) {
        EXPECT_EQ(callFn(GroupListGetName, nullptr, number, out), code) << number;
        EXPECT_STREQ(out, name);
    }
    EXPECT_EQ(callFn(GroupListSave, nullptr), -9);
    EXPECT_EQ(callFn(GroupListSave, dir / "l.bin"), 0);
    EXPECT_EQ(readAll(dir / "l.bin"), listRecord("A", 0, 10) + listRecord("B", 10, 15));

    callFn(GroupListClear);
    EXPECT_EQ(faceIndex, 0);
    // A failed load still empties the list. (What a load reads is the fuzz harness's work.)
    EXPECT_EQ(callFn(GroupListAdd, "C", 4), 0);
    EXPECT_EQ(callFn(GroupListLoad, dir / "missing.bin"), -3);
    EXPECT_EQ(callFn(GroupListSize), -1);
    clearGroupsList();
}

TEST(AppendOBJ, RewritesGroupsAndFacesAcrossParts) {
    TempDir dir;
    clearGroupsList();
    const std::string part = dir / "Arm_L.obj", combined = dir / "combined.obj";
    writeAll(part, "# a part\nf 1 2 3\ng default\nv 0 0 0\nv 1 0 0\r\nv 1 1 0\nv 0 1 0\nvt 0.5 0.5\nvn 0 0 1\n"
                   "vfoo\nusemtl skin\ng body\nf 1/1/1 2/2/2 3/3/3\nf 3//1 4//1 1//1 2//1\r\nf\n");
    EXPECT_EQ(callFn(AppendOBJ, part, 100, combined), 4);
    const std::string once = "f 101 102 103 \ng Arm_L\nv 0 0 0\nv 1 0 0\r\nv 1 1 0\nv 0 1 0\n"
                             "g Arm_L\nf 101 102 103 \nf 103 104 101 102 \nf \n";
    EXPECT_EQ(readAll(combined), once);
    // A second part (no "g" line) continues the face count and grows the file at its end.
    std::filesystem::create_directory(dir / "sub");
    writeAll(dir / "sub/Cube.part.obj", "v 0 0 0\nv 1 0 0\nv 1 1 0\nf 1 2 3\nf 3 2 1\n");
    EXPECT_EQ(callFn(AppendOBJ, dir / "sub/Cube.part.obj", 4.9, combined), 3);
    EXPECT_EQ(readAll(combined), once + "v 0 0 0\nv 1 0 0\nv 1 1 0\nf 5 6 7 \nf 7 6 5 \n");
    EXPECT_EQ(faceIndex, 6);
    ASSERT_EQ(callFn(GroupListSave, dir / "l.bin"), 0);
    EXPECT_EQ(readAll(dir / "l.bin"), listRecord("Arm_L", 0, 4) + listRecord("Cube.part", 4, 6));
    // The indices are shifted in 64 bits, by offsets at the 32-bit limits.
    writeAll(part, "v 0 0 0\ng a\nf 1 -1 2147483647 4294967295\n");
    EXPECT_EQ(callFn(AppendOBJ, part, 2147483647.0, dir / "big.obj"), 1);
    EXPECT_EQ(callFn(AppendOBJ, part, -2147483648.0, dir / "big.obj"), 1);
    EXPECT_EQ(readAll(dir / "big.obj"), "v 0 0 0\ng Arm_L\nf 2147483648 2147483646 4294967294 \n"
                                        "v 0 0 0\ng Arm_L\nf -2147483647 -2147483649 -1 \n");
    clearGroupsList();
}

// The lean split: one file of vertex lines per group, named by its vertex count, never overwritten.
TEST(SplitOBJ, FilesNamedByVertexCountWithVerbatimLines) {
    TempDir dir;
    const std::string in = dir / "posed.obj", out = dir / "parts/x.obj";
    writeAll(in, "# posed\nv 1.0 0 0\r\nv 2 0 0\nv 3 0 0 0.5\nvt 0 0\nvn 0 0 1\nv 4 0 0\nv 5 0 0\n"
                 "g b\nf 3/1/1 4/2/1 5/3/1\nf 1 2 3\ng a\nf 1 99 -2 2\ng b\nf 1 2 3\n");
    std::filesystem::create_directory(dir / "parts");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(callFn(SplitOBJ, in, 0, out), 0);
    EXPECT_EQ(listing(dir / "parts"), "2.obj 2_copy1.obj 2_copy2.obj 5.obj 5_copy1.obj 5_copy2.obj ");
    EXPECT_EQ(readAll(dir / "parts/2.obj"), "v 1.0 0 0\r\nv 2 0 0\n");
    EXPECT_EQ(readAll(dir / "parts/5_copy2.obj"), "v 1.0 0 0\r\nv 2 0 0\nv 3 0 0 0.5\nv 4 0 0\nv 5 0 0\n");

    // Two groups of one count: the name sorting first gets the plain name. Index 0 gives the
    // placeholder line; faces before the first "g" join the first name met.
    TempDir d2;
    writeAll(d2 / "in.obj", "v 1 1 1\nv 2 2 2\nf 0 1\ng zz\ng aa\nf 2\nf 1\ng zzz\n");
    EXPECT_EQ(callFn(SplitOBJ, d2 / "in.obj", 0, d2 / "o"), -2);  // group zzz has no face
    EXPECT_EQ(listing(d2.path), "2.obj 2_copy1.obj in.obj ");
    EXPECT_EQ(readAll(d2 / "2.obj"), "v 1 1 1\nv 2 2 2\n");                // aa
    EXPECT_EQ(readAll(d2 / "2_copy1.obj"), "#start of vector\nv 1 1 1\n");  // zz
    // No group: nothing written. Vertex lines of any length are copied whole.
    const std::string longLine = "v 1 2 3" + std::string(70000, ' ') + "4";
    writeAll(d2 / "none.obj", "v 1 1 1\nf 1 1 1\n");
    writeAll(d2 / "long.obj", longLine + "\nv 5 6 7\ng L\nf 2 1\n");
    TempDir d3;
    EXPECT_EQ(callFn(SplitOBJ, d2 / "none.obj", 0, d3 / "o"), 0);
    EXPECT_EQ(callFn(SplitOBJ, d2 / "long.obj", 0, d3 / "o"), 0);
    EXPECT_EQ(listing(d3.path), "2.obj ");
    EXPECT_EQ(readAll(d3 / "2.obj"), longLine + "\nv 5 6 7\n");
}

TEST(SplitOBJtoVyx, VertexFilesNamedByGroup) {
    TempDir dir;
    const std::string in = dir / "posed.obj";
    writeAll(in, "v 1 2 3\nv -0.5 4 1e2\nv 7 8 9\nvt 1 1\nv 10 11 12\n"
                 "g Body\nf 1/1 2/1 3/1\nf 3 2 1\ng Arm_L\nf 4 0 9\ng Empty\n");
    EXPECT_EQ(callFn(SplitOBJtoVyx, in, 0, dir / "o.Vyt"), 0);
    EXPECT_EQ(readAll(dir / "Body.Vyt"), vytFile({1, 2, 3, -0.5f, 4, 100, 7, 8, 9}));
    EXPECT_EQ(readAll(dir / "Body.Vyt").substr(16, 12), "\x3F\x80\0\0\x40\0\0\0\x40\x40\0\0"s);
    EXPECT_EQ(readAll(dir / "Arm_L.Vyt"), vytFile({10, 11, 12}));
    EXPECT_EQ(readAll(dir / "Empty.Vyt"), vytFile({}));
    EXPECT_EQ(callFn(SplitOBJtoVyx, in, 0, dir / "o.Vyt"), 0);
    EXPECT_EQ(listing(dir.path), "Arm_L.Vyt Arm_L_copy1.Vyt Body.Vyt Body_copy1.Vyt Empty.Vyt Empty_copy1.Vyt posed.obj ");
    // A name with "/" lands in a subfolder, which must exist; a NUL byte is in no file name.
    writeAll(in, "v 1 1 1\ng sub/part\nf 1\n");
    EXPECT_EQ(callFn(SplitOBJtoVyx, in, 0, dir / "x"), -3);
    std::filesystem::create_directory(dir / "sub");
    EXPECT_EQ(callFn(SplitOBJtoVyx, in, 0, dir / "x"), 0);
    EXPECT_EQ(readAll(dir / "sub/part.Vyt"), vytFile({1, 1, 1}));
    for (const std::string& text : {"v 0 0 0\nv 1 1 1\ng a\0b\nf 1 2\n"s, "v 0 0 0\ng \0\nf 1\n"s}) {
        writeAll(in, text);
        EXPECT_EQ(callFn(SplitOBJtoVyx, in, 0, dir / "x"), -3);
    }
    EXPECT_FALSE(exists(dir / "a"));
}

const char* kFourFaces =
    "v 1 0 0\nv 2 0 0\r\nv 3 0 0\nvt 0 0\nv 4 0 0\nv 5 0 0 0.5\nv 6 0 0\ng ignored\n"
    "f 1/1/1 2/1/1 3/1/1\nf 1 2 3\n# between\nf 3 4 5\nf 5//2 4//2 3//2\n";

// The list split: the records' face ranges, not the file's groups, choose the faces.
TEST(ListSplit, FaceRangesSharedVerticesAndNames) {
    const std::string v123 = "v 1 0 0\nv 2 0 0\r\nv 3 0 0\n", v345 = "v 3 0 0\nv 4 0 0\nv 5 0 0 0.5\n";
    // The list's records, the result, files and their text, the folder's listing afterwards.
    const std::tuple<std::vector<std::pair<const char*, int>>, float, std::vector<std::pair<std::string, std::string>>, const char*> cases[] = {
        {{{"B", 2}, {"A", 2}}, 0, {{"B.obj", v123}, {"A.obj", v345}}, "A.obj B.obj c.obj "},
        // A duplicate name gets no file but takes its faces; the last record takes what is left.
        {{{"A", 1}, {"A", 1}, {"D", 1}}, 0, {{"A.obj", v123}, {"D.obj", v345}}, "A.obj D.obj c.obj "},
        // A record without faces takes the faces after it: the next record gets nothing.
        {{{"P", 2}, {"Q", 0}, {"R", 2}}, 0, {{"P.obj", v123}, {"Q.obj", v345}, {"R.obj", ""}}, "P.obj Q.obj R.obj c.obj "},
        // "a/sub" sorts before "b" and fails (no such folder): "b" is not written.
        {{{"b", 2}, {"a/sub", 2}}, -3, {}, "c.obj "},
        {{{"b", 2}, {"../up", 2}}, -3, {}, "c.obj "},
        {{}, -5, {}, "c.obj "},
    };
    for (const auto& [records, code, files, names] : cases) {
        TempDir dir;
        writeAll(dir / "c.obj", kFourFaces);
        setList(records);
        EXPECT_EQ(callFn(ListSplitOBJtoOBJ, dir / "c.obj", 0, dir / "x"), code);
        for (const auto& [name, text] : files) EXPECT_EQ(readAll(dir / name), text) << name;
        EXPECT_EQ(listing(dir.path), names);
    }
    TempDir dir;
    writeAll(dir / "c.obj", "v 1 2 3\nv 4 5 6\nv 7 8 9\nvt 1 1\nf 1/5 2/5 3/5\nf 3 0 -1 7 2 1\nf 1 2 3\n");
    setList({{"Tri", 3}, {"Empty", 2}});
    EXPECT_EQ(callFn(ListSplitOBJtoVyx, dir / "c.obj", 0, dir / "x"), 0);
    EXPECT_EQ(readAll(dir / "Tri.Vyt"), vytFile({1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(readAll(dir / "Empty.Vyt"), vytFile({}));
    EXPECT_EQ(callFn(ListSplitOBJtoVyx, dir / "c.obj", 0, dir / "x"), 0);
    EXPECT_EQ(readAll(dir / "Tri_copy1.Vyt"), readAll(dir / "Tri.Vyt"));
    for (KelvaneFn split : {ListSplitOBJtoVyx, ListSplitOBJtoOBJ}) EXPECT_EQ(callFn(split, dir / "none.obj", 0, dir / "x"), -1);
    clearGroupsList();
}

TEST(ListSplit, FaceCountsAndUniqueNames) {
    clearGroupsList();
    EXPECT_EQ(callFn(CreateFacesList), -5);
    setList({{"A", 10}, {"B", 5}, {"A", 3}});
    EXPECT_EQ(callFn(GetFaces, "A"), -1);  // not built yet
    EXPECT_EQ(callFn(CreateFacesList), 0);
    for (auto [name, faces] : {std::pair{"A", 10}, {"B", 5}, {"C", -1}}) EXPECT_EQ(callFn(GetFaces, name), faces) << name;  // the first A
    groupsList.clear();
    EXPECT_EQ(callFn(CreateFacesList), -5);  // an empty list leaves the map as it was
    EXPECT_EQ(callFn(GetFaces, "B"), 5);
    callFn(GroupListClear);
    EXPECT_EQ(callFn(GetFaces, "B"), -1);

    callFn(ClearNameSet);
    char out[256];
    for (auto [name, unique] : std::vector<std::pair<const char*, const char*>>{
             {"Arm", "Arm"}, {"Arm", "Arm_copy1"}, {"Arm", "Arm_copy2"}, {"Arm_copy1", "Arm_copy3"},
             {"hand_copycat", "hand_copycat"}, {"hand_copycat", "hand_copy1"}, {"arm", "arm"}}) {
        EXPECT_EQ(callFn(CheckName, name, 0, out), 0);
        EXPECT_STREQ(out, unique);
    }
    callFn(ClearNameSet);
    EXPECT_EQ(callFn(CheckName, "Arm", 0, out), 0);
    EXPECT_STREQ(out, "Arm");
    callFn(ClearNameSet);
}

TEST(SwapVertices, TransfersThePosedVerticesIntoThePart) {
    TempDir dir;
    std::string newV, mesh = "# cube\nmtllib c.mtl\n", rest;
    for (int i = 0; i < 8; ++i) newV += "v " + std::to_string(i) + " 5 5\n", mesh += "v 0 0 " + std::to_string(i) + "\n";
    for (int i = 0; i < 6; ++i) rest += "vt 0." + std::to_string(i) + " 0\n";
    rest += "g Cube\n\n";
    for (int i = 0; i < 6; ++i) rest += "f 1/1 2/2 3/3 " + std::to_string(i + 4) + "/4\r\n";
    mesh += rest + "#end\n";
    writeAll(dir / "cube.obj", mesh);
    writeAll(dir / "8.obj", newV);
    EXPECT_EQ(callFn(SwapVertices, dir / "8.obj", 0, dir / "cube.obj"), 0);
    EXPECT_EQ(readAll(dir / "8.obj"), newV + "mtllib c.mtl\n" + rest);
    EXPECT_EQ(readAll(dir / "cube.obj"), mesh);  // only read
    writeAll(dir / "7.obj", newV.substr(0, newV.rfind("v ")));  // the counts are not compared
    EXPECT_EQ(callFn(SwapVertices, dir / "7.obj", 0, dir / "cube.obj"), 0);
    EXPECT_EQ(callFn(SwapVertices, dir / "fresh.obj", 0, dir / "missing.obj"), -20);
    EXPECT_EQ(readAll(dir / "fresh.obj"), "");
    writeAll(dir / "novert.obj", "# x\nvt 0 0\nf 1 2 3\n");
    EXPECT_EQ(callFn(SwapVertices, dir / "fresh.obj", 0, dir / "novert.obj"), -30);
    EXPECT_EQ(readAll(dir / "fresh.obj"), "vt 0 0\nf 1 2 3\n");

    // The in-place variant rewrites a mesh only when the vertex counts match.
    const std::string m = dir / "mesh.obj", part = "# old\nv 0 0 0\nvt 1 1\nv 1 1 1\nf 1/1 2/1 1/1\n";
    writeAll(m, part);
    writeAll(dir / "two.obj", "g x\nv 5 5 5\nv 6 6 6\r\n");
    for (auto [vertices, target] : {std::pair{dir / "8.obj", m}, {dir / "novert.obj", m}, {dir / "two.obj", dir / "missing"}})
        EXPECT_FALSE(LeanSwapVerts(vertices.c_str(), target.c_str())) << vertices;
    EXPECT_EQ(readAll(m), part);
    EXPECT_TRUE(LeanSwapVerts((dir / "two.obj").c_str(), m.c_str()));
    EXPECT_EQ(readAll(m), "# written by Kelvane plugin for Vandor\nv 5 5 5\nv 6 6 6\r\nvt 1 1\nf 1/1 2/1 1/1\n");
}

// The splits scan large inputs on several threads, cut at line ends into chunks: every output
// must be the one a single scan gives, wherever the chunk borders and a list split's face
// blocks fall. Random meshes with groups named again, faces before the first group, CR line ends
// and list records whose ranges overlap, run out early or are empty.
TEST(ListSplit, ChunkedScansMatchTheSingleScan) {
    std::mt19937 rng(2024);
    TempDir dir;
    using Split = double (*)(const char*, char*, const obj::ScanOptions&);
    auto splitAll = [&](const std::string& mesh, const std::string& out, const obj::ScanOptions& options) {
        std::filesystem::create_directories(out);
        std::string all;  // the results (a group without faces ends a split with -2), then the files
        std::string outPath = out + "/";
        for (Split split : {LeanSplitOBJ, LeanSplitVyx, ListSplitOBJ, ListSplitVyx})
            all += std::to_string(split(mesh.c_str(), outPath.data(), options)) + " ";
        for (const auto& e : std::filesystem::directory_iterator(out)) all += e.path().filename().string() + ":" + readAll(e.path().string()) + "|";
        std::filesystem::remove_all(out);
        return all;
    };
    for (int round = 0; round < 20; ++round) {  // fuzz_obj and fuzz_grouplist cut many more
        std::string mesh;
        const char* eol = round % 3 ? "\n" : "\r\n";
        int vertices = 0, faces = 0;
        for (int line = 0, lines = 50 + int(rng() % 400); line < lines; ++line) {
            const auto kind = rng() % 10;
            if (kind < 4) {
                mesh += "v " + std::to_string(vertices++) + ".5 " + std::to_string(rng() % 100) + " -1" + eol;
            } else if (kind < 8 && vertices > 0) {
                for (int k = 0; k < 3; ++k) mesh += (k ? " " : "f ") + std::to_string(1 + rng() % vertices) + (k ? "/1" : "");
                mesh += eol, ++faces;
            } else {
                mesh += (kind == 8 ? "g G" + std::to_string(rng() % 5) : std::string("# comment")) + eol;
            }
        }
        writeAll(dir / "mesh.obj", mesh);
        clearGroupsList();
        for (int r = 0; r < 5; ++r) {
            groupID g{};
            std::snprintf(g.name, sizeof g.name, "R%d", r);
            g.endFace = r == 4 ? faces + 5 : int32_t(rng() % (faces + 2)) - 1;
            groupsList.push_back(g);
        }
        const std::string single = splitAll(dir / "mesh.obj", dir / "one", {.threads = 1, .minChunk = 1});
        for (unsigned threads : {2u, 7u}) {
            const obj::ScanOptions options{threads, 1 + rng() % 40, int64_t(1 + rng() % 8)};
            EXPECT_EQ(splitAll(dir / "mesh.obj", dir / "many", options), single) << "round " << round << ", " << threads << " threads";
        }
    }
    clearGroupsList();
}

// Groups whose faces each span the whole vertex range would take more room as bit sets than a
// split allows (a quarter of the file and 1 MiB): the later sets become lists, with the same files.
TEST(SplitOBJ, IndexSetsOverTheirBudgetBecomeLists) {
    TempDir dir;
    constexpr int kVertices = 100000, kGroups = 150;
    std::string mesh;
    for (int i = 1; i <= kVertices; ++i) mesh += "v " + std::to_string(i) + " 0 0\n";
    std::multiset<std::string> want, got;
    for (int g = 0; g < kGroups; ++g) {
        const std::string a = std::to_string(1 + g), b = std::to_string(kVertices - g);
        mesh += "g G" + a + "\nf " + a + " " + b + " " + a + "\n";
        want.insert("v " + a + " 0 0\nv " + b + " 0 0\n");
    }
    writeAll(dir / "mesh.obj", mesh);
    std::filesystem::create_directories(dir / "out");
    ASSERT_EQ(callFn(SplitOBJ, dir / "mesh.obj", 0, dir / "out/"), 0);
    for (const auto& e : std::filesystem::directory_iterator(dir / "out")) got.insert(readAll(e.path().string()));
    EXPECT_EQ(got, want);
}
