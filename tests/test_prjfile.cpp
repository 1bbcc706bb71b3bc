// The TPose project file: the exact layout written, data files attached as chunks, and a
// project reopened into the same records with its data files extracted.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "FrameState.h"
#include "PrjFile.h"
#include "meshfiles.h"

using namespace kvtest;

namespace {

void addRef(const char* name, double value, const char* data) { ASSERT_EQ(callFn(AddTPoseRef, name, value, data), 0); }

}  // namespace

TEST(PrjFile, WriteAttachReopen) {
    TempDir dir, out;
    const std::string prj = dir / "scene.prj";
    callFn(ClearTPoseList);
    EXPECT_EQ(callFn(WritePrjFile, nullptr), -3);  // the empty list is checked before the path
    EXPECT_EQ(callFn(WritePrjFile, prj), -3);
    EXPECT_FALSE(exists(prj));
    addRef("rest", 1, "rest data");
    addRef("arms up", 4000000000.0, "");
    addRef(std::string(254, 'n').c_str(), 4294967295.0, std::string(256, 'd').c_str());
    callFn(SetPrjModfier, nullptr, 77);
    EXPECT_EQ(callFn(WritePrjFile, nullptr), -1);
    ASSERT_EQ(callFn(WritePrjFile, prj), 0);
    const std::string records = prjHeader(3, 77) + prjRecord(1, "rest", "rest data") + prjRecord(4000000000u, "arms up", "") +
                                prjRecord(4294967295u, std::string(254, 'n'), std::string(256, 'd'));
    EXPECT_EQ(readAll(prj), records);
    const std::vector<TPoseRef> written = tPoseList;

    // Data files go after the records as chunks: number, length, two zero words, the bytes and
    // the last byte again (0 for an empty file); the number is read from the file's name.
    std::string a(100, '\0'), b;
    for (size_t i = 0; i < a.size(); ++i) a[i] = char(255 - i);
    for (int i = 0; i < 70000; ++i) b += char(i % 251);
    writeAll(dir / "12.dat", a);
    writeAll(dir / "3000000000.bin", b);
    writeAll(dir / "7.dat", "");
    EXPECT_EQ(callFn(AddDatFile, dir / "none.dat", 0, dir / "missing/p.prj"), -1);  // the data file first
    EXPECT_EQ(callFn(AddDatFile, dir / "12.dat", 0, dir / "missing/p.prj"), -2);
    for (const char* name : {"12.dat", "3000000000.bin", "7.dat"}) ASSERT_EQ(callFn(AddDatFile, dir / name, 0, prj), 0);
    EXPECT_EQ(readAll(prj), records + prjChunk(12, a) + prjChunk(3000000000u, b) + prjChunk(7, ""));
    for (auto [path, number] : std::vector<std::pair<const char*, uint32_t>>{
             {"C:\\a.b\\305.dat", 305}, {"/a.b/42pose.v2.dat", 42}, {"/x/4294967295", 4294967295u}, {"/x/4294967296.dat", 0}, {"/x/-3.dat", 0}})
        EXPECT_EQ(datFileNumber(path), number) << path;

    // Reopened (twice: the second replaces what the first read), the records come back byte
    // for byte and every chunk is extracted as <number>X.dat in the target's folder.
    callFn(ClearTPoseList);
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(callFn(OpenPrjFile, prj, 0, out / "anything.txt"), 0);
        ASSERT_EQ(tPoseList.size(), written.size());
        for (size_t i = 0; i < written.size(); ++i) EXPECT_EQ(std::memcmp(&tPoseList[i], &written[i], sizeof(TPoseRef)), 0) << i;
    }
    EXPECT_EQ(listing(out.path), "12X.dat 3000000000X.dat 7X.dat ");
    EXPECT_EQ(readAll(out / "12X.dat"), a);
    EXPECT_EQ(readAll(out / "3000000000X.dat"), b);
    EXPECT_EQ(callFn(GetPrjModfier), 77);
    // Written again from what was read: the same records. A rewrite keeps the file's mode.
    ::chmod(prj.c_str(), 0640);
    ASSERT_EQ(callFn(WritePrjFile, prj), 0);
    EXPECT_EQ(readAll(prj), records);
#ifndef _WIN32  // Windows files have attributes, no modes: test_windows.cpp
    struct stat st {};
    ASSERT_EQ(::stat(prj.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
#endif
    EXPECT_EQ(listing(dir.path), "12.dat 3000000000.bin 7.dat scene.prj ");  // no temporary left behind
    callFn(ClearTPoseList);
}

TEST(PrjFile, HostileProjectsAreReadOnlyAsFarAsTheyGo) {
    TempDir dir, out;
    auto open = [&](const std::string& bytes) {
        writeAll(dir / "bad.prj", bytes);
        return callFn(OpenPrjFile, dir / "bad.prj", 0, out / "x");
    };
    // A count far beyond the file: only whole records are taken, nothing is reserved for the
    // others, and no chunk is looked for beyond the counted records.
    std::vector<TPoseRef>().swap(tPoseList);
    const std::string rec = prjRecord(5, "only", "one");
    ASSERT_EQ(open(prjHeader(0xFFFFFFFFu, 9) + rec + rec.substr(0, 300) + prjChunk(1, "abc")), 0);
    ASSERT_EQ(tPoseList.size(), 1u);
    EXPECT_LE(tPoseList.capacity(), 1u);
    EXPECT_EQ(thisPrjHdr[2], 0xFFFFFFFFu);  // the header holds what was read
    EXPECT_EQ(listing(out.path), "");
    // A header cut short: its missing bytes count as zeros, the list is emptied.
    ASSERT_EQ(open(std::string("\0\0\0\1\0\0", 6)), 0);
    EXPECT_TRUE(tPoseList.empty());
    EXPECT_EQ(thisPrjHdr[0], 1u);
    // Fields that fill their whole width are cut to keep the lookups inside the record.
    ASSERT_EQ(open(prjHeader(1) + be32(6) + std::string(255, 'N') + std::string(257, 'D')), 0);
    char value[300];
    EXPECT_EQ(callFn(GetTPoseRef, std::string(254, 'N').c_str(), 0, value), 6);
    EXPECT_EQ(std::string(value), std::string(256, 'D'));

    // Chunk lengths 0 and 15 are skipped and the walk steps past them plus one byte; a length
    // of 2^32-1, or one that reaches the end of the file, is skipped and ends the walk. Here a
    // head of length 0 at P overlaps one of length 15 at P + 1, and a sound chunk follows at P + 17.
    std::string hostile = prjHeader(0) + '\0' + be32(5632) + be32(15) + be32(0) + be32(0);
    hostile += prjChunk(23, "kept") + be32(24) + be32(0xFFFFFFFFu) + be32(0) + be32(0) + "tail";
    ASSERT_EQ(open(hostile), 0);
    EXPECT_EQ(listing(out.path), "23X.dat ");
    EXPECT_EQ(readAll(out / "23X.dat"), "kept");
    std::filesystem::remove(out / "23X.dat");
    ASSERT_EQ(open(prjHeader(0) + std::string(4096, '\0')), 0);  // lengths 0 all along
    ASSERT_EQ(open(prjHeader(0) + be32(27) + be32(16) + be32(0) + be32(0)), 0);  // P + 16 < S is needed
    EXPECT_EQ(listing(out.path), "");
    ASSERT_EQ(open(prjHeader(0) + prjChunk(27, "")), 0);
    EXPECT_EQ(readAll(out / "27X.dat"), "");
    // A chunk whose output cannot be created is skipped; the next one is still extracted.
    std::filesystem::create_directory(out / "28X.dat");
    ASSERT_EQ(open(prjHeader(0) + prjChunk(28, "blocked") + prjChunk(29, "free")), 0);
    EXPECT_EQ(readAll(out / "29X.dat"), "free");
    callFn(ClearTPoseList);
}
