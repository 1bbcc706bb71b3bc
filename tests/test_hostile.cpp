// Hostile inputs through every reader: each sound file cut at every offset, group names that
// leave the output folder, and paths no file can have. Every call gives one of its documented
// codes, leaves its input as it was when it fails and writes nothing outside the output folder.
// (Fields at their limits and arbitrary bytes are the fuzz harnesses' work.)
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <tuple>
#include <string>
#include <vector>

#include "VyxOps.h"
#include "imagefiles.h"
#include "meshfiles.h"

using namespace kvtest;

namespace {

const std::vector<float> kSound = {0, -6, -9}, kBroken = {-1, -2, -3, -4, -5, -6, -9};

// Runs every PSD export on bytes as out/a.psd (with a sound second image out/b.psd where one is
// needed): a failure leaves a.psd whole and writes nothing.
void allPsdOperations(const Sandbox& box, const std::string& bytes, const std::vector<float>& codes) {
    const std::string a = box.out + "/a.psd", b = box.out + "/b.psd";
    const std::tuple<KelvaneFn, double, std::string> ops[] = {
        {MakeStencilPSD, 0xFF0000, ""}, {SwapColorsPSD, 0x00FF00, ""}, {RGBtoGrayscale, 128, box.out + "/g.psd"},
        {MergePSDfiles, 0x010203, b},   {HealPSDfiles, 1, b},           {CreateThumbnail, 16, ""}};
    for (const auto& [fn, number, mem1] : ops) {
        writeAll(a, bytes);
        writeAll(b, uniform(120, 120, {9, 9, 9}).bytes());
        const float r = callFn(fn, a, number, mem1);
        EXPECT_TRUE(oneOf(r, codes)) << r;
        if (r != 0) {
            EXPECT_EQ(readAll(a), bytes);
            EXPECT_EQ(box.outputs().size(), 2u) << "a failed call wrote a file";
        }
        box.clearOut();
    }
}

// A Vyx mesh: three vertices, three colours, two faces, UVs in tiles 00 and 10, the end block;
// and where its colour, face, UV and end blocks start.
const std::string kMesh =
    VyxBuilder().vertices({0, 1, 2, 3, 4, 5, 6, 7, 8}).colours({0x10203000, 0x40506000, 0x70809000}).faces({0, 1, 2, kTri, 2, 1, 0, kTri})
        .uvs({0.5f, 0.5f, 0, 0, 1, 1, 0, 0, 1.5f, 0.5f, 0, 0, 1, 1, 0, 0}).end().bytes;
constexpr size_t kColourAt = 32 + 52, kFaceAt = kColourAt + 28, kUvAt = kFaceAt + 48, kEndAt = kUvAt + 80;

// Three vertices, as a vertex file.
const std::string kVertices = vytFile({0, -1, -2, -3, -4, -5, -6, -7, -8});

// Every vertex file written is sound: its length and count words agree with its size.
void expectSoundVertexFiles(const Sandbox& box) {
    for (const auto& [name, bytes] : box.outputs())
        EXPECT_TRUE(!name.ends_with(".Vyt") || bytes.substr(4, 8) == be32(uint32_t(bytes.size())) + be32(uint32_t(bytes.size() - 16) / 12)) << name;
}

const std::string kCombined =
    "# combined\nv 0 0 0\nv 1 0 0\nvt 0.5 0.5\nv 0 1 0\nvn 0 0 1\nv 1 1 0\n"
    "g left\nf 1/1 2/1 3/1\nf 2 4 3\ng right\nf 3 4 1\nusemtl x\n";

// A reader, the sound file it is given, and the checks on one prefix of it (cut == size: whole).
struct CutCase {
    const char* name;  // the test's
    const char* reader;
    std::string whole;
    std::function<void(const Sandbox&, const std::string& bytes, size_t cut, bool whole)> check;
};

const std::string kPrj = prjHeader(2) + prjRecord(1, "rest") + prjRecord(2, "up") +
                         prjChunk(31, "first data file") + prjChunk(32, std::string(40, 'b'));

const std::vector<CutCase> kCutCases = {
    {"Psd", "PSD image, every export", [] { Psd p = uniform(3, 4, {255, 0, 0}); p.resources = "res"; p.layers = "lay"; return p.bytes(); }(),
     [](const Sandbox& box, const std::string& bytes, size_t, bool whole) { allPsdOperations(box, bytes, whole ? kSound : kBroken); }},
    {"Bmp", "BMP image", makeBmp(10, 6),
     [](const Sandbox& box, const std::string& bytes, size_t, bool whole) {
         CropBMP_SetWidth(nullptr, 4, nullptr, nullptr);
         EXPECT_EQ(callFn(CropBMPfile, box.input("s.bmp", bytes), 2, box.out + "/c.bmp"), whole ? 0 : -7);
         EXPECT_EQ(box.outputs().size(), size_t(whole));
     }},
    {"Vyx", "Vyx mesh, every export", kMesh,
     [](const Sandbox& box, const std::string& bytes, size_t cut, bool) {
         // Each operation needs its block whole, and nothing after it. A walk that ends at the end
         // of the file has found nothing; a block whose tag is there but whose records are cut is
         // a read failure. The conversion takes the runs of the sound mesh; failures write nothing.
         const std::string vyx = box.out + "/m.Vyx", runs = box.input("runs.Vyx", kMesh), vyt = box.input("p.Vyt", kVertices);
         writeAll(vyx, bytes);
         EXPECT_EQ(callFn(getFaceIDs, vyx, 1), cut >= kUvAt ? 2 : -1760);
         EXPECT_EQ(callFn(getFaceIDs, runs, 1), 2);
         EXPECT_EQ(callFn(vyxtoOBJ, vyx, 0, box.out + "/m.obj"), cut >= kUvAt ? 0 : -1760);
         EXPECT_EQ(callFn(outMRGB, vyx, 0, box.out + "/m.rgb"), cut >= kFaceAt ? 0 : -1760);
         const float swapped = callFn(SwapVertices_Vyx, vyt, 0, vyx);
         EXPECT_EQ(swapped, cut >= kColourAt ? 0 : cut >= 36 ? -1760 : -18);
         EXPECT_EQ(readAll(vyx).size(), bytes.size());
         if (swapped != 0) { EXPECT_EQ(readAll(vyx), bytes); }
         writeAll(vyx, bytes);
         char tile[64] = {};
         const float tiles = cut >= kEndAt ? 2 : cut >= kUvAt + 4 ? -17 : 0;
         EXPECT_EQ(callFn(GetUVTile, vyx.c_str(), 0, tile), tiles);
         EXPECT_EQ(callFn(GetUVsFromVyx, vyx), tiles == -17 ? -1760 : tiles);
         EXPECT_EQ(box.outputs().size(), 1 + size_t(cut >= kUvAt) + size_t(cut >= kFaceAt) + size_t(std::max(tiles, 0.f)));
     }},
    {"VertexFile", "vertex file of a Vyx vertex swap", kVertices,
     [](const Sandbox& box, const std::string& bytes, size_t, bool whole) {
         const std::string vyx = box.out + "/m.Vyx", vyt = box.input("p.Vyt", bytes);
         writeAll(vyx, kMesh);
         EXPECT_EQ(callFn(SwapVertices_Vyx, vyt, 0, vyx), whole ? 0 : -301);
         if (!whole) { EXPECT_EQ(readAll(vyx), kMesh); }
     }},
    {"CombinedObj", "combined OBJ mesh, every OBJ export", kCombined,
     [](const Sandbox& box, const std::string& text, size_t, bool) {
         const std::string obj = box.input("c.obj", text), outPath = box.out + "/x";
         const std::string list = box.input("g.lst", listRecord("left", 0, 2) + listRecord("right", 2, 3));
         EXPECT_TRUE(oneOf(callFn(SplitOBJ, obj, 0, outPath), {0, -2}));  // -2: a group cut before its face
         EXPECT_EQ(callFn(SplitOBJtoVyx, obj, 0, outPath), 0);
         ASSERT_EQ(callFn(GroupListLoad, list), 0);
         EXPECT_EQ(callFn(ListSplitOBJtoOBJ, obj, 0, outPath), 0);
         EXPECT_EQ(callFn(ListSplitOBJtoVyx, obj, 0, outPath), 0);
         expectSoundVertexFiles(box);
         box.clearOut();
         // The append copies the vertex lines and counts them; the transfer appends the rest.
         callFn(GroupListClear);
         size_t vertices = 0;
         for (size_t at = 0; (at = text.find("\nv ", at)) != std::string::npos; ++at) ++vertices;
         EXPECT_EQ(callFn(AppendOBJ, obj, 7, box.out + "/all.obj"), float(vertices));
         EXPECT_EQ(callFn(SwapVertices, box.out + "/v.obj", 0, obj), vertices ? 0 : -30);
     }},
    {"GroupList", "polygroup list file", listRecord(std::string(128, 'N'), 0, 2) + listRecord("b", 2, 3),
     [](const Sandbox& box, const std::string& bytes, size_t cut, bool) {
         const std::string obj = box.input("c.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2\nf 2 3\nf 3 1\nf 1 1\n");
         ASSERT_EQ(callFn(GroupListLoad, box.input("g.lst", bytes)), 0);
         // A short tail is one more record; its missing bytes read as zeros.
         EXPECT_EQ(callFn(GroupListSize), cut == 0 ? -1.f : float((cut + 135) / 136));
         char name[256];
         ASSERT_EQ(callFn(GroupListGetName, nullptr, 0, name), 0);
         EXPECT_EQ(std::string(name), cut == 0 ? "null" : std::string(std::min<size_t>(cut, 127), 'N'));
         EXPECT_EQ(callFn(ListSplitOBJtoVyx, obj, 0, box.out + "/"), cut == 0 ? -5 : 0);
         expectSoundVertexFiles(box);
     }},
    {"Project", "project file", kPrj,
     [](const Sandbox& box, const std::string& bytes, size_t cut, bool whole) {
         ASSERT_EQ(callFn(OpenPrjFile, box.input("p.prj", bytes), 0, box.out + "/x"), 0);
         char data[300];
         EXPECT_EQ(callFn(GetTPoseRef, "up", 0, data), cut >= 16 + 2 * 516 ? 2 : cut >= 16 + 516 ? -1 : -5);
         // A chunk is taken when its bytes and its padding byte are all there.
         std::map<std::string, std::string> want;
         if (cut >= 16 + 2 * 516 + 16 + 15 + 1) want["31X.dat"] = "first data file";
         if (whole) want["32X.dat"] = std::string(40, 'b');
         EXPECT_EQ(box.outputs(), want);
     }},
};

}  // namespace

class EveryCut : public ::testing::TestWithParam<size_t> {};

TEST_P(EveryCut, OfASoundFileGivesItsReadersCodes) {
    const CutCase& c = kCutCases[GetParam()];
    SCOPED_TRACE(c.reader);
    Sandbox box;
    const auto before = box.outside();
    for (size_t cut = 0; cut <= c.whole.size(); ++cut) {
        SCOPED_TRACE(cut);
        c.check(box, c.whole.substr(0, cut), cut, cut == c.whole.size());
        if (::testing::Test::HasFatalFailure()) return;
        box.clearOut();  // and the module state as it was
        callFn(GroupListClear), callFn(ClearTPoseList), callFn(clearUVTileString), CropBMP_SetWidth(nullptr, 50, nullptr, nullptr);
    }
    EXPECT_EQ(box.outside(), before);
}

INSTANTIATE_TEST_SUITE_P(Hostile, EveryCut, ::testing::Range<size_t>(0, kCutCases.size()),
                         [](const ::testing::TestParamInfo<size_t>& p) { return std::string(kCutCases[p.param].name); });

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
    // Each reader, whether the bad path goes in text (else in memBlock1, with a sound text), its code.
    const std::tuple<KelvaneFn, bool, float> readers[] = {{getFaceIDs, true, -1760}, {outMRGB, true, -1760},    {GetUVTile, true, -17},
                   {GetUVsFromVyx, true, -1760}, {GroupListLoad, true, -3}, {AppendOBJ, true, -1},
                   {SplitOBJ, true, -1},      {SplitOBJtoVyx, true, -1}, {SwapVertices, true, -10},
                   {SwapVertices, false, -20}, {OpenPrjFile, true, -17},  {AddDatFile, true, -1},
                   {CropBMPfile, true, -1760}, {SwapColorsPSD, true, -1}, {MakeStencilPSD, true, -1},
                   {RGBtoGrayscale, true, -1}, {CreateThumbnail, true, -1}, {FileDelete, true, -1},
                   {FileCopyTo, true, -1},    {FileRename, true, -1}};
    const auto before = box.tree();
    for (const std::string& path : {std::string(), box.in + "/" + std::string(300, 'x'), box.in + "/" + std::string(5000, 'y'), missing, box.in}) {
        SCOPED_TRACE(path.substr(0, 80) + " (" + std::to_string(path.size()) + " bytes)");
        for (const auto& [fn, badIsText, code] : readers) {
            if (fn == FileRename && path == box.in) continue;  // a folder may be renamed
            const std::string other = fn == SwapVertices ? (badIsText ? sound : box.out + "/v.obj") : target;
            EXPECT_EQ(badIsText ? callFn(fn, path, 16, other) : callFn(fn, other, 16, path), code);
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
