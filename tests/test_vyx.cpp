// Vyx mesh files: small meshes are built byte by byte here, run through the exports and the
// internal operations, and the files written are compared byte for byte.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "VyxOps.h"
#include "kelvane/Kelvane4.h"
#include "testutil.h"
#include "util/numtext.h"

using kvtest::be32;
using kvtest::callFn;
using kvtest::f32;
using kvtest::TempDir;

namespace {

// Builds a Vyx file: a 32-byte header, then blocks appended in order.
struct VyxBuilder {
    std::string bytes = std::string(32, '\x5A');

    // A block whose length covers its head and records.
    VyxBuilder& block(uint32_t tag, uint32_t count, const std::string& records) {
        return head(tag, static_cast<uint32_t>(16 + records.size()), count, records);
    }
    // A block with any head: for malformed files.
    VyxBuilder& head(uint32_t tag, uint32_t length, uint32_t count, const std::string& records = "") {
        bytes += be32(tag) + be32(length) + be32(count) + be32(0xC0FFEE) + records;
        return *this;
    }
    VyxBuilder& vertices(const std::vector<float>& xyz) {
        std::string r;
        for (float c : xyz) r += f32(c);
        return block(kVyxVertexTag, static_cast<uint32_t>(xyz.size() / 3), r);
    }
    // Entries given as (blue, green, red, unused) bytes.
    VyxBuilder& colours(const std::vector<uint32_t>& bgrx) {
        std::string r;
        for (uint32_t e : bgrx) r += be32(e);
        return block(kVyxColourTag, static_cast<uint32_t>(bgrx.size()), r);
    }
    // Four indices a face; 0xFFFFFFFF as the fourth makes a triangle.
    VyxBuilder& faces(const std::vector<uint32_t>& abcd) {
        std::string r;
        for (uint32_t i : abcd) r += be32(i);
        return block(kVyxFaceTag, static_cast<uint32_t>(abcd.size() / 4), r);
    }
    // Eight floats a face: four (u, v) corners.
    VyxBuilder& uvs(const std::vector<float>& uv) {
        std::string r;
        for (float c : uv) r += f32(c);
        return block(kVyxUVTag, static_cast<uint32_t>(uv.size() / 8), r);
    }
    VyxBuilder& end() {
        bytes += std::string(16, '\0');
        return *this;
    }
    std::string save(const std::string& path) const {
        kvtest::writeAll(path, bytes);
        return path;
    }
};

std::vector<char> bufferOf(const std::string& s) { return {s.begin(), s.end()}; }

const uint32_t kTri = 0xFFFFFFFFu;

const std::string kRgbIntro =
    "# The following RGB block contains Vandor Vertex Color (Chromelay) output as 3 hexadecimal values per vertex. "
    "The vertex color format is RRGGBB with up to 32 entries per RGB line.\n";

// The mesh most conversion tests use: three vertices with the various %g forms, three colours,
// a triangle, a quad and a triangle.
const std::vector<float> kSmallVertices = {0.5f, -1.25f, 3.0f, 1e-5f, 123456789.0f, -0.0f, 100000.0f, 1234567.0f, 0.0001f};
const std::vector<uint32_t> kSmallColours = {0x1020FF7F, 0x00000000, 0x000001FF};
VyxBuilder smallMesh() {
    VyxBuilder b;
    b.vertices(kSmallVertices)
        .colours(kSmallColours)
        .faces({2, 1, 0, kTri, 0, 1, 2, 3, 1, 2, 0, kTri})
        .end();
    return b;
}

const std::string kSmallHead =
    "# File exported by Vandor plugin\n#Vertex count 3\n#Face count 3\n"
    "v 0.5 -1.25 3\n"
    "v 1e-05 1.23457e+08 -0\n"
    "v 100000 1.23457e+06 0.0001\n";
const std::string kSmallColourText = kRgbIntro + "#RGB  ff0000002000000010000000 000000 10000000000\n# End of RGB block\n";

}  // namespace

TEST(Vyx, ByteReadersAssembleBigEndianWords) {
    const char ff = static_cast<char>(0xFF);
    EXPECT_EQ(readUnInt(0x12, 0x34, 0x56, 0x78), 0x12345678u);
    EXPECT_EQ(readUnInt(ff, 0, ff, static_cast<char>(0x80)), 0xFF00FF80u);
    EXPECT_EQ(readSignInt(ff, ff, ff, ff), -1);
    EXPECT_EQ(readSignInt(static_cast<char>(0x80), 0, 0, 0), INT32_MIN);
    EXPECT_EQ(readaFloat(0x3F, static_cast<char>(0x80), 0, 0), 1.0f);
    EXPECT_EQ(std::bit_cast<uint32_t>(readaFloat(static_cast<char>(0x80), 0, 0, 0)), 0x80000000u);  // -0
    EXPECT_EQ(std::bit_cast<uint32_t>(readaFloat(0x7F, static_cast<char>(0xC0), 0, 1)), 0x7FC00001u);  // NaN bits kept
    // The single byte goes to the top of the word, not to its own value.
    EXPECT_EQ(readanInt(0x20), 0x20000000);
    EXPECT_EQ(static_cast<uint32_t>(readanInt(ff)), 0xFF000000u);
    EXPECT_EQ(readanInt(0), 0);
}

TEST(Vyx, BlockWalkStepsByLengthAndEndsAtTheEndOfTheFile) {
    VyxBlock found;
    // An unknown block is passed by its length, a zero-length one by its head's 16 bytes.
    VyxBuilder b;
    b.block(7, 1, "abcd").head(8, 0, 99).vertices({}).uvs({0, 0, 0, 0, 0, 0, 0, 0}).end();
    auto buf = bufferOf(b.bytes);
    ASSERT_TRUE(findVyxBlock(buf, kVyxVertexTag, found));
    EXPECT_EQ(found.at, 32u + 20 + 16);
    EXPECT_EQ(found.count, 0u);
    EXPECT_EQ(found.length, 16u);
    ASSERT_TRUE(findVyxBlock(buf, kVyxUVTag, found));
    EXPECT_EQ(found.at, 32u + 20 + 16 + 16);  // a count-0 vertex block is just its head
    EXPECT_TRUE(vyxRecordsFit(buf, found, 32));
    // A walk that runs off the end has found nothing: the end block, a file no longer than its
    // header, an unwanted head cut short, a length stepping past the end.
    VyxBuilder past;
    past.head(7, 1000, 0).end();
    for (const std::string& bytes : {b.bytes, std::string(32, 'h'), std::string(31, 'h'), std::string(),
                                     b.bytes.substr(0, 32 + 10), past.bytes})
        EXPECT_FALSE(findVyxBlock(bufferOf(bytes), kVyxFaceTag, found)) << bytes.size();
    // A wanted head cut short is found, but its records do not fit.
    ASSERT_TRUE(findVyxBlock(bufferOf(b.bytes.substr(0, 32 + 20 + 16 + 16 + 6)), kVyxUVTag, found));
    EXPECT_FALSE(vyxRecordsFit(bufferOf(b.bytes.substr(0, 32 + 20 + 16 + 16 + 6)), found, 32));
}

TEST(Vyx, ConversionWritesExactTextInFaceRuns) {
    TempDir dir;
    const std::string vyx = smallMesh().save(dir / "mesh.Vyx");
    std::string obj = dir / "mesh.obj";

    // Runs 2 and 1: a triangle line ends in a blank, a quad line in its fourth index.
    faceID = {2, 1};
    EXPECT_EQ(callFn(vyxtoOBJ, vyx.c_str(), 0, obj.data()), 0);
    EXPECT_EQ(kvtest::readAll(obj), kSmallHead + kSmallColourText + "#FaceID 1\nf 3 2 1 \nf 1 2 3 4\n#FaceID 2\nf 2 3 1 \n");
    EXPECT_TRUE(faceID.empty());  // emptied after success
    EXPECT_EQ(callFn(vyxtoOBJ, vyx.c_str(), 0, obj.data()), -18);

    // Runs longer than the face block stop at its end; no run starts after the last face.
    faceID = {1, 5, 7};
    EXPECT_EQ(writeOBJfromVyx(vyx.c_str(), obj.data()), 0);
    EXPECT_EQ(kvtest::readAll(obj), kSmallHead + kSmallColourText + "#FaceID 1\nf 3 2 1 \n#FaceID 2\nf 1 2 3 4\nf 2 3 1 \n");
    // Runs shorter than the face block leave the remaining faces out; zero runs write only labels.
    faceID = {0, 1, 0};
    EXPECT_EQ(writeOBJfromVyx(vyx.c_str(), obj.data()), 0);
    EXPECT_EQ(kvtest::readAll(obj), kSmallHead + kSmallColourText + "#FaceID 1\n#FaceID 2\nf 3 2 1 \n#FaceID 3\n");

    // No vertices, no colours: the colour block (with its empty line) and the faces all the same;
    // the face count is printed signed, and a wrapped index keeps its 32-bit value.
    VyxBuilder bare;
    bare.vertices({}).colours({}).head(kVyxFaceTag, 32, 0xFFFFFFFF, be32(0x7FFFFFFF) + be32(9) + be32(0) + be32(0x7FFFFFFF));
    bare.save(dir / "bare.Vyx");
    faceID = {1};
    EXPECT_EQ(writeOBJfromVyx((dir / "bare.Vyx").c_str(), obj.data()), 0);
    EXPECT_EQ(kvtest::readAll(obj), "# File exported by Vandor plugin\n#Vertex count 0\n#Face count -1\n" + kRgbIntro +
                                        "\n# End of RGB block\n#FaceID 1\nf -2147483648 10 1 \n");
}

TEST(Vyx, LargeConversionMatchesPrintf) {
    // About 3 MB of text: many output blocks, so lines meet every kind of block edge.
    TempDir dir;
    const uint32_t n = 40000;
    std::vector<float> xyz;
    std::vector<uint32_t> colours, faces;
    std::string expected = "# File exported by Vandor plugin\n#Vertex count 40000\n#Face count 40000\n";
    char line[128];
    for (uint32_t i = 0; i < n; ++i) {
        const float x = static_cast<float>(i) * 0.37f - 7000.0f, y = 1.0f / static_cast<float>(i + 1), z = -x * 1e-9f;
        xyz.insert(xyz.end(), {x, y, z});
        std::snprintf(line, sizeof line, "v %g %g %g\n", double(x), double(y), double(z));
        expected += line;
        colours.push_back(i * 2654435761u);
        faces.insert(faces.end(), {i, (i + 1) % n, (i + 7) % n, i % 3 ? (i + 9) % n : kTri});
    }
    expected += kRgbIntro;
    for (uint32_t i = 0; i < n; ++i) {
        const uint32_t e = colours[i];
        std::snprintf(line, sizeof line, "%s %02x%02x%02x%s", i % 32 ? "" : "#RGB ", (e >> 8 & 0xFF) << 24,
                      (e >> 16 & 0xFF) << 24, (e >> 24) << 24, i % 32 == 31 ? "\n" : "");
        expected += line;
    }
    expected += "\n# End of RGB block\n";
    for (uint32_t i = 0; i < n; ++i) {
        const uint32_t* f = &faces[4 * i];
        std::snprintf(line, sizeof line, "#FaceID %u\nf %u %u %u ", i + 1, f[0] + 1, f[1] + 1, f[2] + 1);
        expected += line;
        expected += f[3] == kTri ? "\n" : std::to_string(f[3] + 1) + "\n";
    }
    ASSERT_GT(expected.size(), size_t(2) << 20);
    VyxBuilder mesh;
    mesh.vertices(xyz).colours(colours).faces(faces).end();
    std::string obj = dir / "big.obj";
    faceID.assign(n, 1);
    EXPECT_EQ(writeOBJfromVyx(mesh.save(dir / "big.Vyx").c_str(), obj.data()), 0);
    EXPECT_TRUE(kvtest::readAll(obj) == expected);  // not printed: megabytes
}

TEST(Vyx, ConversionErrorsKeepTheRuns) {
    TempDir dir;
    const std::string vyx = smallMesh().save(dir / "mesh.Vyx");
    std::string obj = dir / "out.obj";
    std::string mem1 = obj;

    faceID.clear();
    EXPECT_EQ(callFn(vyxtoOBJ, (dir / "none.Vyx").c_str(), 0, mem1.data()), -18);  // runs checked first
    faceID = {3};
    EXPECT_EQ(callFn(vyxtoOBJ, nullptr, 0, mem1.data()), -9);
    EXPECT_EQ(callFn(vyxtoOBJ, vyx.c_str(), 0, nullptr), -9);
    EXPECT_EQ(callFn(vyxtoOBJ, (dir / "none.Vyx").c_str(), 0, mem1.data()), -1760);
    std::string badDir = dir / "no/such/folder.obj";
    EXPECT_EQ(callFn(vyxtoOBJ, vyx.c_str(), 0, badDir.data()), -2);
    EXPECT_FALSE(kvtest::exists(obj));

    // A first block that is not the vertex block: its tag, positive, and no OBJ file.
    VyxBuilder wrongFirst;
    wrongFirst.colours({1}).end();
    EXPECT_EQ(writeOBJfromVyx(wrongFirst.save(dir / "a.Vyx").c_str(), obj.data()), 35001.0f);
    EXPECT_FALSE(kvtest::exists(obj));
    // The block after the vertices is not the colour block: header and vertex lines are kept.
    VyxBuilder noColours;
    noColours.vertices(kSmallVertices).faces({0, 1, 2, kTri}).colours({}).end();
    EXPECT_EQ(writeOBJfromVyx(noColours.save(dir / "b.Vyx").c_str(), obj.data()), 20001.0f);
    EXPECT_EQ(kvtest::readAll(obj), "# File exported by Vandor plugin\n#Vertex count 3\n#Face count 0\n" +
                                        kSmallHead.substr(kSmallHead.find("v ")));
    // The block after the colours is not the face block: the colour block is written too.
    VyxBuilder noFaces;
    noFaces.vertices(kSmallVertices).colours(kSmallColours).uvs({0, 0, 0, 0, 0, 0, 0, 0}).end();
    EXPECT_EQ(writeOBJfromVyx(noFaces.save(dir / "c.Vyx").c_str(), obj.data()), 25001.0f);
    EXPECT_EQ(kvtest::readAll(obj), "# File exported by Vandor plugin\n#Vertex count 3\n#Face count 1\n" +
                                        kSmallHead.substr(kSmallHead.find("v ")) + kSmallColourText);
    // The end block right after the vertices: its count is the face count, its tag the result.
    VyxBuilder onlyVertices;
    onlyVertices.vertices(kSmallVertices).end();
    EXPECT_EQ(writeOBJfromVyx(onlyVertices.save(dir / "d.Vyx").c_str(), obj.data()), 0.0f);
    EXPECT_EQ(kvtest::readAll(obj), kSmallHead.substr(0, kSmallHead.find("3\nv ")) + "0\n" +
                                        kSmallHead.substr(kSmallHead.find("v ")));
    EXPECT_EQ(faceID, std::vector<uint32_t>{3});  // every failure keeps the runs
    faceID.clear();
}

TEST(Vyx, ColourBlockLinesOf32) {
    TempDir dir;
    std::string out = dir / "rgb.txt";
    // Entries are (blue, green, red, unused); red 0x0F gives seven digits, byte 3 never shows.
    std::vector<uint32_t> entries(33, 0x0000FFAA);
    entries[0] = 0xFF000FAB;
    entries[32] = 0x00000F00;
    VyxBuilder first;  // the colour block as the first block
    first.colours(std::vector<uint32_t>(entries.begin(), entries.begin() + 32)).end();
    EXPECT_EQ(callFn(outMRGB, first.save(dir / "a.Vyx").c_str(), 0, out.data()), 0);
    std::string line32 = "#RGB  f00000000ff000000";
    for (int i = 1; i < 32; ++i) line32 += " ff0000000000";
    EXPECT_EQ(kvtest::readAll(out), kRgbIntro + line32 + "\n\n# End of RGB block\n");

    VyxBuilder chained;  // found along the chain, the 33rd entry on a line of its own
    chained.vertices({1, 2, 3}).colours(entries).end();
    EXPECT_EQ(ReadVertColorVyx(chained.save(dir / "b.Vyx").c_str(), out.data()), 0);
    EXPECT_EQ(kvtest::readAll(out), kRgbIntro + line32 + "\n#RGB  f0000000000\n# End of RGB block\n");

    VyxBuilder none;
    none.colours({}).end();
    EXPECT_EQ(ReadVertColorVyx(none.save(dir / "c.Vyx").c_str(), out.data()), 0);
    EXPECT_EQ(kvtest::readAll(out), kRgbIntro + "\n# End of RGB block\n");

    EXPECT_EQ(callFn(outMRGB, nullptr, 0, out.data()), -9);
    EXPECT_EQ(callFn(outMRGB, (dir / "a.Vyx").c_str(), 0, nullptr), -9);
    VyxBuilder noColour;
    noColour.vertices({1, 2, 3}).end();
    EXPECT_EQ(ReadVertColorVyx(noColour.save(dir / "d.Vyx").c_str(), out.data()), -1760);
    std::string badOut = dir / "no/such.txt";
    EXPECT_EQ(ReadVertColorVyx((dir / "a.Vyx").c_str(), badOut.data()), -2);
}

TEST(Vyx, FaceRunsPerLevel) {
    TempDir dir;
    VyxBuilder base;  // the face block first, as the host hands it
    base.faces({0, 1, 2, kTri, 2, 1, 3, kTri, 0, 1, 2, 3}).end();
    const std::string path = base.save(dir / "base.Vyx");
    EXPECT_EQ(callFn(getFaceIDs, path.c_str(), 1), 3);
    EXPECT_EQ(faceID, (std::vector<uint32_t>{3, 3, 4}));
    EXPECT_EQ(callFn(getFaceIDs, path.c_str(), 2), 3);  // a second call replaces the runs
    EXPECT_EQ(faceID, (std::vector<uint32_t>{12, 12, 16}));
    EXPECT_EQ(GetFaceIDsVyx(path.c_str(), 3), 3);
    EXPECT_EQ(faceID, (std::vector<uint32_t>{48, 48, 64}));
    EXPECT_EQ(GetFaceIDsVyx(path.c_str(), 1.5), 3);  // 4^0.5
    EXPECT_EQ(faceID, (std::vector<uint32_t>{6, 6, 8}));
    EXPECT_EQ(GetFaceIDsVyx(path.c_str(), 0.5), 3);  // 4^-0.5 truncates to 0
    EXPECT_EQ(faceID, (std::vector<uint32_t>{0, 0, 0}));
    // Along the chain when the first block is another one.
    EXPECT_EQ(GetFaceIDsVyx(smallMesh().save(dir / "mesh.Vyx").c_str(), 1), 3);
    EXPECT_EQ(faceID, (std::vector<uint32_t>{3, 4, 3}));

    EXPECT_EQ(callFn(getFaceIDs, nullptr, 1), -9);
    EXPECT_EQ(faceID.size(), 3u);
    EXPECT_EQ(GetFaceIDsVyx((dir / "missing.Vyx").c_str(), 1), -1760);
    EXPECT_TRUE(faceID.empty());  // emptied even when the file is not there
    VyxBuilder noFaces, huge;
    noFaces.vertices({1, 2, 3}).end();
    huge.head(kVyxFaceTag, 32, 0x10000000, be32(0) + be32(1) + be32(2) + be32(kTri));
    faceID = {9};
    EXPECT_EQ(GetFaceIDsVyx(noFaces.save(dir / "n.Vyx").c_str(), 1), -1760);
    EXPECT_TRUE(faceID.empty());
    EXPECT_EQ(GetFaceIDsVyx(huge.save(dir / "h.Vyx").c_str(), 1), -1760);
    EXPECT_TRUE(faceID.empty());
}

TEST(Vyx, VertexSwapChangesOnlyTheVertexRecords) {
    TempDir dir;
    VyxBuilder mesh;
    mesh.block(7, 2, "unknown!")
        .vertices({1, 2, 3, 4, 5, 6})
        .colours({0x01020304, 0x05060708})
        .vertices({7, 8, 9, 10, 11, 12})  // a second vertex block stays as it is
        .uvs({0, 0, 1, 1, 0, 1, 1, 0})
        .end();
    const std::string vyx = mesh.save(dir / "part.Vyx");
    ::chmod(vyx.c_str(), 0640);
    std::string vyt = dir / "posed.Vyt";
    const std::string posed = f32(-1) + f32(-2) + f32(-3) + f32(0.25f) + f32(0.5f) + f32(0.75f);
    kvtest::writeAll(vyt, be32(kVyxVertexTag) + be32(16 + 24) + be32(2) + be32(0) + posed);

    // memBlock1 is the Vyx file, text the vertex file.
    std::string mem1 = vyx;
    EXPECT_EQ(callFn(SwapVertices_Vyx, vyt.c_str(), 0, mem1.data()), 0);
    std::string expected = mesh.bytes;
    expected.replace(32 + 24 + 16, 24, posed);
    EXPECT_EQ(kvtest::readAll(vyx), expected);
    struct stat st {};
    ASSERT_EQ(::stat(vyx.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);

    // Failures leave the file as it is.
    auto refused = [&](const std::string& vertexFile, const std::string& vyxFile, int code) {
        const std::string before = kvtest::readAll(vyxFile);
        std::string target = vyxFile;
        EXPECT_EQ(callFn(SwapVertices_Vyx, vertexFile.c_str(), 0, target.data()), code) << vertexFile;
        EXPECT_EQ(kvtest::readAll(vyxFile), before);
    };
    std::string other = dir / "other.Vyt";
    kvtest::writeAll(other, be32(kVyxVertexTag) + be32(16 + 36) + be32(3) + be32(0) + posed + f32(1) + f32(1) + f32(1));
    refused(other, vyx, -301);  // another count
    kvtest::writeAll(other, be32(kVyxVertexTag) + be32(16 + 28) + be32(2) + be32(0) + posed);
    refused(other, vyx, -301);  // same count, another length
    refused(dir / "missing.Vyt", vyx, -201);
    std::string missing = dir / "missing.Vyx";
    EXPECT_EQ(callFn(SwapVertices_Vyx, vyt.c_str(), 0, missing.data()), -1760);
    EXPECT_EQ(callFn(SwapVertices_Vyx, nullptr, 0, mem1.data()), -2);
    EXPECT_EQ(callFn(SwapVertices_Vyx, vyt.c_str(), 0, nullptr), -2);

    VyxBuilder noVertices, cut;
    noVertices.colours({1}).faces({0, 1, 2, kTri}).end();
    refused(vyt, noVertices.save(dir / "nov.Vyx"), -18);
    cut.block(7, 0, "").head(kVyxVertexTag, 16 + 24, 2, f32(1) + f32(2));
    refused(vyt, cut.save(dir / "cut.Vyx"), -1760);

    // An empty vertex block takes an empty vertex file: nothing to copy.
    VyxBuilder empty;
    empty.vertices({}).colours({}).end();
    kvtest::writeAll(other, be32(kVyxVertexTag) + be32(16) + be32(0) + be32(0));
    std::string emptyPath = empty.save(dir / "empty.Vyx");
    EXPECT_EQ(swapVerticesVyx(emptyPath.c_str(), other.c_str()), 0);
    EXPECT_EQ(kvtest::readAll(emptyPath), empty.bytes);
}

TEST(Vyx, UVTileRuleNamesAndOrder) {
    EXPECT_EQ(tileOfUV(0.5f, 0.99f).name, "00");
    EXPECT_EQ(tileOfUV(1.0f, 0.0f).name, "10");                 // an integer is the tile it starts
    EXPECT_EQ(tileOfUV(-1.0f, 0.5f).name, "-20");               // a negative integer falls one lower
    EXPECT_EQ(tileOfUV(-0.5f, 2.5f).name, "-12");
    EXPECT_EQ(tileOfUV(-0.0f, -0.0f).name, "00");               // negative zero is not below zero
    const UV_tile t = tileOfUV(-2.25f, 11.0f);
    EXPECT_EQ(t.u, -3);
    EXPECT_EQ(t.v, 11);
    // Ordered by name text, equal names are one tile.
    std::set<UV_tile> tiles{tileOfUV(1, 12), tileOfUV(11, 2), tileOfUV(0, 0), tileOfUV(-1, 2), tileOfUV(2, 0)};
    std::vector<std::string> names;
    for (const UV_tile& tile : tiles) names.push_back(tile.name);
    EXPECT_EQ(names, (std::vector<std::string>{"-22", "00", "112", "20"}));
}

TEST(Vyx, UVSplitWritesOneFilePerTile) {
    TempDir dir;
    // Face 0 in tile 00 with a corner at u = 1 (tile 10); face 1 in tile 10; face 2 starts at
    // u = -1 (tile -20). The colour block after the UV block is not copied.
    VyxBuilder mesh;
    mesh.vertices({1, 2, 3})
        .uvs({0.25f, 0.5f, 1.0f, 0.5f, 0.75f, 0.75f, 0.5f, 0.25f,   //
              1.5f, 0.25f, 1.0f, 0.5f, 0.25f, 0.5f, 1.75f, 0.125f,  //
              -1.0f, 0.5f, -0.25f, 0.5f, -1.5f, -0.0f, 3.0f, 3.0f})
        .colours({5})
        .end();
    const std::string vyx = mesh.save(dir / "head.Vyx");
    char last[64] = "untouched";
    EXPECT_EQ(callFn(GetUVTile, vyx.c_str(), 0, last), 3);
    EXPECT_STREQ(last, "-20");

    EXPECT_EQ(callFn(GetUVsFromVyx, vyx.c_str(), 0, nullptr), 3);
    ASSERT_EQ(UVTileStr, (std::vector<std::string>{dir / "head0.Vyx", dir / "head1.Vyx", dir / "head2.Vyx"}));
    const size_t prefix = 32 + 16 + 12 + 16;
    const std::string head = mesh.bytes.substr(0, prefix);
    auto tileFile = [&](const std::vector<float>& uv) {
        std::string s = head;
        for (float c : uv) s += f32(c);
        return s + std::string(16, '\0');
    };
    const float o = -1.0f;  // a corner outside the file's tile
    EXPECT_EQ(kvtest::readAll(dir / "head0.Vyx"),  // tile -2 0: -1 gives negative zero, kept
              tileFile({o, o, o, o, o, o, o, o, o, o, o, o, o, o, o, o, -0.0f, 0.5f, o, o, 0.5f, -0.0f, o, o}));
    EXPECT_EQ(kvtest::readAll(dir / "head1.Vyx"),  // tile 0 0
              tileFile({0.25f, 0.5f, o, o, 0.75f, 0.75f, 0.5f, 0.25f, o, o, o, o, 0.25f, 0.5f, o, o, o, o, o, o, o, o,
                        o, o}));
    EXPECT_EQ(kvtest::readAll(dir / "head2.Vyx"),  // tile 1 0: u = 1 has fraction 0
              tileFile({o, o, 0.0f, 0.5f, o, o, o, o, 0.5f, 0.25f, 0.0f, 0.5f, o, o, 0.75f, 0.125f, o, o, o, o, o, o,
                        o, o}));
    // The names, one by one; an entry that is not there leaves the buffer alone.
    char name[256] = "untouched";
    EXPECT_EQ(callFn(getUVTileString, nullptr, 1, name), 0);
    EXPECT_EQ(std::string(name), dir / "head1.Vyx");
    std::strcpy(name, "untouched");
    for (double bad : {3.0, -1.0, 1e12}) {
        EXPECT_EQ(callFn(getUVTileString, nullptr, bad, name), 0);
        EXPECT_STREQ(name, "untouched");
    }
    EXPECT_EQ(callFn(clearUVTileString, nullptr), 0);
    EXPECT_TRUE(UVTileStr.empty());
    EXPECT_EQ(callFn(getUVTileString, nullptr, 0, name), 0);
    EXPECT_STREQ(name, "untouched");

    // A file that cannot be written: 1501 + its position; the names before it stay listed.
    ASSERT_EQ(::mkdir((dir / "head1.Vyx.d").c_str(), 0755), 0);
    std::remove((dir / "head1.Vyx").c_str());
    ASSERT_EQ(::rename((dir / "head1.Vyx.d").c_str(), (dir / "head1.Vyx").c_str()), 0);
    EXPECT_EQ(splitUVTiles(vyx.c_str()), 1502);
    EXPECT_EQ(UVTileStr, std::vector<std::string>{dir / "head0.Vyx"});

    // No UV block: no tiles, nothing written, the buffer and the names emptied as before.
    VyxBuilder plain;
    plain.vertices({1, 2, 3}).end();
    const std::string plainPath = plain.save(dir / "plain.Vyx");
    EXPECT_EQ(callFn(GetUVTile, plainPath.c_str(), 0, last), 0);
    EXPECT_STREQ(last, "-20");
    EXPECT_EQ(splitUVTiles(plainPath.c_str()), 0);
    EXPECT_TRUE(UVTileStr.empty());
    EXPECT_FALSE(kvtest::exists(dir / "plain0.Vyx"));

    // No file: -17 and -1760, the buffer left as it was.
    EXPECT_EQ(callFn(GetUVTile, nullptr, 0, last), -17);
    EXPECT_EQ(callFn(GetUVsFromVyx, nullptr), -1760);
    EXPECT_STREQ(last, "-20");
}

TEST(NumText, MatchesPrintfAndToChars) {
    // Every 39989th bit pattern (all exponents, both signs, NaN and infinities among them) and
    // the values at the edges of the fast path: decade limits, rounding ties, 1e+06 after rounding.
    std::vector<float> values;
    for (uint64_t bits = 0; bits <= 0xFFFFFFFFu; bits += 39989) values.push_back(std::bit_cast<float>(uint32_t(bits)));
    for (float f : {0.0f, -0.0f, 1.0f, 0.5f, 1e-5f, 9.99999e-5f, 0.0001f, 99999.95f, 999999.5f, 999999.4f, 100000.5f,
                    1234565.0f, 0.1234565f, 1e-20f, 1e-21f, 3.4e38f, 1.17549435e-38f, 1e5f, 1e6f, 123456.5f})
        for (float s : {f, -f, std::nextafter(f, 0.0f), std::nextafter(f, 1e30f)}) values.push_back(s);
    size_t mismatches = 0;
    for (float f : values) {
        char ours[32], theirs[32];
        *kv::putG(ours, f) = '\0';
        std::snprintf(theirs, sizeof theirs, "%g", static_cast<double>(f));
        if (std::strcmp(ours, theirs) != 0 && ++mismatches < 5)
            ADD_FAILURE() << std::bit_cast<uint32_t>(f) << ": " << ours << " vs " << theirs;
    }
    EXPECT_EQ(mismatches, 0u) << "of " << values.size();

    for (int32_t i : {0, 9, 10, 99, 100, 999999, 1000000, 123456789, 999999999, 1000000000, INT32_MAX, -1, -10,
                      -1000000000, INT32_MIN}) {
        char ours[16], theirs[16];
        EXPECT_EQ(std::string(ours, kv::putInt(ours, i)), std::string(theirs, std::to_chars(theirs, theirs + 16, i).ptr));
    }
    char text[16];
    EXPECT_EQ(std::string(text, kv::putUint(text, UINT32_MAX)), "4294967295");
}
