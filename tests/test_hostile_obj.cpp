// Hostile OBJ text and polygroup list files through every OBJ export: every cut of a combined
// mesh, indices outside the mesh, a 10 MB line, NUL bytes, CRLF ends, a last line without its
// end, and group names that would leave the output folder.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "hostile.h"
#include "leanOBJ.h"

using namespace kvtest;

namespace {

const std::string kCombined =
    "# combined\n"
    "v 0 0 0\nv 1 0 0\nvt 0.5 0.5\nv 0 1 0\nvn 0 0 1\nv 1 1 0\n"
    "g left\nf 1/1 2/1 3/1\nf 2 4 3\n"
    "g right\nf 3 4 1\nusemtl x\n";

// The "v " lines of text, each once.
std::set<std::string> vertexLines(const std::string& text) {
    std::set<std::string> lines{"#start of vector"};
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (line.size() >= 2 && line[0] == 'v' && line[1] == ' ') lines.insert(line);
    return lines;
}

size_t countVertexLines(const std::string& text) { return vertexLines(text).size() - 1; }

// Every output file is a vertex-line file whose lines are among allowed, or a sound vertex file.
void expectOutputsFrom(const Sandbox& box, const std::set<std::string>& allowed) {
    for (const auto& [name, bytes] : box.outputs()) {
        SCOPED_TRACE(name);
        if (name.size() >= 4 && name.compare(name.size() - 4, 4, ".Vyt") == 0) {
            ASSERT_GE(bytes.size(), 16u);
            const uint32_t count = uint32_t(static_cast<unsigned char>(bytes[8])) << 24 | uint32_t(static_cast<unsigned char>(bytes[9])) << 16 |
                                   uint32_t(static_cast<unsigned char>(bytes[10])) << 8 | static_cast<unsigned char>(bytes[11]);
            EXPECT_EQ(bytes.size(), 16 + 12 * size_t(count));
            EXPECT_EQ(bytes.substr(4, 4), be32(uint32_t(bytes.size())));
        } else {
            EXPECT_TRUE(bytes.empty() || bytes.back() == '\n');  // empty: a polygroup without faces
            std::istringstream in(bytes);
            for (std::string line; std::getline(in, line);) EXPECT_TRUE(allowed.count(line)) << line;
        }
    }
}

void expectOutputsFrom(const Sandbox& box, const std::string& input) { expectOutputsFrom(box, vertexLines(input)); }

// A polygroup list file record.
std::string record(const std::string& name, int32_t first, int32_t end) {
    std::string r = name.substr(0, 128);
    r.resize(128, '\0');
    return r + be32(uint32_t(first)) + be32(uint32_t(end));
}

float load(const std::string& listFile) { return callFn(GroupListLoad, listFile.c_str()); }

}  // namespace

// Every prefix of a combined mesh through the splits, the append and the vertex transfer.
TEST(HostileObj, CombinedMeshCutAtEveryOffset) {
    Sandbox box;
    const std::string list = box.input("groups.lst", record("left", 0, 2) + record("right", 2, 3));
    const std::string outPath = box.out + "/x";
    box.input("c.obj", kCombined);  // as the last cut leaves it
    const auto before = box.outside();
    for (size_t cut = 0; cut <= kCombined.size(); ++cut) {
        const std::string text = kCombined.substr(0, cut);
        SCOPED_TRACE(text);
        const std::string obj = box.input("c.obj", text);
        const float lean = callFn(SplitOBJ, obj.c_str(), 0, outPath.c_str());
        // -2: a group line is cut before its first face.
        EXPECT_TRUE(lean == 0 || lean == -2) << lean;
        EXPECT_EQ(callFn(SplitOBJtoVyx, obj.c_str(), 0, outPath.c_str()), 0);
        ASSERT_EQ(load(list), 0);
        EXPECT_EQ(callFn(ListSplitOBJtoOBJ, obj.c_str(), 0, outPath.c_str()), 0);
        EXPECT_EQ(callFn(ListSplitOBJtoVyx, obj.c_str(), 0, outPath.c_str()), 0);
        expectOutputsFrom(box, text);
        box.clearOut();

        // The append copies the vertex lines and counts them; the transfer appends the rest.
        callFn(GroupListClear, nullptr);
        const std::string combined = box.out + "/all.obj", vertices = box.out + "/v.obj";
        EXPECT_EQ(callFn(AppendOBJ, obj.c_str(), 7, combined.c_str()), float(countVertexLines(text)));
        EXPECT_EQ(readAll(combined).size() > 0, text.find("v ") != std::string::npos || text.find("\nf") != std::string::npos ||
                                                    text.find("\ng") != std::string::npos);
        EXPECT_EQ(callFn(SwapVertices, vertices.c_str(), 0, obj.c_str()), countVertexLines(text) ? 0 : -30);
        box.clearOut();
    }
    callFn(GroupListClear, nullptr);
    EXPECT_EQ(box.outside(), before);
}

// Indices 0, negative, at and beyond the 32-bit limits, and numbers that do not parse.
TEST(HostileObj, FaceIndicesOutsideTheMesh) {
    Sandbox box;
    const std::string text =
        "v 0 0 0\nv 1 0 0\nv 0 1 0\n"
        "g a\nf 1 2 3\n"
        "g b\nf 2 -1 0 5 2147483647 -2147483648 -2147483649 3\n"
        "g c\nf 3 4294967295 1\nf 2 99999999999999999999 1\nf x 1\n";
    const std::string obj = box.input("c.obj", text), outPath = box.out + "/";
    const auto before = box.outside();

    // Indices that name no vertex are skipped; 0 names the placeholder of the lean split; reading
    // stops at the first number that does not fit 32 bits.
    ASSERT_EQ(callFn(SplitOBJ, obj.c_str(), 0, outPath.c_str()), 0);
    EXPECT_EQ(box.outputs(), (std::map<std::string, std::string>{{"3.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\n"},
                                                                  {"2.obj", "#start of vector\nv 1 0 0\n"},
                                                                  {"2_copy1.obj", "v 1 0 0\nv 0 1 0\n"}}));
    box.clearOut();
    ASSERT_EQ(callFn(SplitOBJtoVyx, obj.c_str(), 0, outPath.c_str()), 0);
    auto files = box.outputs();
    ASSERT_EQ(files.size(), 3u);
    EXPECT_EQ(files["b.Vyt"], be32(10001) + be32(28) + be32(1) + be32(0) + f32(1) + f32(0) + f32(0));
    EXPECT_EQ(files["c.Vyt"].size(), 16u + 24u);
    box.clearOut();

    // The list split reads the same faces by range: a = face 0, b = face 1, c = faces 2 to 4.
    const std::string list = box.input("g.lst", record("a", 0, 1) + record("b", 1, 2) + record("c", 2, 5));
    ASSERT_EQ(load(list), 0);
    ASSERT_EQ(callFn(ListSplitOBJtoOBJ, obj.c_str(), 0, outPath.c_str()), 0);
    files = box.outputs();
    EXPECT_EQ(files["b.obj"], "v 1 0 0\n");
    EXPECT_EQ(files["c.obj"], "v 1 0 0\nv 0 1 0\n");
    box.clearOut();
    ASSERT_EQ(callFn(ListSplitOBJtoVyx, obj.c_str(), 0, outPath.c_str()), 0);
    EXPECT_EQ(box.outputs()["b.Vyt"], be32(10001) + be32(28) + be32(1) + be32(0) + f32(1) + f32(0) + f32(0));
    box.clearOut();
    std::remove(list.c_str());

    // The append shifts every index read, in 64 bits, by offsets at the 32-bit limits.
    callFn(GroupListClear, nullptr);
    const std::string combined = box.out + "/all.obj";
    EXPECT_EQ(callFn(AppendOBJ, obj.c_str(), 2147483647.0, combined.c_str()), 3);
    EXPECT_EQ(callFn(AppendOBJ, obj.c_str(), -2147483648.0, combined.c_str()), 3);
    const std::string all = readAll(combined);
    EXPECT_NE(all.find("f 2147483648 2147483649 2147483650 \n"), std::string::npos) << all;
    EXPECT_NE(all.find("f 2147483649 2147483646 2147483647 2147483652 4294967294 -1 \n"), std::string::npos) << all;
    EXPECT_NE(all.find("f -2147483647 -2147483646 -2147483645 \n"), std::string::npos) << all;
    EXPECT_EQ(callFn(GroupListSize, nullptr), 2);
    callFn(GroupListClear, nullptr);
    box.clearOut();
    EXPECT_EQ(box.outside(), before);
}

// One 10 MB line of each kind (vertex, face, group name, other), NUL bytes, CRLF line ends and
// a last line without its end; each export in a child whose memory growth is measured.
TEST(HostileObj, LongLinesNulBytesAndLineEnds) {
    Sandbox box;
    // 10 MB; 1 MB under the sanitizers, whose unoptimised build takes seconds per 10 MB call and
    // whose checks do not depend on the length (the optimised run keeps the full size).
    const size_t tenMB = size_t(kUnderAsan ? 1 : 10) << 20;
    static const char kNulText[] = "v 0 0 0\0junk\nv 1\0 0 0\nv 0 1 0\ng a\0b\nf 1 2\0 3\n\0\0\nf 3 2 1\ng a\nf 2 3 1\n";
    std::string longFace = "f";
    while (longFace.size() < tenMB) longFace += " 1 2 3";
    struct Case {
        const char* what;
        std::string text;
    };
    const std::vector<Case> cases = {
        {"long vertex line", "v 1 2 " + std::string(tenMB, '3') + "\nv 0 0 0\nv 1 1 1\ng a\nf 1 2 3\n"},
        {"long face line", "v 0 0 0\nv 1 0 0\nv 0 1 0\ng a\n" + longFace + "\n"},
        {"long group line", "v 0 0 0\nv 1 0 0\nv 0 1 0\ng " + std::string(tenMB, 'n') + "\nf 1 2 3\n"},
        {"long other line", "v 0 0 0\nv 1 0 0\nv 0 1 0\ng a\n#" + std::string(tenMB, ' ') + "\nf 1 2 3"},
        {"one long line without an end", "v" + std::string(tenMB, ' ')},
        {"NUL bytes", std::string(kNulText, sizeof kNulText - 1)},
        {"CRLF ends", "v 0 0 0\r\nv 1 0 0\r\nv 0 1 0\r\ng a\r\nf 1 2 3\r\ng b\r\nf 3/1 2/2 1/3\r\n"},
        {"CR only", "v 0 0 0\rv 1 0 0\rg a\rf 1 2\r"},
        {"no line ends at all", "f 1 2 3"},
        {"only line ends", std::string(1000, '\n')},
    };
    const std::string list = box.input("g.lst", record("a", 0, 1) + record("b", 1, 100));
    const std::string outPath = box.out + "/";
    const std::string obj = box.in + "/c.obj";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        writeAll(obj, c.text);
        const auto before = box.outside();
        const std::set<std::string> allowed = vertexLines(c.text);
        const float vertices = float(allowed.size() - 1);
        const std::set<std::string>& allowedLines = allowed;
        auto check = [&](const char* name, const std::function<float()>& fn, std::initializer_list<float> codes) {
            SCOPED_TRACE(name);
            const Measured m = inChild(fn);
            ASSERT_TRUE(m.ok) << "no report from the child";
            EXPECT_TRUE(std::find(codes.begin(), codes.end(), m.result) != codes.end()) << m.result;
            if (!kUnderAsan) {
                EXPECT_LE(m.growthKiB, memoryAllowanceKiB(c.text.size()));
            }
            if (std::string(name).find("Split") != std::string::npos) expectOutputsFrom(box, allowedLines);
            box.clearOut();
            EXPECT_EQ(box.outside(), before);
        };
        // -2 for a group without faces; -3 for a name no file can have (10 MB).
        check("SplitOBJ", [&] { return callFn(SplitOBJ, obj.c_str(), 0, outPath.c_str()); }, {0, -2});
        check("SplitOBJtoVyx", [&] { return callFn(SplitOBJtoVyx, obj.c_str(), 0, outPath.c_str()); }, {0, -3});
        check("ListSplitOBJtoOBJ", [&] { load(list); return callFn(ListSplitOBJtoOBJ, obj.c_str(), 0, outPath.c_str()); }, {0});
        check("ListSplitOBJtoVyx", [&] { load(list); return callFn(ListSplitOBJtoVyx, obj.c_str(), 0, outPath.c_str()); }, {0});
        const std::string combined = box.out + "/all.obj";
        check("AppendOBJ", [&] { return callFn(AppendOBJ, obj.c_str(), 3, combined.c_str()); }, {vertices});
        check("SwapVertices", [&] { return callFn(SwapVertices, combined.c_str(), 0, obj.c_str()); }, {vertices > 0 ? 0.f : -30.f});
    }
}

// Group names that would leave the output folder ("..", absolute) give -3 and write nothing
// outside it; very long names are cut (list) or refused (file names of the system's limit).
TEST(HostileObj, GroupNamesThatLeaveTheFolderOrAreTooLong) {
    Sandbox box;
    const std::string outPath = box.out + "/";
    const std::string mesh = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";
    const std::string absolute = box.root / "abs";
    const std::vector<std::string> escaping = {"..", "../x", "a/../../x", "../../../marker", absolute, "/" + std::string(200, 'z')};
    callFn(GroupListClear, nullptr);
    for (const std::string& name : escaping) {
        SCOPED_TRACE(name);
        const std::string obj = box.input("c.obj", mesh + "g " + name + "\nf 1 2 3\n");
        const std::string list = box.input("g.lst", record(name, 0, 1));
        const auto before = box.outside();
        EXPECT_EQ(callFn(SplitOBJtoVyx, obj.c_str(), 0, outPath.c_str()), -3);
        ASSERT_EQ(load(list), 0);
        EXPECT_EQ(callFn(ListSplitOBJtoOBJ, obj.c_str(), 0, outPath.c_str()), -3);
        EXPECT_EQ(callFn(ListSplitOBJtoVyx, obj.c_str(), 0, outPath.c_str()), -3);
        // The lean split names its files by vertex count: the name plays no part.
        EXPECT_EQ(callFn(SplitOBJ, obj.c_str(), 0, outPath.c_str()), 0);
        EXPECT_EQ(box.outputs(), (std::map<std::string, std::string>{{"3.obj", mesh}}));
        box.clearOut();
        EXPECT_EQ(box.outside(), before);
    }

    // A name inside the folder, through a sub-folder that exists, is written there.
    std::filesystem::create_directory(box.out + "/sub");
    const std::string obj = box.input("c.obj", mesh + "g sub/../sub/p\nf 1 2 3\n");
    EXPECT_EQ(callFn(SplitOBJtoVyx, obj.c_str(), 0, outPath.c_str()), -3);  // any ".." is refused
    box.input("c.obj", mesh + "g sub/p\nf 1 2 3\n");
    EXPECT_EQ(callFn(SplitOBJtoVyx, obj.c_str(), 0, outPath.c_str()), 0);
    EXPECT_EQ(readAll(box.out + "/sub/p.Vyt").size(), 16u + 36u);
    box.clearOut();

    // 4096-byte names: a file name that long cannot be created (-3); in the list it is cut to 127
    // bytes, on load as on add, and that name can be written.
    const std::string longName(4096, 'L');
    box.input("c.obj", mesh + "g " + longName + "\nf 1 2 3\n");
    const std::string part = box.input(std::string(200, 'P') + ".obj", mesh + "g x\nf 1 2 3\n");
    const auto before = box.outside();
    EXPECT_EQ(callFn(SplitOBJtoVyx, obj.c_str(), 0, outPath.c_str()), -3);
    EXPECT_TRUE(box.outputs().empty());
    callFn(GroupListClear, nullptr);
    ASSERT_EQ(callFn(GroupListAdd, longName.c_str(), 1), 0);
    char name[4200] = {};
    ASSERT_EQ(callFn(GroupListGetName, nullptr, 0, name), 0);
    EXPECT_EQ(std::string(name), longName.substr(0, 127));
    EXPECT_EQ(callFn(ListSplitOBJtoVyx, obj.c_str(), 0, outPath.c_str()), 0);
    EXPECT_EQ(box.outputs().count(longName.substr(0, 127) + ".Vyt"), 1u);
    box.clearOut();
    // The appended part's group name is its file name, cut the same way.
    callFn(GroupListClear, nullptr);
    EXPECT_EQ(callFn(AppendOBJ, part.c_str(), 0, (box.out + "/all.obj").c_str()), 3);
    ASSERT_EQ(callFn(GroupListGetName, nullptr, 0, name), 0);
    EXPECT_EQ(std::string(name), std::string(127, 'P'));
    EXPECT_NE(readAll(box.out + "/all.obj").find("g " + std::string(127, 'P') + "\n"), std::string::npos);
    box.clearOut();
    callFn(GroupListClear, nullptr);
    EXPECT_EQ(box.outside(), before);
}

// The polygroup list file cut at every offset, names that fill the whole field, and face ranges
// at the 32-bit limits; a list file of 10 MB loads within a small multiple of its size.
TEST(HostileObj, GroupListFileCutFullAndAtLimits) {
    Sandbox box;
    const std::string full = record(std::string(128, 'N'), 0, 2) + record("b", 2, 3);
    const std::string obj = box.input("c.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2\nf 2 3\nf 3 1\nf 1 1\n");
    const std::string outPath = box.out + "/";
    char name[256];
    for (size_t cut = 0; cut <= full.size(); ++cut) {
        SCOPED_TRACE(cut);
        ASSERT_EQ(load(box.input("g.lst", full.substr(0, cut))), 0);
        // A short tail is one more record; its missing bytes read as zeros.
        EXPECT_EQ(callFn(GroupListSize, nullptr), cut == 0 ? -1.f : float((cut + 135) / 136));
        ASSERT_EQ(callFn(GroupListGetName, nullptr, 0, name), 0);
        EXPECT_EQ(std::string(name), cut == 0 ? "null" : std::string(std::min<size_t>(cut, 127), 'N'));
        const float r = callFn(ListSplitOBJtoVyx, obj.c_str(), 0, outPath.c_str());
        EXPECT_EQ(r, cut == 0 ? -5 : 0);
        expectOutputsFrom(box, "");
        box.clearOut();
    }
    for (int32_t first : {INT32_MIN, -1, 0, 2, INT32_MAX})
        for (int32_t end : {INT32_MIN, -1, 0, 1, INT32_MAX}) {
            SCOPED_TRACE(std::to_string(first) + " " + std::to_string(end));
            ASSERT_EQ(load(box.input("g.lst", record("a", first, end) + record("b", end, first))), 0);
            EXPECT_EQ(callFn(ListSplitOBJtoOBJ, obj.c_str(), 0, outPath.c_str()), 0);
            EXPECT_EQ(callFn(CreateFacesList, nullptr), 0);
            // The count is a 32-bit signed word: the difference wraps.
            EXPECT_EQ(callFn(GetFaces, "a"), float(int32_t(uint32_t(end) - uint32_t(first))));
            expectOutputsFrom(box, readAll(obj));
            box.clearOut();
        }
    std::string big;
    for (size_t i = 0; big.size() < (size_t(10) << 20); ++i) big += record("g" + std::to_string(i % 1000), int32_t(i), int32_t(i + 1));
    const std::string bigList = box.input("big.lst", big);
    const Measured m = inChild([&] { return load(bigList) == 0 ? callFn(GroupListSize, nullptr) : -1.f; });
    ASSERT_TRUE(m.ok);
    EXPECT_EQ(m.result, float(big.size() / 136));
    if (!kUnderAsan) {
        EXPECT_LE(m.growthKiB, memoryAllowanceKiB(big.size()));
    }
    callFn(GroupListClear, nullptr);
}
