// The TPose project file: writing, attaching data files, reopening and extracting, on sound
// and on hostile files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>

#include "FrameState.h"
#include "PrjFile.h"
#include "kelvane/Kelvane4.h"
#include "testutil.h"

using kvtest::be32;
using kvtest::TempDir;

namespace {

float call(KelvaneFn fn, const char* text, const char* mem1 = nullptr, double number = 0) {
    char mem2[8] = {};
    return fn(text, number, const_cast<char*>(mem1), mem2);
}

std::string header(uint32_t count, uint32_t modifier = 0) { return be32(0) + be32(0) + be32(count) + be32(modifier); }

std::string record(uint32_t value, const std::string& name, const std::string& data) {
    std::string r = be32(value) + name;
    r.resize(4 + 255, '\0');
    r += data;
    r.resize(516, '\0');
    return r;
}

std::string chunk(uint32_t number, const std::string& data, char padding) {
    return be32(number) + be32(uint32_t(data.size() + 16)) + be32(0) + be32(0) + data + padding;
}

std::set<std::string> entries(const std::string& dir) {
    std::set<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir)) names.insert(e.path().filename().string());
    return names;
}

void addRef(const char* name, double value, const char* data) {
    ASSERT_EQ(call(AddTPoseRef, name, data, value), 0);
}

}  // namespace

TEST(PrjFile, WriteChecksAndExactLayout) {
    TempDir dir;
    const std::string prj = dir / "poses.prj";
    call(ClearTPoseList, nullptr);
    EXPECT_EQ(call(WritePrjFile, nullptr), -3);  // the empty list is checked before the path
    EXPECT_EQ(call(WritePrjFile, prj.c_str()), -3);
    EXPECT_FALSE(kvtest::exists(prj));

    addRef("rest", 1, "rest.dat");
    addRef("arms up", 4000000000.0, "up.dat");
    call(SetPrjModfier, nullptr, nullptr, 77);
    EXPECT_EQ(call(WritePrjFile, nullptr), -1);

    ASSERT_EQ(call(WritePrjFile, prj.c_str()), 0);
    const std::string expected = header(2, 77) + record(1, "rest", "rest.dat") + record(4000000000u, "arms up", "up.dat");
    EXPECT_EQ(kvtest::readAll(prj), expected);

    // A rewrite replaces the whole file and keeps its permission bits.
    ASSERT_EQ(::chmod(prj.c_str(), 0640), 0);
    call(ClearTPoseList, nullptr);
    addRef("one", 9, "x");
    ASSERT_EQ(call(WritePrjFile, prj.c_str()), 0);
    EXPECT_EQ(kvtest::readAll(prj), header(1) + record(9, "one", "x"));
    struct stat st {};
    ASSERT_EQ(::stat(prj.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(entries(dir.path), (std::set<std::string>{"poses.prj"}));  // no temporary left behind
    call(ClearTPoseList, nullptr);
}

TEST(PrjFile, AddDatFileAppendsOneChunkWithItsPaddingByte) {
    TempDir dir;
    const std::string prj = dir / "p.prj", dat = dir / "12.dat";
    kvtest::writeAll(prj, header(0));
    std::string data;
    for (int i = 0; i < 100; ++i) data += char(i * 7 + 3);
    kvtest::writeAll(dat, data);

    EXPECT_EQ(call(AddDatFile, nullptr, prj.c_str()), 0);  // null arguments: nothing done
    EXPECT_EQ(call(AddDatFile, dat.c_str(), nullptr), 0);
    EXPECT_EQ(call(AddDatFile, (dir / "none.dat").c_str(), (dir / "missing/p.prj").c_str()), -1);  // data first
    EXPECT_EQ(call(AddDatFile, dat.c_str(), (dir / "missing/p.prj").c_str()), -2);
    EXPECT_EQ(kvtest::readAll(prj), header(0));

    ASSERT_EQ(call(AddDatFile, dat.c_str(), prj.c_str()), 0);
    const std::string after = kvtest::readAll(prj);
    ASSERT_EQ(after.size(), 16u + 117u);
    EXPECT_EQ(after.substr(16), chunk(12, data, data.back()));  // 12, 116, 0, 0, data, last byte again

    // An empty data file gets the padding byte 0; the project's header is never touched.
    const std::string empty = dir / "7.v2.dat";
    kvtest::writeAll(empty, "");
    ASSERT_EQ(call(AddDatFile, empty.c_str(), prj.c_str()), 0);
    EXPECT_EQ(kvtest::readAll(prj), header(0) + chunk(12, data, data.back()) + chunk(7, "", '\0'));

    // The number is read from the name without folder and extension.
    EXPECT_EQ(datFileNumber("C:\\a.b\\305.dat"), 305u);
    EXPECT_EQ(datFileNumber("/a.b/42pose.v2.dat"), 42u);
    EXPECT_EQ(datFileNumber("/x/4294967295"), 4294967295u);
    EXPECT_EQ(datFileNumber("/x/4294967296.dat"), 0u);
    EXPECT_EQ(datFileNumber("/x/-3.dat"), 0u);
}

TEST(PrjFile, RoundTripRestoresEveryRecordAndExtractsEveryDataFile) {
    TempDir dir, out;
    const std::string prj = dir / "scene.prj";
    call(ClearTPoseList, nullptr);
    addRef("rest", 1, "rest data");
    addRef("arms up", 2, "");
    addRef(std::string(254, 'n').c_str(), 4294967295.0, std::string(256, 'd').c_str());
    call(SetPrjModfier, nullptr, nullptr, 3);
    const std::vector<TPoseRef> written = tPoseList;
    uint32_t writtenHdr[4];
    std::memcpy(writtenHdr, thisPrjHdr, sizeof writtenHdr);
    ASSERT_EQ(call(WritePrjFile, prj.c_str()), 0);

    std::string a(100, '\0'), b;
    for (size_t i = 0; i < a.size(); ++i) a[i] = char(255 - i);
    for (int i = 0; i < 70000; ++i) b += char(i % 251);
    kvtest::writeAll(dir / "12.dat", a);
    kvtest::writeAll(dir / "3000000000.bin", b);
    ASSERT_EQ(call(AddDatFile, (dir / "12.dat").c_str(), prj.c_str()), 0);
    ASSERT_EQ(call(AddDatFile, (dir / "3000000000.bin").c_str(), prj.c_str()), 0);

    call(ClearTPoseList, nullptr);
    EXPECT_EQ(call(OpenPrjFile, nullptr, (out / "x").c_str()), 0);  // null arguments: nothing done
    EXPECT_EQ(call(OpenPrjFile, prj.c_str(), nullptr), 0);
    EXPECT_TRUE(tPoseList.empty());

    // Opened twice: the second opening replaces what the first one read.
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(call(OpenPrjFile, prj.c_str(), (out / "anything.txt").c_str()), 0);
        ASSERT_EQ(tPoseList.size(), written.size());
        for (size_t i = 0; i < written.size(); ++i)
            EXPECT_EQ(std::memcmp(&tPoseList[i], &written[i], sizeof(TPoseRef)), 0) << "record " << i;
        EXPECT_EQ(std::memcmp(thisPrjHdr, writtenHdr, sizeof writtenHdr), 0);
    }
    EXPECT_EQ(entries(out.path), (std::set<std::string>{"12X.dat", "3000000000X.dat"}));
    EXPECT_EQ(kvtest::readAll(out / "12X.dat"), a);
    EXPECT_EQ(kvtest::readAll(out / "3000000000X.dat"), b);
    char value[300];
    EXPECT_EQ(call(GetTPoseRef, "rest", value), 1);
    EXPECT_STREQ(value, "rest data");

    // Written again from what was read, the project's references come out byte for byte.
    const std::string again = dir / "again.prj";
    ASSERT_EQ(call(WritePrjFile, again.c_str()), 0);
    const std::string original = kvtest::readAll(prj);
    EXPECT_EQ(kvtest::readAll(again), original.substr(0, 16 + 3 * 516));

    // A project without chunks opens and extracts nothing.
    TempDir empty;
    ASSERT_EQ(call(OpenPrjFile, again.c_str(), (empty / "x").c_str()), 0);
    EXPECT_EQ(tPoseList.size(), 3u);
    EXPECT_TRUE(entries(empty.path).empty());
    call(ClearTPoseList, nullptr);
}

TEST(PrjFile, HostileProjectsAreReadOnlyAsFarAsTheyGo) {
    TempDir dir, out;
    const std::string prj = dir / "bad.prj", target = out / "x";
    auto open = [&](const std::string& bytes) {
        kvtest::writeAll(prj, bytes);
        return call(OpenPrjFile, prj.c_str(), target.c_str());
    };

    // A count far beyond the file: only the record that is wholly present is taken, nothing is
    // reserved for the others, and no chunk is looked for beyond the counted records.
    std::vector<TPoseRef>().swap(tPoseList);  // no capacity left over from earlier tests
    const std::string rec = record(5, "only", "one");
    ASSERT_EQ(open(header(0xFFFFFFFFu, 9) + rec + rec.substr(0, 300) + chunk(1, "abc", 'c')), 0);
    ASSERT_EQ(tPoseList.size(), 1u);
    EXPECT_LE(tPoseList.capacity(), 1u);
    EXPECT_EQ(thisPrjHdr[2], 0xFFFFFFFFu);  // the header holds what was read
    EXPECT_EQ(thisPrjHdr[3], 9u);
    EXPECT_TRUE(entries(out.path).empty());

    // A header cut short: its missing bytes count as zeros, the list is emptied.
    addRef("stale", 1, "stale");
    ASSERT_EQ(open(std::string("\0\0\0\1\0\0", 6)), 0);
    EXPECT_TRUE(tPoseList.empty());
    EXPECT_EQ(thisPrjHdr[0], 1u);
    EXPECT_EQ(thisPrjHdr[2], 0u);
    ASSERT_EQ(open(""), 0);
    EXPECT_EQ(thisPrjHdr[0], 0u);

    // Fields that fill their whole width are cut to keep the lookups inside the record.
    std::string full = be32(6) + std::string(255, 'N') + std::string(257, 'D');
    ASSERT_EQ(open(header(1) + full), 0);
    char value[300];
    EXPECT_EQ(call(GetTPoseRef, std::string(254, 'N').c_str(), value), 6);
    EXPECT_EQ(std::string(value), std::string(256, 'D'));

    // Chunk lengths 0 and 15 are skipped and the walk steps past them plus one byte; a length
    // of 2^32-1, or one that reaches the end of the file, is skipped and ends the walk.
    // Here a header of length 0 at P overlaps one of length 15 at P + 1 (number 5632 ends in a 0
    // byte, which is the last length byte of the first), and a sound chunk follows at P + 17.
    std::string hostile = header(0) + '\0' + be32(5632) + be32(15) + be32(0) + be32(0);
    hostile += chunk(23, "kept", 't') + be32(24) + be32(0xFFFFFFFFu) + be32(0) + be32(0) + "tail";
    ASSERT_EQ(open(hostile), 0);
    EXPECT_EQ(entries(out.path), (std::set<std::string>{"23X.dat"}));
    EXPECT_EQ(kvtest::readAll(out / "23X.dat"), "kept");

    std::filesystem::remove(out / "23X.dat");
    ASSERT_EQ(open(header(0) + std::string(4096, '\0')), 0);  // lengths 0 all along: one byte per step
    EXPECT_TRUE(entries(out.path).empty());
    // Exactly 16 bytes after the records is no chunk (P + 16 < S is needed).
    ASSERT_EQ(open(header(0) + be32(27) + be32(16) + be32(0) + be32(0)), 0);
    EXPECT_TRUE(entries(out.path).empty());
    // With one byte more, an empty data file is extracted.
    ASSERT_EQ(open(header(0) + chunk(27, "", '\0')), 0);
    EXPECT_EQ(entries(out.path), (std::set<std::string>{"27X.dat"}));
    EXPECT_EQ(kvtest::readAll(out / "27X.dat"), "");

    // A chunk whose output cannot be created is skipped; the next one is still extracted.
    std::filesystem::remove(out / "27X.dat");
    std::filesystem::create_directory(out / "28X.dat");
    ASSERT_EQ(open(header(0) + chunk(28, "blocked", 'd') + chunk(29, "free", 'e')), 0);
    EXPECT_TRUE(std::filesystem::is_directory(out / "28X.dat"));
    EXPECT_EQ(kvtest::readAll(out / "29X.dat"), "free");
    call(ClearTPoseList, nullptr);
}

// Every cut in the header, around the record ends and anywhere among the chunks.
TEST(PrjFile, ProjectCutAtEveryOffsetYieldsWhatIsWhole) {
    TempDir dir, out;
    const std::string prj = dir / "cut.prj";
    const std::string a = "first data file", b(40, 'b');
    const std::string full = header(2, 1) + record(1, "rest", "r") + record(2, "up", "u") + chunk(31, a, a.back()) +
                             chunk(32, b, b.back());
    const size_t end31 = 16 + 2 * 516 + 16 + a.size();  // E of each chunk: its start + L
    const size_t end32 = end31 + 1 + 16 + b.size();
    for (size_t cut = 0; cut <= full.size(); ++cut) {
        if ((cut > 20 && cut < 16 + 516 - 4) || (cut > 16 + 516 + 4 && cut < 16 + 2 * 516 - 4)) continue;
        SCOPED_TRACE(cut);
        kvtest::writeAll(prj, full.substr(0, cut));
        ASSERT_EQ(call(OpenPrjFile, prj.c_str(), (out / "x").c_str()), 0);
        EXPECT_EQ(tPoseList.size(), std::min<size_t>(2, cut < 16 ? 0 : (cut - 16) / 516));
        std::set<std::string> expected;
        if (cut > end31) expected.insert("31X.dat");
        if (cut > end32) expected.insert("32X.dat");
        ASSERT_EQ(entries(out.path), expected);
        if (cut > end31) {
            EXPECT_EQ(kvtest::readAll(out / "31X.dat"), a);
        }
        if (cut > end32) {
            EXPECT_EQ(kvtest::readAll(out / "32X.dat"), b);
        }
        for (const std::string& name : expected) std::filesystem::remove(out / name);
    }
    call(ClearTPoseList, nullptr);
}
