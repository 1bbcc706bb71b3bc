// Vyx mesh files: small meshes are built byte by byte here and run through the exports, and the
// files written are compared byte for byte. Also the number texts the conversions write.
#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <filesystem>
#include <string>
#include <vector>

#include "VyxOps.h"
#include "kelvane/Kelvane4.h"
#include "meshfiles.h"
#include "util/numtext.h"

using namespace kvtest;

namespace {

const std::string kRgbIntro =
    "# The following RGB block contains Vandor Vertex Color (Chromelay) output as 3 hexadecimal values per vertex. "
    "The vertex color format is RRGGBB with up to 32 entries per RGB line.\n";

// The mesh most conversion tests use: three vertices with the various %g forms, three colours,
// a triangle, a quad and a triangle.
const std::vector<float> kSmallVertices = {0.5f, -1.25f, 3.0f, 1e-5f, 123456789.0f, -0.0f, 100000.0f, 1234567.0f, 0.0001f};
const std::vector<uint32_t> kSmallColours = {0x1020FF7F, 0x00000000, 0x000001FF};
VyxBuilder smallMesh() {
    VyxBuilder b;
    b.vertices(kSmallVertices).colours(kSmallColours).faces({2, 1, 0, kTri, 0, 1, 2, 3, 1, 2, 0, kTri}).end();
    return b;
}

const std::string kHead3 = "# File exported by Vandor plugin\n#Vertex count 3\n#Face count ",
                  kSmallVertexLines = "v 0.5 -1.25 3\nv 1e-05 1.23457e+08 -0\nv 100000 1.23457e+06 0.0001\n";
const std::string kSmallColourText = kRgbIntro + "#RGB  ff0000002000000010000000 000000 10000000000\n# End of RGB block\n";

}  // namespace

TEST(Vyx, ConversionWritesExactTextInFaceRuns) {
    TempDir dir;
    const std::string vyx = smallMesh().save(dir / "mesh.Vyx"), obj = dir / "mesh.obj";
    const std::string intro = kHead3 + "3\n" + kSmallVertexLines + kSmallColourText;
    const std::pair<std::vector<uint32_t>, std::string> cases[] = {  // the runs, the face lines
        // A triangle line ends in a blank, a quad line in its fourth index.
        {{2, 1}, "#FaceID 1\nf 3 2 1 \nf 1 2 3 4\n#FaceID 2\nf 2 3 1 \n"},
        // Runs longer than the face block stop at its end; no run starts after the last face.
        {{1, 5, 7}, "#FaceID 1\nf 3 2 1 \n#FaceID 2\nf 1 2 3 4\nf 2 3 1 \n"},
        // Zero runs write only their labels.
        {{0, 1, 0}, "#FaceID 1\n#FaceID 2\nf 3 2 1 \n#FaceID 3\n"},
    };
    for (const auto& [runs, faces] : cases) {
        faceID = runs;
        EXPECT_EQ(callFn(vyxtoOBJ, vyx, 0, obj), 0);
        EXPECT_EQ(readAll(obj), intro + faces);
        EXPECT_TRUE(faceID.empty());  // used up
    }
    EXPECT_EQ(callFn(vyxtoOBJ, vyx, 0, obj), -18);

    // No vertices, no colours: the face count printed signed, a wrapped index keeps its 32 bits.
    VyxBuilder bare;
    bare.vertices({}).colours({}).head(kVyxFaceTag, 32, 0xFFFFFFFF, be32(0x7FFFFFFF) + be32(9) + be32(0) + be32(0x7FFFFFFF));
    faceID = {1};
    EXPECT_EQ(callFn(vyxtoOBJ, bare.save(dir / "bare.Vyx"), 0, obj), 0);
    EXPECT_EQ(readAll(obj), "# File exported by Vandor plugin\n#Vertex count 0\n#Face count -1\n" + kRgbIntro +
                                "\n# End of RGB block\n#FaceID 1\nf -2147483648 10 1 \n");

    // Enough lines for several batches: every line in its place, a run starting in a later batch.
    const uint32_t n = 70000;
    std::vector<float> xyz;
    std::vector<uint32_t> abcd;
    std::string vertexLines, faceLines = "#FaceID 1\n", rgb = kRgbIntro;
    for (uint32_t i = 0; i < n; ++i) {
        xyz.insert(xyz.end(), {float(i), 0.5f, -float(i % 7)});
        abcd.insert(abcd.end(), {i, n - 1 - i, 0, i % 2 ? i : kTri});
        vertexLines += "v " + std::to_string(i) + " 0.5 -" + std::to_string(i % 7) + "\n";  // -0 too
        faceLines += (i == 40000 ? "#FaceID 2\n" : "") + ("f " + std::to_string(i + 1) + " " + std::to_string(n - i) + " 1 ") +
                     (i % 2 ? std::to_string(i + 1) : "") + "\n";
        rgb += (i % 32 ? " " : "#RGB  ") + std::string("10000000000") + (i % 32 == 31 ? "\n" : "");
    }
    VyxBuilder big;
    big.vertices(xyz).colours(std::vector<uint32_t>(n, 0x000001FF)).faces(abcd).end();
    faceID = {40000, n};
    EXPECT_EQ(callFn(vyxtoOBJ, big.save(dir / "big.Vyx"), 0, obj), 0);
    EXPECT_TRUE(readAll(obj) == "# File exported by Vandor plugin\n#Vertex count 70000\n#Face count 70000\n" + vertexLines +
                                    rgb + "\n# End of RGB block\n" + faceLines);  // not printed: megabytes
}

TEST(Vyx, ConversionErrorsKeepTheRuns) {
    TempDir dir;
    const std::string vyx = smallMesh().save(dir / "mesh.Vyx"), obj = dir / "out.obj";
    faceID.clear();
    EXPECT_EQ(callFn(vyxtoOBJ, dir / "none.Vyx", 0, obj), -18);  // runs checked first
    faceID = {3};
    EXPECT_EQ(callFn(vyxtoOBJ, nullptr, 0, obj.c_str()), -9);
    EXPECT_EQ(callFn(vyxtoOBJ, vyx.c_str(), 0, nullptr), -9);
    EXPECT_EQ(callFn(vyxtoOBJ, dir / "none.Vyx", 0, obj), -1760);
    EXPECT_EQ(callFn(vyxtoOBJ, vyx, 0, dir / "no/such/folder.obj"), -2);
    EXPECT_FALSE(exists(obj));
    // A block out of place: its tag, and what came before it written. The end block right after
    // the vertices: its count is the face count, its tag the result. A first block of tag 0: the
    // result 0 and nothing written (its count is never taken for vertices).
    VyxBuilder wrongFirst, noColours, noFaces, onlyVertices;
    wrongFirst.colours({1}).end();
    noColours.vertices(kSmallVertices).faces({0, 1, 2, kTri}).colours({}).end();
    noFaces.vertices(kSmallVertices).colours(kSmallColours).uvs({0, 0, 0, 0, 0, 0, 0, 0}).end();
    onlyVertices.vertices(kSmallVertices).end();
    for (auto [bytes, code, text] : std::vector<std::tuple<std::string, float, std::string>>{
             {wrongFirst.bytes, 35001, "(none)"},
             {noColours.bytes, 20001, kHead3 + "0\n" + kSmallVertexLines},
             {noFaces.bytes, 25001, kHead3 + "1\n" + kSmallVertexLines + kSmallColourText},
             {onlyVertices.bytes, 0, kHead3 + "0\n" + kSmallVertexLines},
             {std::string(32, 'H') + be32(0) + be32(0) + be32(0x484848) + be32(0), 0, "(none)"}}) {
        std::remove(obj.c_str());
        writeAll(dir / "m.Vyx", bytes);
        EXPECT_EQ(callFn(vyxtoOBJ, dir / "m.Vyx", 0, obj), code);
        EXPECT_EQ(exists(obj) ? readAll(obj) : "(none)", text);
    }
    EXPECT_EQ(faceID, std::vector<uint32_t>{3});  // every failure keeps the runs
    faceID.clear();
}

TEST(Vyx, ColourBlockLinesOf32) {
    TempDir dir;
    const std::string out = dir / "rgb.txt";
    // Entries are (blue, green, red, unused); red 0x0F gives seven digits, byte 3 never shows.
    std::vector<uint32_t> entries(33, 0x0000FFAA);
    entries[0] = 0xFF000FAB;
    entries[32] = 0x00000F00;
    std::string line32 = "#RGB  f00000000ff000000";
    for (int i = 1; i < 32; ++i) line32 += " ff0000000000";
    for (auto [mesh, code, text] : std::vector<std::tuple<VyxBuilder, float, std::string>>{
             {VyxBuilder().colours(std::vector<uint32_t>(entries.begin(), entries.begin() + 32)).end(), 0, line32 + "\n\n"},
             {VyxBuilder().vertices({1, 2, 3}).colours(entries).end(), 0, line32 + "\n#RGB  f0000000000\n"},  // the 33rd on a line of its own
             {VyxBuilder().colours({}).end(), 0, "\n"},
             {VyxBuilder().vertices({1, 2, 3}).end(), -1760, ""}}) {
        std::remove(out.c_str());
        EXPECT_EQ(callFn(outMRGB, mesh.save(dir / "m.Vyx"), 0, out), code);
        EXPECT_EQ(readAll(out), code == 0 ? kRgbIntro + text + "# End of RGB block\n" : "");
    }
    EXPECT_EQ(callFn(outMRGB, VyxBuilder().colours({}).end().save(dir / "m.Vyx"), 0, dir / "no/such.txt"), -2);
}

TEST(Vyx, FaceRunsPerLevel) {
    TempDir dir;
    const std::string path = VyxBuilder().faces({0, 1, 2, kTri, 2, 1, 3, kTri, 0, 1, 2, 3}).end().save(dir / "base.Vyx");
    const double inf = std::numeric_limits<double>::infinity();
    // Runs of 4^(level - 1) a face; 4 to a negative power truncates to 0; beyond 32 bits they wrap.
    for (auto [level, runs] : std::vector<std::pair<double, std::vector<uint32_t>>>{
             {1, {3, 3, 4}}, {2, {12, 12, 16}}, {3, {48, 48, 64}}, {1.5, {6, 6, 8}}, {0.5, {0, 0, 0}}, {-inf, {0, 0, 0}}}) {
        EXPECT_EQ(callFn(getFaceIDs, path, level), 3);
        EXPECT_EQ(faceID, runs) << level;
    }
    for (double level : {17.0, 1e9, inf, std::nan("")}) EXPECT_EQ(callFn(getFaceIDs, path, level), 3) << level;
    EXPECT_EQ(callFn(getFaceIDs, smallMesh().save(dir / "mesh.Vyx"), 1), 3);  // along the chain
    EXPECT_EQ(faceID, (std::vector<uint32_t>{3, 4, 3}));
    EXPECT_EQ(callFn(getFaceIDs, nullptr, 1), -9);
    EXPECT_EQ(faceID.size(), 3u);
    for (const std::string& p : {dir / "missing.Vyx", VyxBuilder().vertices({1, 2, 3}).end().save(dir / "n.Vyx"),
                                 VyxBuilder().head(kVyxFaceTag, 32, 0x10000000, be32(0) + be32(1) + be32(2) + be32(kTri)).save(dir / "h.Vyx")}) {
        faceID = {9};
        EXPECT_EQ(callFn(getFaceIDs, p, 1), -1760);
        EXPECT_TRUE(faceID.empty());  // emptied on every failure
    }
}

TEST(Vyx, VertexSwapChangesOnlyTheVertexRecords) {
    TempDir dir;
    VyxBuilder mesh;
    mesh.block(7, 2, "unknown!").vertices({1, 2, 3, 4, 5, 6}).colours({0x01020304, 0x05060708})
        .vertices({7, 8, 9, 10, 11, 12})  // a second vertex block stays as it is
        .uvs({0, 0, 1, 1, 0, 1, 1, 0}).end();
    const std::string vyx = mesh.save(dir / "part.Vyx"), vyt = dir / "posed.Vyt", posedFile = vytFile({-1, -2, -3, 0.25f, 0.5f, 0.75f});
    writeAll(vyt, posedFile);
    EXPECT_EQ(callFn(SwapVertices_Vyx, vyt, 0, vyx), 0);  // text: the vertex file, memBlock1: the mesh
    std::string expected = mesh.bytes;
    EXPECT_EQ(readAll(vyx), expected.replace(32 + 24 + 16, 24, posedFile.substr(16)));

    // Failures leave the mesh as it is; an empty vertex block takes an empty vertex file.
    VyxBuilder noVertices, cut, empty;
    noVertices.colours({1}).faces({0, 1, 2, kTri}).end();
    cut.block(7, 0, "").head(kVyxVertexTag, 16 + 24, 2, f32(1) + f32(2));
    empty.vertices({}).colours({}).end();
    for (auto [vertexFile, meshFile, code] : std::vector<std::tuple<std::string, std::string, float>>{
             {vytFile({-1, -2, -3, 0.25f, 0.5f, 0.75f, 1, 1, 1}), vyx, -301},  // another count
             {be32(kVyxVertexTag) + be32(16 + 28) + be32(2) + be32(0) + posedFile.substr(16), vyx, -301},  // same count, another length
             {posedFile, noVertices.save(dir / "nov.Vyx"), -18},
             {posedFile, cut.save(dir / "cut.Vyx"), -1760},
             {vytFile({}), empty.save(dir / "empty.Vyx"), 0}}) {
        const std::string before = readAll(meshFile);
        writeAll(dir / "other.Vyt", vertexFile);
        EXPECT_EQ(callFn(SwapVertices_Vyx, dir / "other.Vyt", 0, meshFile), code);
        EXPECT_EQ(readAll(meshFile), before);
    }
    EXPECT_EQ(callFn(SwapVertices_Vyx, dir / "missing.Vyt", 0, vyx), -201);
    EXPECT_EQ(callFn(SwapVertices_Vyx, vyt, 0, dir / "missing.Vyx"), -1760);
}

TEST(Vyx, UVSplitWritesOneFilePerTile) {
    TempDir dir;
    // Face 0 in tile 00 with a corner at u = 1 (tile 10); face 1 in tile 10; face 2 starts at
    // u = -1 (tile -20). The colour block after the UV block is not copied.
    VyxBuilder mesh;
    mesh.vertices({1, 2, 3}).uvs({0.25f, 0.5f, 1.0f, 0.5f, 0.75f, 0.75f, 0.5f, 0.25f, 1.5f, 0.25f, 1.0f, 0.5f, 0.25f, 0.5f, 1.75f,
                                  0.125f, -1.0f, 0.5f, -0.25f, 0.5f, -1.5f, -0.0f, 3.0f, 3.0f}).colours({5}).end();
    const std::string vyx = mesh.save(dir / "head.Vyx");
    char last[64] = "untouched";
    EXPECT_EQ(callFn(GetUVTile, vyx.c_str(), 0, last), 3);
    EXPECT_STREQ(last, "-20");
    EXPECT_EQ(callFn(GetUVsFromVyx, vyx), 3);
    ASSERT_EQ(UVTileStr, (std::vector<std::string>{dir / "head0.Vyx", dir / "head1.Vyx", dir / "head2.Vyx"}));
    auto tileFile = [&](const std::vector<float>& uv) {
        std::string s = mesh.bytes.substr(0, 32 + 16 + 12 + 16);
        for (float c : uv) s += f32(c);
        return s + std::string(16, '\0');
    };
    const float o = -1.0f;  // a corner outside the file's tile
    EXPECT_EQ(readAll(dir / "head0.Vyx"), tileFile({o, o, o, o, o, o, o, o, o, o, o, o, o, o, o, o, -0.0f, 0.5f, o, o, 0.5f, -0.0f, o, o}));
    EXPECT_EQ(readAll(dir / "head1.Vyx"), tileFile({0.25f, 0.5f, o, o, 0.75f, 0.75f, 0.5f, 0.25f, o, o, o, o, 0.25f, 0.5f, o, o, o, o, o, o, o, o, o, o}));
    EXPECT_EQ(readAll(dir / "head2.Vyx"), tileFile({o, o, 0.0f, 0.5f, o, o, o, o, 0.5f, 0.25f, 0.0f, 0.5f, o, o, 0.75f, 0.125f, o, o, o, o, o, o, o, o}));
    // The names one by one; an entry that is not there (or no longer) leaves the buffer alone.
    char name[256] = "untouched";
    for (double bad : {3.0, -1.0, 1e12}) EXPECT_EQ(callFn(getUVTileString, nullptr, bad, name), 0);
    EXPECT_STREQ(name, "untouched");
    EXPECT_EQ(callFn(getUVTileString, nullptr, 1, name), 0);
    EXPECT_EQ(std::string(name), dir / "head1.Vyx");
    EXPECT_EQ(callFn(clearUVTileString), 0);
    EXPECT_EQ(callFn(getUVTileString, nullptr, 0, name), 0);
    EXPECT_EQ(std::string(name), dir / "head1.Vyx");
    // A file that cannot be written: 1501 + its position; the names before it stay listed.
    std::remove((dir / "head1.Vyx").c_str());
    ASSERT_TRUE(std::filesystem::create_directory(dir / "head1.Vyx"));
    EXPECT_EQ(callFn(GetUVsFromVyx, vyx), 1502);
    EXPECT_EQ(UVTileStr, std::vector<std::string>{dir / "head0.Vyx"});
    // No UV block: no tiles, nothing written, the names emptied.
    VyxBuilder plain;
    plain.vertices({1, 2, 3}).end();
    EXPECT_EQ(callFn(GetUVTile, plain.save(dir / "plain.Vyx").c_str(), 0, last), 0);
    EXPECT_EQ(callFn(GetUVsFromVyx, dir / "plain.Vyx"), 0);
    EXPECT_TRUE(UVTileStr.empty());
    EXPECT_FALSE(exists(dir / "plain0.Vyx"));
}

TEST(NumText, MatchesPrintfAndToChars) {
    // Every 39989th bit pattern (all exponents, both signs, NaN and infinities among them) and
    // the values at the edges of the fast path: decade limits, rounding ties, 1e+06 after rounding.
    std::vector<float> values;
    for (uint64_t bits = 0; bits <= 0xFFFFFFFFu; bits += 39989) values.push_back(std::bit_cast<float>(uint32_t(bits)));
    for (float f : {0.0f, 1.0f, 0.5f, 1e-5f, 9.99999e-5f, 0.0001f, 99999.95f, 999999.5f, 999999.4f, 100000.5f,
                    1234565.0f, 0.1234565f, 1e-20f, 1e-21f, 3.4e38f, 1.17549435e-38f, 1e5f, 1e6f, 123456.5f})
        for (float s : {f, -f, std::nextafter(f, 0.0f), std::nextafter(f, 1e30f)}) values.push_back(s);
    size_t mismatches = 0;
    for (float f : values) {
        char ours[32], theirs[32];
        *kv::putG(ours, f) = '\0';
        std::snprintf(theirs, sizeof theirs, "%g", static_cast<double>(f));
#ifdef _WIN32  // its printf drops the sign of a NaN
        if (std::isnan(f) && std::signbit(f)) std::strcpy(theirs, "-nan");
#endif
        if (std::strcmp(ours, theirs) != 0 && ++mismatches < 5) ADD_FAILURE() << ours << " vs " << theirs;
    }
    EXPECT_EQ(mismatches, 0u) << "of " << values.size();
    std::vector<int64_t> ints = {123456789, 87654321, 40302010, INT32_MAX, INT32_MIN, INT64_MAX, INT64_MIN, INT64_MIN + 1};
    for (int64_t ten = 1; ten <= INT64_MAX / 10; ten *= 10)  // every digit count up to 19, at its edges
        for (int64_t i : {ten - 1, ten, ten + 7, 10 * ten - 1, 10 * ten, 5 * ten + 3}) ints.insert(ints.end(), {i, -i});
    for (int64_t i : ints) {
        char ours[24], theirs[24];
        EXPECT_EQ(std::string(ours, kv::putInt(ours, i)), std::string(theirs, std::to_chars(theirs, theirs + 24, i).ptr));
    }
    char text[16];
    EXPECT_EQ(std::string(text, kv::putUint(text, UINT32_MAX)), "4294967295");
}

TEST(NumText, ReadsFloatsAsStreamsDo) {
    struct Case {
        std::string text;
        size_t used;
        std::errc ec;
        float value;  // -7 where the value must stay unchanged
    };
    constexpr size_t whole = SIZE_MAX;
    const std::string many = "16777217." + std::string(250, '0');  // a tie, then digits past the kept ones
    const std::string tiny = "7.0064923216240853546186479164495806564013097093825788587853414194489554134293030074331909418106079101562";
    const std::vector<Case> cases = {
        {"0.1", 3, {}, 0x1.99999ap-4f}, {"-0", 2, {}, -0.0f}, {".5", 2, {}, 0.5f}, {"5.", 2, {}, 5.0f},
        {"1e", 1, {}, 1.0f}, {"1.5e+x", 3, {}, 1.5f},
        {"2,5", 1, {}, 2.0f},  // the decimal point is '.' whatever the locale
        {"0e99999999999999999999", 22, {}, 0.0f},
        {"16777217", 8, {}, 16777216.0f},  // ties to the even neighbour
        {"16777219", 8, {}, 16777220.0f}, {many, many.size(), {}, 16777216.0f},
        {many + "1", many.size() + 1, {}, 16777218.0f}, {"0." + std::string(60, '0') + "1e61", 66, {}, 1.0f},
        {"1e-45", 5, {}, 0x1p-149f},  // subnormal: smallest float
        {"7.1e-46", 7, {}, 0x1p-149f}, {"1e-40", 5, {}, 0x1.16c2p-133f},
        {tiny + "5e-46", whole, std::errc::result_out_of_range, -7},  // 2^-150 exactly: ties to 0
        {tiny + "4999e-46", whole, std::errc::result_out_of_range, -7},
        {tiny + "50000000000000000000000000000001e-46", whole, {}, 0x1p-149f},
        {"340282356779733661637539395458142568447", 39, {}, 0x1.fffffep127f},
        {"340282356779733661637539395458142568448", 39, std::errc::result_out_of_range, -7},
        {"3.4028236e38", 12, std::errc::result_out_of_range, -7},
        {"1e99999999999999999999", 22, std::errc::result_out_of_range, -7},
        {"1e-99999999999999999999", 23, std::errc::result_out_of_range, -7}, {"", 0, std::errc::invalid_argument, -7},
        {".", 0, std::errc::invalid_argument, -7}, {"-", 0, std::errc::invalid_argument, -7},
        {"+1", 0, std::errc::invalid_argument, -7}, {"inf", 0, std::errc::invalid_argument, -7},
    };
    for (const Case& c : cases) {
        float v = -7;
        const kv::FloatRead r = kv::readFloat(c.text.data(), c.text.data() + c.text.size(), v);
        EXPECT_EQ(size_t(r.ptr - c.text.data()), c.used == whole ? c.text.size() : c.used) << c.text;
        EXPECT_EQ(r.ec, c.ec) << c.text;
        EXPECT_EQ(std::bit_cast<uint32_t>(v), std::bit_cast<uint32_t>(c.value)) << c.text << " read as " << v;
    }
#if defined(__cpp_lib_to_chars)  // the standard library's reader, where it has one for floats
    // Floats printed short and long, and the exact midpoints between neighbours and the texts
    // just beside them: the hard cases of rounding.
    std::vector<std::string> texts;
    char text[160];
    for (uint64_t bits = 1; bits < 0x7F800000u; bits += 40009) {  // about 53 000 floats; fuzz_numbers reads more
        const float f = std::bit_cast<float>(uint32_t(bits));
        const double mid = (double(f) + double(std::nextafter(f, HUGE_VALF))) / 2;
        for (int digits : {6, 9}) texts.emplace_back(text, std::snprintf(text, sizeof text, "%.*g", digits, f));
        std::string exact(text, std::snprintf(text, sizeof text, "%.120e", mid));
        const size_t e = exact.find('e'), end = exact.find_last_not_of('0', e - 1) + 1;
        exact.erase(end, e - end);  // every digit of the midpoint, no trailing zero
        texts.push_back(exact);
        texts.push_back(exact.substr(0, end) + "1" + exact.substr(end));  // just above it
        texts.push_back(exact.substr(0, end - 1) + exact.substr(end));    // just below it
    }
    size_t mismatches = 0;
    for (const std::string& t : texts) {
        float ours = -7, theirs = -7;
        const auto a = kv::readFloat(t.data(), t.data() + t.size(), ours);
        const auto b = std::from_chars(t.data(), t.data() + t.size(), theirs);
        if ((a.ptr != b.ptr || a.ec != b.ec || std::bit_cast<uint32_t>(ours) != std::bit_cast<uint32_t>(theirs)) &&
            ++mismatches < 5)
            ADD_FAILURE() << t << ": " << ours << " vs " << theirs;
    }
    EXPECT_EQ(mismatches, 0u) << "of " << texts.size();
#endif
}
