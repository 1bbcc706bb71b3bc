// Hostile inputs through every reader: each sound file cut at every offset, group names that
// leave the output folder, and paths no file can have. Every call gives one of its documented
// codes, leaves its input as it was when it fails and writes nothing outside the output folder.
// (Fields at their limits and arbitrary bytes are the fuzz harnesses' work.)
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "VyxOps.h"
#include "imagefiles.h"
#include "meshfiles.h"

using namespace kvtest;

namespace {

const std::vector<float> kSound = {0, -6, -9}, kBroken = {-1, -2, -3, -4, -5, -6, -9};

// Runs every PSD export on bytes as out/a.psd (with a sound second image out/b.psd where one is
// needed): a failure leaves a.psd whole and writes nothing, a rewrite is one byte longer.
void allPsdOperations(const Sandbox& box, const std::string& bytes, const std::vector<float>& codes) {
    const std::string a = box.out + "/a.psd", b = box.out + "/b.psd", gray = box.out + "/g.psd";
    const struct {
        KelvaneFn fn;
        double number;
        std::string mem1;
        bool rewrites;
    } ops[] = {{MakeStencilPSD, 0xFF0000, "", true},    {SwapColorsPSD, 0x00FF00, "", true},
               {RGBtoGrayscale, 128, gray, false},      {MergePSDfiles, 0x010203, b, true},
               {HealPSDfiles, 1, b, true},              {CreateThumbnail, 16, "", false}};
    for (const auto& op : ops) {
        writeAll(a, bytes);
        writeAll(b, uniform(120, 120, {9, 9, 9}).bytes());
        const float r = callFn(op.fn, a, op.number, op.mem1);
        EXPECT_TRUE(oneOf(r, codes)) << r;
        if (r != 0) {
            EXPECT_EQ(readAll(a), bytes);
            EXPECT_EQ(box.outputs().size(), 2u) << "a failed call wrote a file";
        } else if (op.rewrites) {
            EXPECT_EQ(readAll(a).size(), bytes.size() + 1);  // the repeated last byte
        }
        box.clearOut();
    }
}

// A Vyx mesh: three vertices, three colours, two faces, UVs in tiles 00 and 10, the end block.
struct Mesh {
    std::string bytes;
    size_t vertexAt = 32, colourAt = vertexAt + 52, faceAt = colourAt + 28, uvAt = faceAt + 48, endAt = uvAt + 80;
    Mesh() {
        VyxBuilder b;
        b.vertices({0, 1, 2, 3, 4, 5, 6, 7, 8}).colours({0x10203000, 0x40506000, 0x70809000}).faces({0, 1, 2, kTri, 2, 1, 0, kTri});
        bytes = b.uvs({0.5f, 0.5f, 0, 0, 1, 1, 0, 0, 1.5f, 0.5f, 0, 0, 1, 1, 0, 0}).end().bytes;
    }
};

std::string vertexFile(uint32_t n) {
    std::vector<float> xyz;
    for (uint32_t i = 0; i < 3 * n; ++i) xyz.push_back(-float(i));
    return vytFile(xyz);
}

bool isCount(float r) { return r >= 0 && r == float(int64_t(r)); }

struct VyxResults {
    float faceIDs, toOBJ, rgb, swap, tile, tiles;
};

// Every Vyx export on bytes as out/m.Vyx; the conversion takes the runs of the sound mesh in/runs.Vyx.
VyxResults allVyxOperations(const Sandbox& box, const std::string& bytes) {
    const std::string vyx = box.out + "/m.Vyx", obj = box.out + "/m.obj", rgb = box.out + "/m.rgb";
    if (!exists(box.in + "/runs.Vyx")) box.input("runs.Vyx", Mesh().bytes), box.input("p.Vyt", vertexFile(3));
    VyxResults r{};
    writeAll(vyx, bytes);
    r.faceIDs = callFn(getFaceIDs, vyx, 1);
    EXPECT_EQ(callFn(getFaceIDs, box.in + "/runs.Vyx", 1), 2);
    r.toOBJ = callFn(vyxtoOBJ, vyx, 0, obj);
    EXPECT_TRUE(r.toOBJ == 0 || r.toOBJ == -1760 || r.toOBJ > 0) << r.toOBJ;
    EXPECT_EQ(exists(obj), r.toOBJ != -1760);
    r.rgb = callFn(outMRGB, vyx, 0, rgb);
    EXPECT_TRUE(r.rgb == 0 || r.rgb == -1760) << r.rgb;
    EXPECT_EQ(exists(rgb), r.rgb == 0);
    std::filesystem::remove(obj);
    std::filesystem::remove(rgb);
    r.swap = callFn(SwapVertices_Vyx, box.in + "/p.Vyt", 0, vyx);
    EXPECT_TRUE(oneOf(r.swap, {0, -18, -301, -1760})) << r.swap;
    EXPECT_EQ(r.swap == 0 ? readAll(vyx).size() : 0, r.swap == 0 ? bytes.size() : 0);
    if (r.swap != 0) {
        EXPECT_EQ(readAll(vyx), bytes);
    }
    char tile[64] = {};
    writeAll(vyx, bytes);
    r.tile = callFn(GetUVTile, vyx.c_str(), 0, tile);
    EXPECT_TRUE(r.tile == -17 || isCount(r.tile)) << r.tile;
    r.tiles = callFn(GetUVsFromVyx, vyx.c_str(), 0, "");
    EXPECT_TRUE(r.tiles == -1760 || isCount(r.tiles)) << r.tiles;
    EXPECT_EQ(box.outputs().size(), 1 + (r.tiles > 0 ? size_t(r.tiles) : 0));  // out/m0.Vyx, ...
    box.clearOut();
    callFn(clearUVTileString);
    return r;
}

// The "v " lines of an OBJ text, and a placeholder line for index 0.
std::set<std::string> vertexLines(const std::string& text) {
    std::set<std::string> lines{"#start of vector"};
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (line.size() >= 2 && line[0] == 'v' && line[1] == ' ') lines.insert(line);
    return lines;
}

// Every output is a sound vertex file, or a vertex-line file of lines of the input.
void expectOutputsFrom(const Sandbox& box, const std::string& input) {
    const std::set<std::string> allowed = vertexLines(input);
    for (const auto& [name, bytes] : box.outputs()) {
        SCOPED_TRACE(name);
        if (name.ends_with(".Vyt")) {
            ASSERT_GE(bytes.size(), 16u);
            EXPECT_EQ(bytes.substr(4, 4), be32(uint32_t(bytes.size())));
            EXPECT_EQ(bytes.substr(8, 4), be32(uint32_t(bytes.size() - 16) / 12));
        } else {
            EXPECT_TRUE(bytes.empty() || bytes.back() == '\n');
            std::istringstream in(bytes);
            for (std::string line; std::getline(in, line);) EXPECT_TRUE(allowed.count(line)) << line;
        }
    }
}

const std::string kCombined =
    "# combined\nv 0 0 0\nv 1 0 0\nvt 0.5 0.5\nv 0 1 0\nvn 0 0 1\nv 1 1 0\n"
    "g left\nf 1/1 2/1 3/1\nf 2 4 3\ng right\nf 3 4 1\nusemtl x\n";

// A reader, the sound file it is given, and the checks on one prefix of it (cut == size: whole).
struct CutCase {
    const char* reader;
    std::string whole;
    std::function<void(const Sandbox&, const std::string& bytes, size_t cut, bool whole)> check;
};

const Mesh kMesh;
const std::string kPrj = prjHeader(2) + prjRecord(1, "rest") + prjRecord(2, "up") +
                         prjChunk(31, "first data file") + prjChunk(32, std::string(40, 'b'));

const std::vector<CutCase> kCutCases = {
    {"PSD image, every export", [] { Psd p = uniform(3, 4, {255, 0, 0}); p.resources = "res"; p.layers = "lay"; return p.bytes(); }(),
     [](const Sandbox& box, const std::string& bytes, size_t, bool whole) { allPsdOperations(box, bytes, whole ? kSound : kBroken); }},
    {"BMP image", makeBmp(10, 6),
     [](const Sandbox& box, const std::string& bytes, size_t, bool whole) {
         const std::string src = box.input("s.bmp", bytes), dst = box.out + "/c.bmp";
         CropBMP_SetWidth(nullptr, 4, nullptr, nullptr);
         const float r = callFn(CropBMPfile, src, 2, dst);
         EXPECT_EQ(r, whole ? 0 : -7);
         EXPECT_EQ(exists(dst), r == 0);
         box.clearOut();
         CropBMP_SetWidth(nullptr, 50, nullptr, nullptr);
     }},
    {"Vyx mesh, every export", kMesh.bytes,
     [](const Sandbox& box, const std::string& bytes, size_t cut, bool) {
         const VyxResults r = allVyxOperations(box, bytes);
         // Each operation needs its block whole, and nothing after it.
         EXPECT_EQ(r.faceIDs, cut >= kMesh.uvAt ? 2 : -1760);
         EXPECT_EQ(r.toOBJ, cut >= kMesh.uvAt ? 0 : -1760);
         EXPECT_EQ(r.rgb, cut >= kMesh.faceAt ? 0 : -1760);
         // A walk that ends at the end of the file has found nothing; a block whose tag is
         // there but whose records are cut is a read failure.
         EXPECT_EQ(r.swap, cut >= kMesh.colourAt ? 0 : cut >= 36 ? -1760 : -18);
         EXPECT_EQ(r.tile, cut >= kMesh.endAt ? 2 : cut >= kMesh.uvAt + 4 ? -17 : 0);
         EXPECT_EQ(r.tiles, cut >= kMesh.endAt ? 2 : cut >= kMesh.uvAt + 4 ? -1760 : 0);
     }},
    {"vertex file of a Vyx vertex swap", vertexFile(3),
     [](const Sandbox& box, const std::string& bytes, size_t, bool whole) {
         const std::string vyx = box.out + "/m.Vyx", vyt = box.input("p.Vyt", bytes);
         writeAll(vyx, kMesh.bytes);
         EXPECT_EQ(callFn(SwapVertices_Vyx, vyt, 0, vyx), whole ? 0 : -301);
         if (!whole) {
             EXPECT_EQ(readAll(vyx), kMesh.bytes);
         }
         box.clearOut();
     }},
    {"combined OBJ mesh, every OBJ export", kCombined,
     [](const Sandbox& box, const std::string& text, size_t, bool) {
         const std::string obj = box.input("c.obj", text), outPath = box.out + "/x";
         const std::string list = box.input("g.lst", listRecord("left", 0, 2) + listRecord("right", 2, 3));
         EXPECT_TRUE(oneOf(callFn(SplitOBJ, obj, 0, outPath), {0, -2}));  // -2: a group cut before its face
         EXPECT_EQ(callFn(SplitOBJtoVyx, obj, 0, outPath), 0);
         ASSERT_EQ(callFn(GroupListLoad, list), 0);
         EXPECT_EQ(callFn(ListSplitOBJtoOBJ, obj, 0, outPath), 0);
         EXPECT_EQ(callFn(ListSplitOBJtoVyx, obj, 0, outPath), 0);
         expectOutputsFrom(box, text);
         box.clearOut();
         // The append copies the vertex lines and counts them; the transfer appends the rest.
         callFn(GroupListClear);
         const size_t vertices = vertexLines(text).size() - 1;
         EXPECT_EQ(callFn(AppendOBJ, obj, 7, box.out + "/all.obj"), float(vertices));
         EXPECT_EQ(callFn(SwapVertices, box.out + "/v.obj", 0, obj), vertices ? 0 : -30);
         box.clearOut();
         callFn(GroupListClear);
     }},
    {"polygroup list file", listRecord(std::string(128, 'N'), 0, 2) + listRecord("b", 2, 3),
     [](const Sandbox& box, const std::string& bytes, size_t cut, bool) {
         const std::string obj = box.input("c.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2\nf 2 3\nf 3 1\nf 1 1\n");
         ASSERT_EQ(callFn(GroupListLoad, box.input("g.lst", bytes)), 0);
         // A short tail is one more record; its missing bytes read as zeros.
         EXPECT_EQ(callFn(GroupListSize), cut == 0 ? -1.f : float((cut + 135) / 136));
         char name[256];
         ASSERT_EQ(callFn(GroupListGetName, nullptr, 0, name), 0);
         EXPECT_EQ(std::string(name), cut == 0 ? "null" : std::string(std::min<size_t>(cut, 127), 'N'));
         EXPECT_EQ(callFn(ListSplitOBJtoVyx, obj, 0, box.out + "/"), cut == 0 ? -5 : 0);
         expectOutputsFrom(box, "");
         box.clearOut();
         callFn(GroupListClear);
     }},
    {"project file", kPrj,
     [](const Sandbox& box, const std::string& bytes, size_t cut, bool whole) {
         ASSERT_EQ(callFn(OpenPrjFile, box.input("p.prj", bytes), 0, box.out + "/x"), 0);
         char data[300];
         EXPECT_EQ(callFn(GetTPoseRef, "up", 0, data), cut >= 16 + 2 * 516 ? 2 : cut >= 16 + 516 ? -1 : -5);
         // A chunk is taken when its bytes and its padding byte are all there.
         std::map<std::string, std::string> want;
         if (cut >= 16 + 2 * 516 + 16 + 15 + 1) want["31X.dat"] = "first data file";
         if (whole) want["32X.dat"] = std::string(40, 'b');
         EXPECT_EQ(box.outputs(), want);
         box.clearOut();
         callFn(ClearTPoseList);
     }},
};

}  // namespace

TEST(Hostile, EveryReaderOnEveryCutOfASoundFile) {
    for (const CutCase& c : kCutCases) {
        SCOPED_TRACE(c.reader);
        Sandbox box;
        auto notInputs = [&] {
            auto files = box.outside();
            std::erase_if(files, [](const auto& kv) { return kv.first.starts_with("in"); });
            return files;
        };
        const auto before = notInputs();
        for (size_t cut = 0; cut <= c.whole.size(); ++cut) {
            SCOPED_TRACE(cut);
            c.check(box, c.whole.substr(0, cut), cut, cut == c.whole.size());
            if (::testing::Test::HasFatalFailure()) return;
        }
        EXPECT_EQ(notInputs(), before);
    }
}

// Group names that would leave the output folder ("..", absolute) give -3 and write nothing
// outside it; long names are cut to 127 bytes in the list.
TEST(Hostile, GroupNamesThatLeaveTheFolderOrAreTooLong) {
    Sandbox box;
    const std::string out = box.out + "/", mesh = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";
    const auto before = box.outside();
    for (const std::string& name : std::vector<std::string>{"..", "a/../../x", "../../../marker", box.root / "abs", "sub/../sub/p"}) {
        SCOPED_TRACE(name);
        const std::string obj = box.input("c.obj", mesh + "g " + name + "\nf 1 2 3\n");
        EXPECT_EQ(callFn(SplitOBJtoVyx, obj, 0, out), -3);
        ASSERT_EQ(callFn(GroupListLoad, box.input("g.lst", listRecord(name, 0, 1))), 0);
        EXPECT_EQ(callFn(ListSplitOBJtoOBJ, obj, 0, out), -3);
        EXPECT_EQ(callFn(ListSplitOBJtoVyx, obj, 0, out), -3);
        EXPECT_TRUE(box.outputs().empty());
    }
    std::filesystem::remove_all(box.in);
    std::filesystem::create_directory(box.in);
    EXPECT_EQ(box.outside(), before);
    // A 4096-byte name added to the list, or an appended part's file name, is cut to 127 bytes.
    callFn(GroupListClear);
    ASSERT_EQ(callFn(GroupListAdd, std::string(4096, 'L').c_str(), 1), 0);
    const std::string part = box.input(std::string(200, 'P') + ".obj", mesh + "g x\nf 1 2 3\n");
    EXPECT_EQ(callFn(AppendOBJ, part, 0, box.out + "/all.obj"), 3);
    char name[256] = {};
    for (auto [i, letter] : {std::pair{0, 'L'}, std::pair{1, 'P'}}) {
        ASSERT_EQ(callFn(GroupListGetName, nullptr, i, name), 0);
        EXPECT_EQ(std::string(name), std::string(127, letter));
    }
    EXPECT_NE(readAll(box.out + "/all.obj").find("g " + std::string(127, 'P') + "\n"), std::string::npos);
    callFn(GroupListClear);
}

// Paths no file can have (empty, a name beyond 255 bytes, 5000 bytes, a missing folder, a
// folder) through every export that reads one, and as the output of every writer.
TEST(Hostile, PathsNoFileCanHaveGiveTheirCodes) {
    Sandbox box;
    const std::string sound = box.input("sound.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\ng a\nf 1 2 3\n");
    std::filesystem::create_directory(box.out + "/folder");
    const std::string target = box.out + "/t", missing = "/nonexistent-kelvane-folder/" + std::string(100, 'z');
    const struct {
        KelvaneFn fn;
        bool badIsText;  // the bad path goes in text (else in memBlock1, with a sound text)
        float code;
    } readers[] = {{getFaceIDs, true, -1760}, {outMRGB, true, -1760},    {GetUVTile, true, -17},
                   {GetUVsFromVyx, true, -1760}, {GroupListLoad, true, -3}, {AppendOBJ, true, -1},
                   {SplitOBJ, true, -1},      {SplitOBJtoVyx, true, -1}, {SwapVertices, true, -10},
                   {SwapVertices, false, -20}, {OpenPrjFile, true, -17},  {AddDatFile, true, -1},
                   {CropBMPfile, true, -1760}, {SwapColorsPSD, true, -1}, {MakeStencilPSD, true, -1},
                   {RGBtoGrayscale, true, -1}, {CreateThumbnail, true, -1}, {FileDelete, true, -1},
                   {FileCopyTo, true, -1},    {FileRename, true, -1}};
    const auto before = box.tree();
    for (const std::string& path : {std::string(), box.in + "/" + std::string(300, 'x'), box.in + "/" + std::string(5000, 'y'), missing, box.in}) {
        SCOPED_TRACE(path.substr(0, 80) + " (" + std::to_string(path.size()) + " bytes)");
        for (const auto& c : readers) {
            if (c.fn == FileRename && path == box.in) continue;  // a folder may be renamed
            const std::string other = c.fn == SwapVertices ? (c.badIsText ? sound : box.out + "/v.obj") : target;
            EXPECT_EQ(c.badIsText ? callFn(c.fn, path, 16, other) : callFn(c.fn, other, 16, path), c.code);
            std::filesystem::remove(box.out + "/v.obj");  // SwapVertices creates its vertex file first
        }
        EXPECT_EQ(box.tree(), before);
    }
    for (const std::string& path : {box.out + "/" + std::string(300, 'x') + "/", box.out + "/" + std::string(5000, 'y'), missing, box.out + "/folder"}) {
        SCOPED_TRACE(path.substr(0, 80) + " (" + std::to_string(path.size()) + " bytes)");
        if (path != box.out + "/folder") {  // the splits write into the folder of their path
            EXPECT_EQ(callFn(SplitOBJ, sound, 0, path + "/"), -3);
            EXPECT_EQ(callFn(SplitOBJtoVyx, sound, 0, path + "/"), -3);
            callFn(GroupListAdd, "a", 1);
            EXPECT_EQ(callFn(ListSplitOBJtoOBJ, sound, 0, path + "/"), -3);
        }
        callFn(GroupListClear);
        EXPECT_EQ(callFn(AppendOBJ, sound, 0, path), -2);
        EXPECT_EQ(callFn(GroupListSize), -1);  // a failed append records nothing
        callFn(GroupListAdd, "a", 1);
        EXPECT_EQ(callFn(GroupListSave, path), -3);
        callFn(ClearTPoseList);
        callFn(AddTPoseRef, "r", 1, "d");
        EXPECT_EQ(callFn(WritePrjFile, path), -17);
        EXPECT_EQ(box.tree(), before);
    }
    callFn(GroupListClear);
    callFn(ClearTPoseList);
}
