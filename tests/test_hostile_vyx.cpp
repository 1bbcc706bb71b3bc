// Hostile Vyx meshes and vertex files: every cut of a sound mesh, and counts and lengths at
// their limits, through every Vyx export. Each call gives one of its codes, writes nothing on
// failure, leaves everything outside the output folder alone and holds no more memory than a
// small multiple of its input.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "VyxOps.h"
#include "hostile.h"

using namespace kvtest;

namespace {

const uint32_t kTri = 0xFFFFFFFFu;

// A mesh of three vertices, three colours, two faces with UVs in tiles 00 and 10, and the end
// block. The block starts and ends are kept for the cut tests.
struct Mesh {
    std::string bytes = std::string(32, 'H');
    size_t vertexAt, colourAt, faceAt, uvAt, endAt;
    Mesh() {
        vertexAt = bytes.size();
        bytes += be32(kVyxVertexTag) + be32(16 + 36) + be32(3) + be32(0);
        for (float c : {0.f, 1.f, 2.f, 3.f, 4.f, 5.f, 6.f, 7.f, 8.f}) bytes += f32(c);
        colourAt = bytes.size();
        bytes += be32(kVyxColourTag) + be32(16 + 12) + be32(3) + be32(0) + be32(0x10203000) + be32(0x40506000) + be32(0x70809000);
        faceAt = bytes.size();
        bytes += be32(kVyxFaceTag) + be32(16 + 32) + be32(2) + be32(0);
        for (uint32_t i : {0u, 1u, 2u, kTri, 2u, 1u, 0u, kTri}) bytes += be32(i);
        uvAt = bytes.size();
        bytes += be32(kVyxUVTag) + be32(16 + 64) + be32(2) + be32(0);
        for (float c : {0.5f, 0.5f, 0.f, 0.f, 1.f, 1.f, 0.f, 0.f, 1.5f, 0.5f, 0.f, 0.f, 1.f, 1.f, 0.f, 0.f}) bytes += f32(c);
        endAt = bytes.size();
        bytes += std::string(16, '\0');
    }
};

// Vertex file for n vertices.
std::string vertexFile(uint32_t n) {
    std::string s = be32(kVyxVertexTag) + be32(16 + 12 * n) + be32(n) + be32(0);
    for (uint32_t i = 0; i < 3 * n; ++i) s += f32(-float(i));
    return s;
}

bool isCount(float r) { return r >= 0 && r == float(int64_t(r)); }

// Runs every Vyx export on the mesh file at out/m.Vyx (written from bytes before each call) and
// checks each result against its codes; expected[k] < -1e9 means "any of the allowed codes".
struct Results {
    float faceIDs, toOBJ, rgb, swap, tile, tiles;
};

// The inputs every case shares: the vertex file, and the sound mesh that sets the face runs.
std::string prepare(const Sandbox& box) {
    box.input("runs.Vyx", Mesh().bytes);
    return box.input("p.Vyt", vertexFile(3));
}

Results runAll(const Sandbox& box, const std::string& bytes, const std::string& vyt) {
    const std::string vyx = box.out + "/m.Vyx", obj = box.out + "/m.obj", rgb = box.out + "/m.rgb";
    Results r{};
    writeAll(vyx, bytes);
    r.faceIDs = callFn(getFaceIDs, vyx.c_str(), 1);
    const bool objBefore = exists(obj);
    // The conversion needs runs: those of the sound mesh (in/runs.Vyx, see prepare).
    const std::string runs = box.in + "/runs.Vyx";
    EXPECT_EQ(callFn(getFaceIDs, runs.c_str(), 1), 2);
    r.toOBJ = callFn(vyxtoOBJ, vyx.c_str(), 0, obj.c_str());
    EXPECT_TRUE(r.toOBJ == 0 || r.toOBJ == -1760 || r.toOBJ > 0) << r.toOBJ;
    if (r.toOBJ == -1760) {
        EXPECT_EQ(exists(obj), objBefore);
    }
    r.rgb = callFn(outMRGB, vyx.c_str(), 0, rgb.c_str());
    EXPECT_TRUE(r.rgb == 0 || r.rgb == -1760) << r.rgb;
    if (r.rgb != 0) {
        EXPECT_FALSE(exists(rgb));
    }
    std::filesystem::remove(obj);
    std::filesystem::remove(rgb);

    r.swap = callFn(SwapVertices_Vyx, vyt.c_str(), 0, vyx.c_str());
    EXPECT_TRUE(r.swap == 0 || r.swap == -18 || r.swap == -301 || r.swap == -1760) << r.swap;
    if (r.swap != 0) {
        EXPECT_EQ(readAll(vyx), bytes);
    } else {
        EXPECT_EQ(readAll(vyx).size(), bytes.size());
    }

    char tile[64] = {};
    writeAll(vyx, bytes);
    r.tile = callFn(GetUVTile, vyx.c_str(), 0, tile);
    EXPECT_TRUE(r.tile == -17 || isCount(r.tile)) << r.tile;
    r.tiles = callFn(GetUVsFromVyx, vyx.c_str(), 0, "");
    EXPECT_TRUE(r.tiles == -1760 || isCount(r.tiles)) << r.tiles;
    // The tile files go next to the mesh: out/m0.Vyx, out/m1.Vyx, ...
    const auto files = box.outputs();
    EXPECT_EQ(files.size(), 1 + (r.tiles > 0 ? size_t(r.tiles) : 0));
    box.clearOut();
    callFn(clearUVTileString, nullptr);
    return r;
}

}  // namespace

TEST(HostileVyx, MeshCutAtEveryOffset) {
    Sandbox box;
    const Mesh mesh;
    const std::string vyt = prepare(box);
    const auto before = box.outside();
    for (size_t cut = 0; cut <= mesh.bytes.size(); ++cut) {
        SCOPED_TRACE(cut);
        const Results r = runAll(box, mesh.bytes.substr(0, cut), vyt);
        // Each operation needs its block whole and nothing after it.
        const size_t faceEnd = mesh.uvAt, colourEnd = mesh.faceAt, vertexEnd = mesh.colourAt, uvEnd = mesh.endAt;
        EXPECT_EQ(r.faceIDs, cut >= faceEnd ? 2 : -1760);
        EXPECT_EQ(r.toOBJ, cut >= faceEnd ? 0 : -1760);
        EXPECT_EQ(r.rgb, cut >= colourEnd ? 0 : -1760);
        // A walk that ends at the end of the file has found nothing; a block whose tag is
        // there but whose records are cut is a read failure.
        EXPECT_EQ(r.swap, cut >= vertexEnd ? 0 : cut >= 36 ? -1760 : -18);
        EXPECT_EQ(r.tile, cut >= uvEnd ? 2 : cut >= mesh.uvAt + 4 ? -17 : 0);
        EXPECT_EQ(r.tiles, cut >= uvEnd ? 2 : cut >= mesh.uvAt + 4 ? -1760 : 0);
    }
    EXPECT_EQ(box.outside(), before);
}

TEST(HostileVyx, VertexFileCutOrMisdeclaredIsRefusedAndTheMeshKept) {
    Sandbox box;
    const Mesh mesh;
    const std::string vyx = box.out + "/m.Vyx";
    writeAll(vyx, mesh.bytes);
    const std::string whole = vertexFile(3);
    std::vector<std::string> bad;
    for (size_t cut = 0; cut < whole.size(); ++cut) bad.push_back(whole.substr(0, cut));
    for (uint32_t count : {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFFu})
        for (uint32_t length : {0u, 16u, 52u, 0x7FFFFFFFu, 0xFFFFFFFFu})
            if (!(count == 3 && length == 52)) bad.push_back(be32(kVyxVertexTag) + be32(length) + be32(count) + be32(0) + whole.substr(16));
    for (const std::string& b : bad) {
        const std::string vyt = box.input("p.Vyt", b);
        EXPECT_EQ(callFn(SwapVertices_Vyx, vyt.c_str(), 0, vyx.c_str()), -301) << b.size();
    }
    EXPECT_EQ(readAll(vyx), mesh.bytes);
    EXPECT_EQ(box.outputs().size(), 1u);
}

// Counts and lengths of each block at 0, 1, 2^31-1 and 2^32-1 (and lengths below a head): each
// call in a child, so that its peak memory is seen and a crash fails only its own case.
TEST(HostileVyx, CountsAndLengthsAtTheirLimits) {
    Sandbox box;
    const Mesh mesh;
    const std::string vyt = prepare(box);
    const auto before = box.outside();
    // The measure sees what a call holds: a 32 MiB buffer written through shows up.
    const Measured big = inChild([] {
        std::vector<char> held(size_t(32) << 20, 'x');
        return float(held[12345]);
    });
    ASSERT_TRUE(big.ok);
    EXPECT_GE(big.growthKiB, 32 * 1024);
    std::vector<std::pair<size_t, const char*>> blocks = {
        {mesh.vertexAt, "vertices"}, {mesh.colourAt, "colours"}, {mesh.faceAt, "faces"}, {mesh.uvAt, "uvs"}, {mesh.endAt, "end"}};
    for (const auto& [at, what] : blocks) {
        for (size_t field : {4u, 8u}) {
            for (uint32_t value : {0u, 1u, 15u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
                std::string bytes = mesh.bytes;
                bytes.replace(at + field, 4, be32(value));
                SCOPED_TRACE(std::string(what) + (field == 4 ? " length " : " count ") + std::to_string(value));
                const Measured m = inChild([&] {
                    const Results r = runAll(box, bytes, vyt);
                    return ::testing::Test::HasFailure() ? -1.f : r.faceIDs;
                });
                ASSERT_TRUE(m.ok);
                EXPECT_NE(m.result, -1.f) << "a check failed in the child";
                if (!kUnderAsan) {
                    EXPECT_LE(m.growthKiB, memoryAllowanceKiB(bytes.size()));
                }
            }
        }
    }
    EXPECT_EQ(box.outside(), before);
}

// Subdivision levels whose run lengths leave 32 bits (or are NaN): the runs wrap as unsigned
// words, and the conversion still stops every run at the end of the face block.
TEST(HostileVyx, FaceRunLevelsAtTheirLimits) {
    Sandbox box;
    const Mesh mesh;
    const std::string vyx = box.input("m.Vyx", mesh.bytes);
    const std::string obj = box.out + "/m.obj";
    const double inf = std::numeric_limits<double>::infinity();
    // level, face lines written: 0 when the runs are 0 (4 to a negative power truncates to 0),
    // else both faces, once each, in the first run.
    const std::vector<std::pair<double, size_t>> levels = {
        {0.0, 0}, {-1e9, 0}, {-inf, 0}, {17.0, 2}, {1e9, 2}, {inf, 2}, {std::numeric_limits<double>::quiet_NaN(), 2}};
    for (const auto& [level, faces] : levels) {
        SCOPED_TRACE(level);
        ASSERT_EQ(callFn(getFaceIDs, vyx.c_str(), level), 2);
        ASSERT_EQ(callFn(vyxtoOBJ, vyx.c_str(), 0, obj.c_str()), 0);
        const std::string text = readAll(obj);
        size_t lines = 0;
        for (size_t at = text.find("\nf "); at != std::string::npos; at = text.find("\nf ", at + 1)) ++lines;
        EXPECT_EQ(lines, faces);
        if (faces) {
            EXPECT_NE(text.find("#FaceID 1\nf 1 2 3 \nf 3 2 1 \n"), std::string::npos) << text;
        }
    }
}
