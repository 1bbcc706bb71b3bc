// The splits driven by the polygroup list, the face-count map and the unique-name check.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "kelvane/Kelvane4.h"
#include "leanOBJ.h"
#include "testutil.h"

using kvtest::be32;
using kvtest::callFn;
using kvtest::exists;
using kvtest::readAll;
using kvtest::TempDir;
using kvtest::writeAll;

namespace {

std::string listing(const std::string& dir) { return kvtest::run("LC_ALL=C ls " + dir + " | tr '\\n' ' '"); }

void setList(std::initializer_list<std::pair<const char*, int>> records) {
    clearGroupsList();
    for (auto [name, faces] : records) addToGroupsList(name, faces);
}

const char* kFourFaces =
    "v 1 0 0\n" "v 2 0 0\r\n" "v 3 0 0\n" "vt 0 0\n" "v 4 0 0\n" "v 5 0 0 0.5\n" "v 6 0 0\n"
    "g ignored\n"
    "f 1/1/1 2/1/1 3/1/1\n"
    "f 1 2 3\n"
    "# between\n"
    "f 3 4 5\n"
    "f 5//2 4//2 3//2\n";

}  // namespace

TEST(ListSplitOBJ, FaceRangesSharedVerticesAndCopies) {
    TempDir dir;
    writeAll(dir / "c.obj", kFourFaces);
    std::string out = dir / "out/x";
    std::filesystem::create_directory(dir / "out");
    char mem1[512];
    std::strcpy(mem1, out.c_str());

    clearGroupsList();
    EXPECT_EQ(callFn(ListSplitOBJtoOBJ, (dir / "c.obj").c_str(), 0, mem1), -5);
    setList({{"B", 2}, {"A", 2}});
    EXPECT_EQ(callFn(ListSplitOBJtoOBJ, (dir / "c.obj").c_str(), 0, mem1), 0);
    EXPECT_EQ(readAll(dir / "out/B.obj"), "v 1 0 0\nv 2 0 0\r\nv 3 0 0\n");  // both forms, each line once
    EXPECT_EQ(readAll(dir / "out/A.obj"), "v 3 0 0\nv 4 0 0\nv 5 0 0 0.5\n");  // vertex 3 shared
    EXPECT_EQ(LeanSplitOBJ((dir / "c.obj").c_str(), mem1), 0);  // the file's "g" lines play no part here
    EXPECT_EQ(ListSplitOBJ((dir / "c.obj").c_str(), mem1), 0);
    EXPECT_EQ(ListSplitOBJ((dir / "c.obj").c_str(), mem1), 0);
    EXPECT_EQ(listing(dir / "out"), "5.obj A.obj A_copy1.obj A_copy2.obj B.obj B_copy1.obj B_copy2.obj ");

    // A duplicate name gets no file but still takes its faces; faces past the last range go to
    // the last record.
    TempDir d2;
    writeAll(d2 / "c.obj", kFourFaces);
    std::string o2 = d2 / "x";
    setList({{"A", 1}, {"A", 1}, {"C", 1}});
    EXPECT_EQ(ListSplitOBJ((d2 / "c.obj").c_str(), o2.data()), 0);
    EXPECT_EQ(listing(d2.path), "A.obj C.obj c.obj ");
    EXPECT_EQ(readAll(d2 / "A.obj"), "v 1 0 0\nv 2 0 0\r\nv 3 0 0\n");
    EXPECT_EQ(readAll(d2 / "C.obj"), "v 3 0 0\nv 4 0 0\nv 5 0 0 0.5\n");

    // A record without faces takes the faces after it until its own end face is met again,
    // which never happens: the next record gets nothing (as the face-range walk has it).
    TempDir d4;
    writeAll(d4 / "c.obj", kFourFaces);
    std::string o4 = d4 / "x";
    setList({{"P", 2}, {"Q", 0}, {"R", 2}});
    EXPECT_EQ(ListSplitOBJ((d4 / "c.obj").c_str(), o4.data()), 0);
    EXPECT_EQ(readAll(d4 / "P.obj"), "v 1 0 0\nv 2 0 0\r\nv 3 0 0\n");
    EXPECT_EQ(readAll(d4 / "Q.obj"), "v 3 0 0\nv 4 0 0\nv 5 0 0 0.5\n");
    EXPECT_EQ(readAll(d4 / "R.obj"), "");

    // Name order: "a/sub" sorts before "b" and fails (no such subfolder), so "b" is not written.
    TempDir d3;
    writeAll(d3 / "c.obj", kFourFaces);
    std::string o3 = d3 / "x";
    setList({{"b", 2}, {"a/sub", 2}});
    EXPECT_EQ(ListSplitOBJ((d3 / "c.obj").c_str(), o3.data()), -3);
    EXPECT_FALSE(exists(d3 / "b.obj"));
    setList({{"b", 2}, {"../up", 2}});
    EXPECT_EQ(ListSplitOBJ((d3 / "c.obj").c_str(), o3.data()), -3);
    EXPECT_EQ(ListSplitOBJ((d3 / "missing.obj").c_str(), o3.data()), -1);
    EXPECT_EQ(callFn(ListSplitOBJtoOBJ, nullptr, 0, mem1), -2);
    EXPECT_EQ(callFn(ListSplitOBJtoOBJ, "x", 0, nullptr), -2);

    // Indices that name no vertex line (0, negative, past the end) are skipped.
    writeAll(d3 / "bad.obj", "v 1 1 1\nf 0 -1 1 7\n");
    setList({{"only", 1}});
    EXPECT_EQ(ListSplitOBJ((d3 / "bad.obj").c_str(), o3.data()), 0);
    EXPECT_EQ(readAll(d3 / "only.obj"), "v 1 1 1\n");
    clearGroupsList();
}

TEST(ListSplitVyx, VertexFilesByFaceRange) {
    TempDir dir;
    writeAll(dir / "c.obj", "v 1 2 3\nv 4 5 6\nv 7 8 9\nvt 1 1\nf 1/5 2/5 3/5\nf 3 2 1\nf 1 2 3\n");
    std::string out = dir / "x";
    setList({{"Tri", 3}, {"Empty", 2}});
    EXPECT_EQ(callFn(ListSplitOBJtoVyx, (dir / "c.obj").c_str(), 0, out.data()), 0);
    const std::string tri = readAll(dir / "Tri.Vyt");
    ASSERT_EQ(tri.size(), 52u);
    EXPECT_EQ(tri.substr(0, 16), be32(10001) + be32(52) + be32(3) + be32(0));
    EXPECT_EQ(tri.substr(16, 12), std::string("\x3F\x80\0\0\x40\0\0\0\x40\x40\0\0", 12));
    EXPECT_EQ(tri.substr(40, 12), std::string("\x40\xE0\0\0\x41\0\0\0\x41\x10\0\0", 12));
    EXPECT_EQ(readAll(dir / "Empty.Vyt"), be32(10001) + be32(16) + be32(0) + be32(0));
    EXPECT_EQ(ListSplitVyx((dir / "c.obj").c_str(), out.data()), 0);
    EXPECT_EQ(readAll(dir / "Tri_copy1.Vyt"), tri);

    clearGroupsList();
    EXPECT_EQ(ListSplitVyx((dir / "c.obj").c_str(), out.data()), -5);
    setList({{"T", 1}});
    EXPECT_EQ(ListSplitVyx((dir / "none.obj").c_str(), out.data()), -1);
    std::string nowhere = dir / "no/such/x";
    EXPECT_EQ(ListSplitVyx((dir / "c.obj").c_str(), nowhere.data()), -3);
    EXPECT_EQ(callFn(ListSplitOBJtoVyx, nullptr, 0, out.data()), -2);
    clearGroupsList();
}

TEST(FaceCounts, MapFromTheListWithDuplicates) {
    clearGroupsList();
    EXPECT_EQ(callFn(CreateFacesList), -5);
    EXPECT_EQ(callFn(GetFaces, "A"), -1);
    setList({{"A", 10}, {"B", 5}, {"A", 3}});
    EXPECT_EQ(callFn(GetFaces, "A"), -1);  // not built yet
    EXPECT_EQ(callFn(CreateFacesList), 0);
    EXPECT_EQ(callFn(GetFaces, "A"), 10);  // the first record's count is kept
    EXPECT_EQ(callFn(GetFaces, "B"), 5);
    EXPECT_EQ(callFn(GetFaces, "C"), -1);
    EXPECT_EQ(callFn(GetFaces, nullptr), -1);
    // An empty list leaves the map as it was; clearing the list empties it.
    groupsList.clear();
    EXPECT_EQ(callFn(CreateFacesList), -5);
    EXPECT_EQ(callFn(GetFaces, "B"), 5);
    callFn(GroupListClear);
    EXPECT_EQ(callFn(GetFaces, "B"), -1);
    EXPECT_TRUE(groupFacesList.empty());
}

TEST(NameCheck, HandsOutEachNameOnce) {
    callFn(ClearNameSet);
    char out[256];
    auto check = [&](const char* name) {
        std::strcpy(out, "?");
        EXPECT_EQ(callFn(CheckName, name, 0, out), 0);
        return std::string(out);
    };
    EXPECT_EQ(check("Arm"), "Arm");
    EXPECT_EQ(check("Arm"), "Arm_copy1");
    EXPECT_EQ(check("Arm"), "Arm_copy2");
    EXPECT_EQ(check("Arm_copy1"), "Arm_copy3");  // cut back to Arm_copy, 1 and 2 are taken
    EXPECT_EQ(check("hand_copycat"), "hand_copycat");
    EXPECT_EQ(check("hand_copycat"), "hand_copy1");
    EXPECT_EQ(check("arm"), "arm");  // case-sensitive
    EXPECT_EQ(nameSet.size(), 7u);
    callFn(ClearNameSet);
    EXPECT_EQ(check("Arm"), "Arm");
    EXPECT_EQ(callFn(CheckName, nullptr, 0, out), -1);
    callFn(ClearNameSet);
}

// On a mesh built by AppendOBJ, the file's groups and the list's records describe the same
// parts, so the list-driven and group-driven splits must write the same bytes.
TEST(ListSplit, AgreesWithTheGroupSplitOnAppendedMeshes) {
    std::mt19937 rng(4242);
    for (int round = 0; round < 4; ++round) {
        TempDir dir;
        clearGroupsList();
        std::string combined = dir / "combined.obj";
        std::vector<std::pair<std::string, size_t>> parts;  // name, vertex count
        int offset = 0;
        const int n = 1 + int(rng() % 6);
        for (int p = 0; p < n; ++p) {
            size_t verts;
            do verts = 1 + rng() % 50;
            while (std::any_of(parts.begin(), parts.end(), [&](auto& q) { return q.second == verts; }));
            std::string text = "g x\n";
            for (size_t i = 0; i < verts; ++i) text += "v " + std::to_string(rng() % 1000) + ".25 -1 " + std::to_string(i) + "\n";
            const size_t faces = 1 + rng() % 20;
            for (size_t f = 0; f < faces; ++f) {
                text += "f";
                for (int c = 0; c < 3 + int(rng() % 2); ++c) text += " " + std::to_string(1 + rng() % verts) + "/1/1";
                text += "\n";
            }
            // Every vertex in some face, so that both splits see the whole part.
            for (size_t i = 1; i <= verts; ++i) text += "f " + std::to_string(i) + "\n";
            const std::string name = "part" + std::to_string(rng() % 1000) + "_" + std::to_string(p);
            writeAll(dir / (name + ".obj"), text);
            const std::string path = dir / (name + ".obj");
            offset += int(LeanAddGroupOBJ(path.c_str(), combined.data(), offset));
            parts.emplace_back(name, verts);
        }
        for (const char* sub : {"list", "lean"}) std::filesystem::create_directory(dir / sub);
        std::string list = dir / "list/", lean = dir / "lean/";
        ASSERT_EQ(ListSplitOBJ(combined.c_str(), list.data()), 0);
        ASSERT_EQ(ListSplitVyx(combined.c_str(), list.data()), 0);
        ASSERT_EQ(LeanSplitOBJ(combined.c_str(), lean.data()), 0);
        ASSERT_EQ(LeanSplitVyx(combined.c_str(), lean.data()), 0);
        for (const auto& [name, verts] : parts) {
            const std::string listed = readAll(dir / ("list/" + name + ".obj"));
            EXPECT_EQ(std::count(listed.begin(), listed.end(), '\n'), long(verts)) << name;
            EXPECT_EQ(listed, readAll(dir / ("lean/" + std::to_string(verts) + ".obj"))) << name;
            EXPECT_EQ(readAll(dir / ("list/" + name + ".Vyt")), readAll(dir / ("lean/" + name + ".Vyt"))) << name;
        }
    }
    clearGroupsList();
}

// The splits scan large inputs on several threads, cut at line ends into chunks: every output
// must be the one a single scan gives, wherever the chunk borders fall. Random meshes with groups
// named again, faces before the first group, huge and empty groups, CR line ends and list
// records whose ranges overlap, run out early or are empty.
TEST(ListSplit, ChunkedScansMatchTheSingleScan) {
    std::mt19937 rng(2024);
    TempDir dir;
    auto splitAll = [&](const std::string& mesh, const std::string& out) {
        std::filesystem::create_directories(out);
        std::string base = out + "/";
        std::vector<char> mem1(base.begin(), base.end());
        mem1.push_back('\0');
        std::string all;  // the results (a group without faces ends a split with -2), then the files
        for (auto split : {LeanSplitOBJ, LeanSplitVyx, ListSplitOBJ, ListSplitVyx})
            all += std::to_string(split(mesh.c_str(), mem1.data())) + " ";
        for (const auto& e : std::filesystem::directory_iterator(out)) all += e.path().filename().string() + ":" + readAll(e.path()) + "|";
        std::filesystem::remove_all(out);
        return all;
    };
    for (int round = 0; round < 40; ++round) {
        std::string mesh;
        const char* eol = round % 3 ? "\n" : "\r\n";
        int vertices = 0, faces = 0;
        for (int line = 0, lines = 50 + int(rng() % 400); line < lines; ++line) {
            const auto kind = rng() % 10;
            if (kind < 4) {
                mesh += "v " + std::to_string(vertices++) + ".5 " + std::to_string(rng() % 100) + " -1" + eol;
            } else if (kind < 8 && vertices > 0) {
                mesh += "f";
                for (int k = 0; k < 3; ++k) mesh += " " + std::to_string(1 + rng() % vertices) + (k ? "/1" : "");
                mesh += eol;
                ++faces;
            } else if (kind == 8) {
                mesh += "g G" + std::to_string(rng() % 5) + eol;
            } else {
                mesh += "# comment" + std::string(eol);
            }
        }
        const std::string path = dir / "mesh.obj";
        writeAll(path, mesh);
        clearGroupsList();
        for (int r = 0; r < 5; ++r) {
            groupID g{};
            std::snprintf(g.name, sizeof g.name, "R%d", r);
            g.firstFace = 0;
            g.endFace = r == 4 ? faces + 5 : int32_t(rng() % (faces + 2)) - 1;
            groupsList.push_back(g);
        }
        obj::setScanThreads(1, 1);
        const std::string single = splitAll(path, dir / "one");
        for (unsigned threads : {2u, 3u, 7u}) {
            obj::setScanThreads(threads, 1 + rng() % 40);
            EXPECT_EQ(splitAll(path, dir / "many"), single) << "round " << round << ", " << threads << " threads";
        }
    }
    obj::setScanThreads(0, size_t(8) << 20);
    clearGroupsList();
}
