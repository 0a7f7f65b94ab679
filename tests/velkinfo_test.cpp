// The companion tool on whole and on damaged archives.
#include "archive/index.h"
#include "archive_call.h"
#include "base/block_size.h"
#include "base/byte_order.h"
#include "pipeline/crc32.h"
#include "program.h"
#include "velkinfo/survey.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>

using namespace velk;

namespace {

constexpr std::uint32_t kBlock = 131072;

class Velkinfo : public testing::Test, protected ScratchFolder {
protected:
    Bytes compress(const Bytes &bytes, const std::string &switches) {
        write_file(input, bytes);
        EXPECT_EQ(run_velk({"e", input, archive, switches}).status, 0);
        return read_file(archive);
    }
};

// Six blocks of all sorts, the last one short; one takes the fallback.
const std::vector<Bytes> &six_blocks() {
    static const std::vector<Bytes> blocks = {
        prose(kBlock, 70, "\r\n", 1), code(kBlock, 2), random_bytes(kBlock, 256, 3),
        records(kBlock, 4, 4),        runs(kBlock, 5), prose(30000, 60, "\n", 6)};
    return blocks;
}

Bytes without(const std::set<std::size_t> &lost, bool fill) {
    Bytes result;
    for (std::size_t i = 0; i < six_blocks().size(); ++i) {
        const Bytes &block = six_blocks()[i];
        if (lost.count(i) == 0) append(result, block);
        if (lost.count(i) != 0 && fill && i != 5) result.resize(result.size() + kBlock);
    }
    return result;
}

// `removed` bytes, those `at` behind the start of a record, give way to others.
struct Damage {
    std::size_t record;
    int at, removed;
    Bytes others;
};

// The last damage comes first in the archive, or all keep its length.
Bytes damaged(Bytes archive, const std::vector<Damage> &damages) {
    const std::vector<std::size_t> starts = record_starts(archive);
    for (const Damage &d : damages) {
        const auto from = archive.begin() + static_cast<int>(starts[d.record]) + d.at;
        const auto to = archive.end() - from < d.removed ? archive.end() : from + d.removed;
        const auto place = archive.erase(from, to);
        archive.insert(place, d.others.begin(), d.others.end());
    }
    return archive;
}

Bytes head_of(std::size_t length) {
    Bytes head(kRecordHeadBytes);
    put_record_head(head.data(), static_cast<std::uint32_t>(length));
    return head;
}

TEST_F(Velkinfo, SalvageBringsBackEveryIntactBlock) {
    const struct {
        const char *name;
        std::vector<Damage> damages;
        std::set<std::size_t> lost;
    } cases[] = {
        {"none", {}, {}},
        {"a byte", {{1, 1000, 1, {1}}}, {1}},
        {"bytes of three blocks", {{0, 9, 1, {1}}, {3, 99, 1, {2}}, {5, 9, 1, {3}}}, {0, 3, 5}},
        {"the length in a head", {{2, 2, 1, {1}}}, {}},
        {"the last head", {{5, 0, 1, {1}}}, {}},
        {"a byte, and another length behind", {{1, 99, 1, {1}}, {2, 0, 5, head_of(99)}}, {1}},
        {"bytes taken from a head", {{1, 1, 3, {}}}, {}},
        {"bytes taken from a block", {{3, 90, 50, {}}}, {3}},
        {"bytes put into a block", {{2, 500, 0, random_bytes(700, 256, 9)}}, {2}},
        {"zeros over a head", {{3, -9, 99, Bytes(99)}}, {2, 3}},
        {"cut in a block", {{5, 100, 1 << 20, {}}}, {5}},
        {"cut in a head", {{5, 3, 1 << 20, {}}}, {5}},
        {"cut behind a head", {{5, 5, 1 << 20, {}}}, {5}},
        {"more bytes at the end", {{6, 0, 0, random_bytes(5000, 256, 9)}}, {}},
        {"another header", {{0, -18, 18, Bytes(18, 'x')}}, {}},
        {"no header", {{0, -18, 18, {}}}, {}},
        {"half a header, a byte", {{4, 50, 1, {1}}, {0, -18, 9, {}}}, {4}},
        {"no beginning", {{0, -18, 58, {}}}, {0}},
    };
    // Of both sorts, and once with zeros in the place of what is lost.
    for (const bool fill : {false, true}) {
        const Bytes good = compress(without({}, false), fill ? "-b128" : "-b128t");
        ASSERT_EQ(record_starts(good).size(), 7u);
        for (const auto &c : cases) {
            SCOPED_TRACE(c.name);
            if (fill && c.lost.count(2) + c.lost.count(3) == 2) continue; // how many is unknown
            write_file(archive, damaged(good, c.damages));
            std::vector<std::string> arguments = {"salvage", archive, output, "--force"};
            if (fill) arguments = {"salvage", "--fill", "--force", archive, output};
            const Finished run = run_velkinfo(arguments);
            EXPECT_EQ(run.status, c.damages.empty() ? 0 : 1) << run.err;
            EXPECT_TRUE(read_file(output) == without(c.lost, fill)) << run.out;
            EXPECT_NE(run.out.find(std::to_string(6 - c.lost.size()) + " blocks restored"),
                      std::string::npos)
                << run.out;
        }
    }
    // The last block does not tell how long the others were.
    const Bytes last = to_bytes("last");
    write_file(archive,
               damaged(make_archive(0x20, {Bytes(99, 'a'), last}), {{0, -1, 7, Bytes(7, 'x')}}));
    run_velkinfo({"salvage", archive, "--fill", "--force", output});
    EXPECT_EQ(read_file(output), last);
}

// Damage to an archive of an archive must not bring the inner blocks to light.
TEST_F(Velkinfo, SalvageKeepsInnerArchivesApart) {
    Bytes inner = compress(without({}, false), "-b128");
    inner = join({random_bytes(kBlock, 256, 7), inner, inner});
    const Bytes outer = compress(inner, "-b128eflzwrd");
    const struct {
        const char *name;
        std::vector<Damage> damages;
        int lost; // block, -1: none
    } cases[] = {
        {"a byte", {{1, 5, 1, {'x'}}}, 1},
        {"a head, before the end of many blocks", {{1, 0, 1, {'x'}}}, -1},
        {"a head, where that before it leads", {{1, 0, 3, {}}, {0, 5, 1, {'x'}}}, 0},
        {"bytes taken, the head leads near an inner block", {{0, 5, 10, {}}}, 0},
    };
    for (const auto &c : cases) {
        write_file(archive, damaged(outer, c.damages));
        const Finished run = run_velkinfo({"salvage", "--force", "--fill", archive, output});
        EXPECT_EQ(run.status, 1);
        Bytes expected = inner;
        if (c.lost >= 0) std::fill_n(expected.begin() + c.lost * int{kBlock}, kBlock, 0);
        EXPECT_TRUE(read_file(output) == expected) << c.name << "\n" << run.out;
    }
}

// Archives made to keep salvage busy: what counts is the bytes that it checksums.
TEST_F(Velkinfo, SalvageReadsEachByteABoundedNumberOfTimes) {
    constexpr std::size_t kLength = 300000;
    const Bytes good = make_archive(0x20, {{'a'}});
    const Bytes start = first_bytes(good, record_starts(good)[0]);
    const Bytes record(good.begin() + static_cast<int>(start.size()), good.end());

    // Every fourth byte is the head of a long block that ends as blocks do.
    std::size_t length = kLength / 2;
    while (length % 4 != 0 || head_of(length)[0] != 0)
        --length;
    const Bytes overlapping = repeated(first_bytes(head_of(length), 4), kLength / 4);
    // Intact records, behind each a head that leads to a long row of bad ones.
    Bytes chains;
    constexpr std::size_t kHeads = 5000;
    for (std::size_t to_go = kHeads; to_go-- > 0;)
        chains = join({chains, record, head_of(to_go * (record.size() + kRecordHeadBytes))});
    chains = join({chains, repeated(join({head_of(5), Bytes(5)}), kLength / 20), {'x'}});
    // Damaged heads before many intact records, where the blocks could end.
    const Bytes ends =
        repeated(join({{'x', 'x', 'x', 'x', 'x', 'x', 0, 'x', 'x', 'x', 'x'}, record}), 9000);
    for (const Bytes &records : {overlapping, chains, ends}) {
        const Bytes bad = join({start, records});
        write_file(archive, bad);
        ArchiveFile file;
        std::string why;
        ASSERT_TRUE(open_archive(file, archive.c_str(), why));
        Survey survey(file, true);
        for (Extent extent; survey.next(extent);) {
        }
        EXPECT_LT(survey.checksummed(), 64 * bad.size());
    }
}

// Small segments, so that ranges across them and the moves of the window come up. The end
// can't be read.
TEST_F(Velkinfo, WindowKnowsTheCrcOfAnyRange) {
    Bytes bytes = random_bytes(10000, 256, 1);
    write_file(archive, bytes);
    ArchiveFile file;
    std::string why;
    ASSERT_TRUE(open_archive(file, archive.c_str(), why));
    std::filesystem::resize_file(archive, 32 * 256);
    std::fill(bytes.begin() + 32 * 256, bytes.end(), 0);
    ArchiveWindow window(file, 256);
    Random random(2);
    for (std::uint32_t reached = 0; reached < bytes.size(); reached += random.below(300)) {
        window.reach(reached);
        for (int i = 0; i < 20; ++i) {
            const std::uint32_t offset = reached - random.below(std::min(reached, 512u) + 1);
            const auto left = static_cast<std::uint32_t>(bytes.size()) - offset;
            const std::uint32_t most = std::min(left, 255u);
            const std::uint32_t length = i == 0 ? most : random.below(most + 1);
            ASSERT_EQ(window.crc(offset, length), crc32_block(&bytes[offset], length))
                << offset << ", " << length;
        }
    }
}

TEST_F(Velkinfo, SalvageOverwritesNothingUnasked) {
    const Bytes good = compress(to_bytes("abc"), "-e");
    write_file(output, to_bytes("dear to someone"));
    const std::string link = path("link");
    std::filesystem::create_symlink(archive, link);
    Finished run = run_velkinfo({"salvage", archive, output});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "velkinfo: " + output + ": exists; --force overwrites it\n");
    EXPECT_EQ(read_file(output), to_bytes("dear to someone"));
    for (const std::string &name : {archive, link}) {
        run = run_velkinfo({"salvage", "--force", archive, name});
        EXPECT_EQ(run.err, "velkinfo: " + name + ": is the archive itself\n");
    }
    EXPECT_EQ(read_file(archive), good);
    write_file(archive, Bytes(5000, 'x'));
    EXPECT_EQ(run_velkinfo({"salvage", "--force", archive, output}).status, 1);
    EXPECT_EQ(read_file(output), to_bytes("dear to someone")) << "nothing to restore";
}

// By velkinfo, and in the words that VELK has for it; the blocks before come back.
TEST_F(Velkinfo, DamageIsReported) {
    const Bytes original = without({}, false), good = compress(original, "-b128");
    const std::vector<std::size_t> starts = record_starts(good);
    const std::string copy = path("copy");
    write_file(copy, good);
    // More values than any block has, under a CRC that holds.
    Bytes bad_stage = damaged(good, {{1, -9, 9, {255, 255, 255, 255, 1, 0, 0, 0, 0}}});
    const std::size_t first = starts[0] + 5, crc = starts[1] - 4;
    put_u32(&bad_stage[crc],
            crc32_block(&bad_stage[first], static_cast<std::uint32_t>(crc - first)));
    const auto with_start = [&](std::uint8_t flags, std::uint32_t block_size) {
        Bytes changed = good;
        Settings settings{};
        set_flags(settings, flags);
        put_start(changed.data(), settings, block_size);
        return changed;
    };
    const std::string other = std::string("Header check failed: ") + kMagic,
                      read = "Input file read error: " + archive, crc_fails = "CRC32 check failed!",
                      memory = "Not enough memory!",
                      invalid = "header: no such block size or stages";
    constexpr std::size_t none = SIZE_MAX;
    const struct {
        Bytes bytes;
        std::size_t blocks; // before the damaged one
        std::string why, by_velk;
    } cases[] = {
        {damaged(good, {{1, 50, 1, {1}}}), 1,
         "the block CRC does not match, 131072 bytes from 131072 on are lost", crc_fails},
        {damaged(good, {{5, 0, 1, {1}}}), 5,
         "the check byte of the record head does not match, but it can be restored", crc_fails},
        {damaged(good, {{6, -1, 1, {}}}), 5,
         "the block is cut short, up to 131072 bytes from 655360 on are lost", crc_fails},
        {first_bytes(good, starts[2] + 1), 2,
         "the record head is cut short, 1 byte of the archive is lost", read},
        {bad_stage, 0,
         "the CRC matches, but the DCE stage can't be undone, 131072 bytes from 0 on are lost",
         crc_fails},
        {{}, none, "does not begin as an archive", other},
        {damaged(good, {{0, -15, 1, {'x'}}}), none, "does not begin as an archive", other},
        {damaged(good, {{0, -3, 1, {1}}}), none, "header: the check byte does not match",
         crc_fails},
        {first_bytes(good, 17), none, "shorter than an archive's header", read},
        {with_start(0, kBlock), none, invalid, memory},
        {with_start(0x20, kMinBlockSize - 1), none, invalid, memory},
        {with_start(0x20, kMaxBlockSize + 1), none, invalid, memory},
        {damaged(good, {{1, 0, 5, head_of(4)}}), 1,
         "no block has a record of 4 bytes, but it can be restored", crc_fails},
        {damaged(good, {{1, 0, 5, head_of(kBlock + kBlockSlack + 1)}}), 1,
         "no block has a record of 131173 bytes, but it can be restored", crc_fails},
    };
    const std::string line = copy + ": good, 6 blocks, 685360 bytes\n";
    for (const auto &[bytes, blocks, why, by_velk] : cases) {
        write_file(archive, bytes);
        const std::string place = blocks == none
                                      ? ""
                                      : "block " + std::to_string(blocks + 1) + " at offset " +
                                            std::to_string(starts[blocks]) + ": ";
        Finished run = run_velkinfo({"test", copy, archive, copy});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, line + line);
        EXPECT_EQ(run.err, "velkinfo: " + archive + ": " + place + why + "\n");
        run = run_velk({"d", archive, output});
        EXPECT_EQ(run.status, 1) << why;
        EXPECT_TRUE(run.out.ends_with("\n" + by_velk + "\n")) << run.out;
        const std::size_t size = blocks == none ? 0 : std::min(blocks * kBlock, original.size());
        EXPECT_TRUE(read_file(output) == first_bytes(original, size)) << why;
    }
    EXPECT_EQ(run_velkinfo({"test", copy}).status, 0);
}

// Where a member's records begin, that of its end mark behind them, and the end.
std::vector<std::size_t> places_in(const Bytes &member, std::size_t records) {
    std::vector<std::size_t> places = record_starts(member);
    places.resize(records + 1);
    places.push_back(member.size());
    return places;
}

Bytes changed(Bytes bytes, std::size_t at, std::size_t removed, const Bytes &others) {
    const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    bytes.insert(bytes.erase(from, from + static_cast<std::ptrdiff_t>(removed)), others.begin(),
                 others.end());
    return bytes;
}

TEST_F(Velkinfo, SalvageByTheIndex) {
    // Of any sizes, as an index tells them.
    const std::vector<Bytes> blocks = {prose(50000, 70, "\n", 1), random_bytes(9000, 256, 2),
                                       code(30000, 3), records(7000, 4, 4), runs(100, 5)};
    const Bytes good = make_indexed(0x20, blocks), plain = make_archive(0x20, {six_blocks()[0]});
    const std::vector<std::size_t> at = places_in(good, 5);
    const auto expected = [&](const std::set<std::size_t> &lost, bool fill) {
        Bytes original;
        for (std::size_t i = 0; i < 5; ++i)
            append(original, lost.count(i) == 0 ? blocks[i] : Bytes(fill ? blocks[i].size() : 0));
        return original;
    };
    const struct {
        const char *name;
        Bytes archive;
        std::set<std::size_t> lost;
        int status = 1;
    } cases[] = {
        {"none", good, {}, 0},
        {"a byte of the last block", changed(good, at[4] + 9, 4, {1, 2, 3, 4}), {4}},
        {"heads of three and bytes of two", changed(good, at[1] - 9, 9050, Bytes(9050)), {0, 1, 2}},
        {"a head", changed(good, at[2], 1, {'x'}), {}},
        {"the header", changed(good, 15, 1, {'x'}), {}},
        {"no header, and a byte", changed(changed(good, at[2] + 9, 1, {'x'}), 0, 18, {}), {2}},
        {"bytes taken from a block", changed(good, at[1] + 40, 30, {}), {1}},
        {"bytes put into a block", changed(good, at[2] + 40, 0, Bytes(700)), {2}},
        {"the end mark, and a byte",
         changed(changed(good, at[5], 1, {'x'}), at[1] + 9, 1, {'x'}),
         {1}},
        {"a CRC in the index, and a byte",
         changed(changed(good, at[5] + 13, 1, {'x'}), at[2] + 9, 1, {'x'}),
         {2}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        for (const bool fill : {false, true}) {
            write_file(archive, c.archive);
            Finished run =
                run_velkinfo({"salvage", "--force", archive, output}, fill ? "" : "--no-fill");
            EXPECT_EQ(run.status, c.status) << run.err;
            EXPECT_TRUE(read_file(output) == expected(c.lost, fill)) << run.out;
            // Members before it are none of it.
            write_file(archive, join({good, plain, changed(good, at[1] + 9, 1, {'x'})}));
            run = run_velkinfo({"salvage", "--force", archive, output}, fill ? "" : "--no-fill");
            EXPECT_TRUE(read_file(output) ==
                        join({expected({}, fill), six_blocks()[0], expected({1}, fill)}))
                << run.out;
        }
    }
    write_file(archive, changed(good, at[1] + 9, 1, {'x'}));
    EXPECT_EQ(run_velkinfo({"salvage", "--force", archive, output}).out,
              "block 2 at offset " + std::to_string(at[1]) +
                  ": the block CRC does not match, 9000 bytes from 50000 on are lost\n"
                  "4 blocks restored, 87100 bytes; " +
                  std::to_string(at[2] - at[1]) +
                  " bytes of the archive lost, 9000 zeros written\n");
    // A cut takes the index; what is left is found without.
    for (const std::size_t size : {at[5], at[5] + 7, good.size() - 1, good.size() + at[3]}) {
        write_file(archive, first_bytes(join({good, good}), size));
        EXPECT_EQ(run_velkinfo({"salvage", "--force", archive, output}).status, 1) << size;
        Bytes original = expected({}, false);
        if (size > good.size()) append(original, expected({3, 4}, false));
        EXPECT_TRUE(read_file(output) == original) << size;
    }
    // An index whose CRC holds, of blocks that are others.
    const std::vector<Bytes> others = {Bytes(9000, 'a'), random_bytes(9000, 256, 6)};
    const Bytes one = make_indexed(0x20, {blocks[1]}), two = make_indexed(0x20, {others[1]});
    ASSERT_EQ(one.size(), two.size());
    write_file(archive, changed(one, 18, places_in(one, 1)[1] - 18,
                                Bytes(two.begin() + 18, two.begin() + static_cast<std::ptrdiff_t>(
                                                                          places_in(two, 1)[1]))));
    EXPECT_NE(run_velkinfo({"salvage", "--force", archive, output})
                  .out.find("the index has another CRC for it, but it can be restored"),
              std::string::npos);
    EXPECT_EQ(read_file(output), others[1]);
}

TEST_F(Velkinfo, MembersAreTestedAndListed) {
    const Bytes block = prose(5000, 70, "\n", 1), full = runs(kMinBlockSize, 2);
    const Bytes good = make_indexed(0x20, {block, block}), empty = make_indexed(0x20, {}),
                other = make_indexed(0x60, {block}), plain = make_archive(0x20, {block}),
                unsure = make_archive(0x20, {full}), garbage = to_bytes("\n");
    const std::vector<std::size_t> at = places_in(good, 2);
    // A header with the mark, a block of N bytes: a plain archive, whole.
    const Bytes one = [&] {
        const Bytes bytes = runs(kMinBlockSize + kIndexMark, 3);
        write_file(input, bytes);
        EXPECT_EQ(run_velk({"e", input, archive}).status, 0);
        return read_file(archive);
    }();
    const auto place = [](std::size_t offset) {
        return "at offset " + std::to_string(offset) + ": ";
    };
    const std::string cut = "the archive is cut short before the end of its index",
                      index = "the index does not fit the records",
                      unknown = ", a plain archive, which can't tell whether its end was cut off",
                      follows = "what follows the archive's end is left out";
    const struct {
        Bytes archive;
        std::string good, fault; // what is said on each of the streams
        std::string total;       // of list --quick
    } cases[] = {
        {good, "2 blocks, 10000 bytes", "", "10000"},
        {empty, "0 blocks, 0 bytes", "", "0"},
        {one, "1 block, 131585 bytes", "", "1 to 131585"},
        {unsure, "1 block, 131072 bytes" + unknown, "", "1 to 131072"},
        {join({good, empty, other}), "3 blocks, 15000 bytes", "", "15000"},
        {join({unsure, good}), "3 blocks, 141072 bytes" + unknown, "", "10001 to 141072"},
        {join({good, unsure}), "3 blocks, 141072 bytes" + unknown, "", "10001 to 141072"},
        {join({good, plain, garbage}), "3 blocks, 15000 bytes", follows, "10001 to 15000"},
        {join({good, garbage}), "2 blocks, 10000 bytes", follows, "10000"},
        {join({plain, head_of(0), garbage}), "1 block, 5000 bytes", follows, "1 to 5000"},
        {first_bytes(good, at[2]), "", place(at[2]) + cut, ""},
        {join({first_bytes(good, at[1]), good}), "", place(at[1]) + cut, ""},
        {first_bytes(good, good.size() - 1), "", place(at[2]) + cut, ""},
        {changed(good, at[2] + 13, 1, {'x'}), "", place(at[2]) + index, ""},
        {join({good, changed(good, 17, 1, {'x'})}), "",
         place(good.size()) + "header: the check byte does not match", ""},
        {join({good, first_bytes(good, 9)}), "",
         place(good.size()) + "shorter than an archive's header", ""},
    };
    for (const auto &c : cases) {
        write_file(archive, c.archive);
        const std::string said =
            c.fault.empty() ? "" : "velkinfo: " + archive + ": " + c.fault + "\n";
        Finished run = run_velkinfo({"test", archive});
        EXPECT_EQ(run.status, c.good.empty() ? 1 : 0) << c.good << c.fault;
        EXPECT_EQ(run.out, c.good.empty() ? "" : archive + ": good, " + c.good + "\n");
        EXPECT_EQ(run.err, said);
        run = run_velkinfo({"list", "--quick", archive});
        EXPECT_EQ(run.status, c.good.empty() ? 1 : 0);
        EXPECT_EQ(run.err, said);
        EXPECT_EQ(run.out.find(" of " + c.total + " bytes\n") != std::string::npos, !c.good.empty())
            << run.out;
    }
    write_file(archive, join({good, empty, plain}));
    const std::string json = run_velkinfo({"list", "--json", archive}).out;
    for (const char *const part : {"\"indexed\": true", "\"block_size\": 131072", "\"members\": 3",
                                   "\"number\": 3", "\"original\": 15000"})
        EXPECT_NE(json.find(part), std::string::npos) << part;
}

// With the sizes that the heads or an index tell of; of one block the head alone is damaged.
TEST_F(Velkinfo, AllDamageIsToldOf) {
    const Bytes plain = compress(without({}, false), "-b128");
    const std::vector<Damage> damages = {
        {1, 99, 1, {1}}, {2, 50, 1, {2}}, {3, 0, 1, {'x'}}, {5, 100, 1, {1}}};
    const std::string crc = "the block CRC does not match, ", lost = " are lost\n";
    for (const Bytes &good : {plain, make_indexed(0x20, six_blocks())}) {
        const std::vector<std::size_t> at = record_starts(good);
        const auto block = [&](std::size_t i) {
            return "velkinfo: standard input: block " + std::to_string(i + 1) + " at offset " +
                   std::to_string(at[i]) + ": ";
        };
        const std::string all =
            block(1) + crc + "131072 bytes from 131072 on" + lost + block(2) + crc +
            "131072 bytes from 262144 on" + lost + block(3) +
            "the check byte of the record head does not match, but it can be restored\n" +
            block(5) + crc + (good == plain ? "up to 131072" : "30000") + " bytes from 655360 on" +
            lost;
        write_file(archive, damaged(good, damages));
        Finished run = run_velkinfo({"test", "-"}, "", "cat '" + archive + "' |");
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err, all);
        run = run_velkinfo({"list", "-", "--json"}, "<'" + archive + "'");
        EXPECT_EQ(run.err, all);
        for (const std::string &part :
             {std::string("\"total\": {\"blocks\": 6, \"damaged\": 4, "),
              "{\"number\": 3, \"offset\": " + std::to_string(at[2]) +
                  ", \"coded\": " + std::to_string(at[3] - at[2]) +
                  ", \"original\": 131072, \"damaged\": true, \"form\": null, \"stages\": []}"})
            EXPECT_NE(run.out.find(part), std::string::npos) << run.out;
    }
}

// tests/golden/list.txt shows them all.
TEST_F(Velkinfo, ListShowsEachForm) {
    std::string shown;
    const auto show = [&](const Bytes &bytes, const std::string &switches) {
        compress(bytes, switches);
        for (const std::string form :
             {"list --json", "list --stages", "list --quick", "list", "test"}) {
            const Finished run = run_velkinfo({}, form + " '" + archive + "'");
            EXPECT_EQ(run.status, 0);
            shown += run.out;
        }
    };
    show(without({}, false), "-b128");
    show(Bytes(1000, 'a'), "-eflz");
    show(to_bytes("abc"), "-t");
    write_file(archive, damaged(read_file(archive), {{1, -1, 1, {1}}}));
    EXPECT_EQ(run_velkinfo({"list", "--quick", archive}).status, 0) << "reads heads alone";
    const Finished json = run_velkinfo({"list", "--json", archive});
    EXPECT_EQ(json.status, 1);
    shown += json.out;
    for (std::size_t at; (at = shown.find(archive)) != std::string::npos;)
        shown.replace(at, archive.size(), "ARCHIVE");
    EXPECT_EQ(shown, kept_text("list.txt", shown));
}

TEST_F(Velkinfo, CommandLine) {
    for (const std::string wrong :
         {"", "lost", "list", "list a b", "list --json --quick a", "list --fill a", "test",
          "test --json a", "list --no-fill a", "salvage --fill --no-fill a b", "salvage a",
          "salvage --stages a b", "--no-such-option list a"}) {
        const Finished run = run_velkinfo({}, wrong);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find("Try 'velkinfo --help'.\n"), std::string::npos);
    }
    EXPECT_EQ(run_velkinfo({"--help"}).out.find("Usage: velkinfo list"), 0u);
    EXPECT_EQ(run_velkinfo({"--version"}).out, "velkinfo (VELK) 0.95\n");
    EXPECT_EQ(run_velkinfo({"test", path("")}).status, 1);
    if (std::filesystem::exists("/dev/full")) {
        EXPECT_EQ(run_velkinfo({"--help"}, ">/dev/full").status, 1);
        compress(to_bytes("abc"), "-e");
        EXPECT_EQ(run_velkinfo({"test", archive}, "<&- >&-").status, 0);
        EXPECT_EQ(run_velkinfo({"salvage", "--force", archive, "/dev/full"}).err,
                  "velkinfo: /dev/full: write error\n");
    }
}

} // namespace
