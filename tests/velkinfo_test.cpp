// The companion tool on whole and on damaged archives.
#include "archive/format.h"
#include "archive/memory.h"
#include "pipeline/block.h"
#include "pipeline/byte_order.h"
#include "pipeline/crc32.h"
#include "program.h"
#include "stage_call.h"

#include <functional>
#include <gtest/gtest.h>
#include <set>

namespace {

constexpr std::uint32_t kBlock = 131072;

class Velkinfo : public testing::Test {
protected:
    ScratchFolder folder;
    const std::string input = folder.path("input"), archive = folder.path("archive"),
                      output = folder.path("output");

    Bytes compress(const Bytes &bytes, const std::string &switches) {
        write_file(input, bytes);
        EXPECT_EQ(run_velk({"e", input, archive, switches}).status, 0);
        return read_file(archive);
    }
};

// Where the records begin, and, last, where the archive ends.
std::vector<std::size_t> record_offsets(const Bytes &archive) {
    std::vector<std::size_t> offsets = {kMagicBytes + kHeaderBytes};
    while (offsets.back() < archive.size())
        offsets.push_back(offsets.back() + kRecordHeadBytes +
                          get_u32(archive.data() + offsets.back() + 1));
    return offsets;
}

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
        if (lost.count(i) == 0) result.insert(result.end(), block.begin(), block.end());
        if (lost.count(i) != 0 && fill && i != 5) result.resize(result.size() + kBlock);
    }
    return result;
}

void insert(Bytes &bytes, std::size_t at, std::size_t count) {
    const Bytes more = random_bytes(count, 256, 9);
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), more.begin(), more.end());
}

void remove(Bytes &bytes, std::size_t at, std::size_t count) {
    const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    bytes.erase(from, from + static_cast<std::ptrdiff_t>(count));
}

TEST_F(Velkinfo, SalvageBringsBackEveryIntactBlock) {
    using Offsets = std::vector<std::size_t>;
    const struct {
        const char *damage;
        std::function<void(Bytes &, const Offsets &)> apply;
        std::set<std::size_t> lost;
    } cases[] = {
        {"none", [](Bytes &, const Offsets &) {}, {}},
        {"a bit", [](Bytes &a, const Offsets &o) { a[o[1] + 1000] ^= 4; }, {1}},
        {"bits in three blocks",
         [](Bytes &a, const Offsets &o) { a[o[0] + 9] ^= 1, a[o[3] + 99] ^= 1, a[o[5] + 9] ^= 8; },
         {0, 3, 5}},
        {"the length in a head", [](Bytes &a, const Offsets &o) { a[o[2] + 2] ^= 1; }, {}},
        {"the last head", [](Bytes &a, const Offsets &o) { a[o[5]] ^= 1; }, {}},
        {"bytes taken from a head", [](Bytes &a, const Offsets &o) { remove(a, o[1] + 1, 3); }, {}},
        {"bytes taken from a block",
         [](Bytes &a, const Offsets &o) { remove(a, o[3] + 90, 50); },
         {3}},
        {"bytes put into a block",
         [](Bytes &a, const Offsets &o) { insert(a, o[2] + 500, 700); },
         {2}},
        {"a stretch of zeros over a head",
         [](Bytes &a, const Offsets &o) {
             std::fill_n(a.begin() + static_cast<int>(o[3]) - 9, 99, 0);
         },
         {2, 3}},
        {"cut in a block", [](Bytes &a, const Offsets &o) { a.resize(o[5] + 100); }, {5}},
        {"cut in a head", [](Bytes &a, const Offsets &o) { a.resize(o[5] + 3); }, {5}},
        {"more bytes at the end", [](Bytes &a, const Offsets &) { insert(a, a.size(), 5000); }, {}},
        {"another header", [](Bytes &a, const Offsets &) { std::fill_n(a.begin(), 18, 'x'); }, {}},
        {"no header", [](Bytes &a, const Offsets &o) { remove(a, 0, o[0]); }, {}},
        {"no header, a bit",
         [](Bytes &a, const Offsets &o) { a[o[4] + 50] ^= 1, remove(a, 0, 9); },
         {4}},
        {"no beginning", [](Bytes &a, const Offsets &o) { remove(a, 0, o[0] + 40); }, {0}},
    };
    for (const std::string switches : {"-b128", "-b128t"}) {
        const Bytes good = compress(without({}, false), switches);
        const Offsets offsets = record_offsets(good);
        ASSERT_EQ(offsets.size(), 7u);
        for (const auto &c : cases) {
            SCOPED_TRACE(c.damage);
            Bytes damaged = good;
            c.apply(damaged, offsets);
            write_file(archive, damaged);
            Finished run = run_velkinfo({"salvage", archive, output, "--force"});
            EXPECT_EQ(run.status, damaged == good ? 0 : 1) << run.err;
            EXPECT_TRUE(read_file(output) == without(c.lost, false)) << run.out;
            EXPECT_NE(run.out.find(std::to_string(6 - c.lost.size()) + " blocks restored"),
                      std::string::npos)
                << run.out;
            if (c.lost.count(2) + c.lost.count(3) == 2) continue; // how many is unknown
            run = run_velkinfo({"salvage", "--fill", "--force", archive, output});
            EXPECT_TRUE(read_file(output) == without(c.lost, true)) << run.out;
        }
    }
}

// Damage to an archive of an archive must not bring the inner blocks to light.
TEST_F(Velkinfo, SalvageKeepsInnerArchivesApart) {
    Bytes inner = compress(without({}, false), "-b128");
    inner = join({inner, inner});
    Bytes outer = compress(inner, "-b128eflzwrd");
    const std::vector<std::size_t> offsets = record_offsets(outer);
    outer[offsets[1] + 5] ^= 1;
    write_file(archive, outer);
    EXPECT_EQ(run_velkinfo({"salvage", archive, output})
                  .out.find("bytes " + std::to_string(offsets[1]) + " to " +
                            std::to_string(offsets[2] - 1) + " lost, 1 block\n"),
              0u);
    remove(inner, kBlock, kBlock);
    EXPECT_TRUE(read_file(output) == inner);
}

TEST_F(Velkinfo, SalvageOverwritesNothingUnasked) {
    const Bytes good = compress(to_bytes("abc"), "-e");
    write_file(output, to_bytes("dear to someone"));
    const std::string link = folder.path("link");
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

TEST_F(Velkinfo, TestSaysWhichBlockAndWhy) {
    const Bytes good = compress(without({}, false), "-b128");
    const std::vector<std::size_t> offsets = record_offsets(good);
    const std::string copy = folder.path("copy"), at = " at offset ";
    write_file(copy, good);
    crc32_init();
    Bytes bad_stage = good; // of more values than any block has
    const std::size_t end = offsets[1];
    put_u32(bad_stage.data() + end - 9, 0xFFFFFFFFu);
    put_u32(bad_stage.data() + end - 4,
            crc32_block(bad_stage.data() + offsets[0] + 5,
                        static_cast<std::uint32_t>(end - 4 - offsets[0] - 5)));
    const struct {
        std::function<void(Bytes &)> apply;
        std::string message;
    } cases[] = {
        {[&](Bytes &a) { a[offsets[1] + 50] ^= 1; },
         "block 2 at offset " + std::to_string(offsets[1]) + ": the block CRC does not match"},
        {[&](Bytes &a) { a[offsets[5]] ^= 1; },
         "block 6 at offset " + std::to_string(offsets[5]) +
             ": the check byte of the record head does not match"},
        {[&](Bytes &a) { remove(a, a.size() - 1, 1); },
         "block 6 at offset " + std::to_string(offsets[5]) + ": the block is cut short"},
        {[&](Bytes &a) { a = bad_stage; },
         "block 1 at offset 18: the CRC matches, but the DCE stage can't be undone"},
        {[&](Bytes &a) { a[3] = 'x'; }, "does not begin as an archive"},
        {[&](Bytes &a) { a[15] ^= 1; }, "header: the check byte does not match"},
        {[&](Bytes &a) { a.resize(4); }, "shorter than an archive's header"},
    };
    const std::string line = copy + ": good, 6 blocks, 685360 bytes\n";
    for (const auto &c : cases) {
        Bytes damaged = good;
        c.apply(damaged);
        write_file(archive, damaged);
        const Finished run = run_velkinfo({"test", copy, archive, copy});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, line + line);
        EXPECT_EQ(run.err, "velkinfo: " + archive + ": " + c.message + "\n");
    }
    EXPECT_EQ(run_velkinfo({"test", copy}).status, 0);
}

TEST_F(Velkinfo, ListShowsEachForm) {
    compress(to_bytes("abc"), "-eflzwrd");
    EXPECT_EQ(
        run_velkinfo({"list", "--json", archive}).out,
        "{\n  \"archive_bytes\": 35,\n  \"block_size\": 131072,\n  \"stages_on\": [],\n"
        "  \"blocks\": [\n    {\"number\": 1, \"offset\": 18, \"coded\": 17, \"original\": 3, "
        "\"form\": \"fallback\", \"stages\": [\n"
        "      {\"name\": \"EOL\", \"applied\": false, \"trailer\": 0, \"before\": 3, "
        "\"after\": 4},\n"
        "      {\"name\": \"FLT32\", \"applied\": false, \"trailer\": 0, \"before\": 4, "
        "\"after\": 5},\n"
        "      {\"name\": \"DELTA\", \"applied\": false, \"trailer\": 0, \"before\": 5, "
        "\"after\": 6},\n"
        "      {\"name\": \"LZP\", \"applied\": false, \"trailer\": 0, \"before\": 6, "
        "\"after\": 7}]}\n  ],\n"
        "  \"total\": {\"blocks\": 1, \"coded\": 17, \"original\": 3},\n"
        "  \"damage\": null\n}\n");
    compress(Bytes(1000, 'a'), "-eflz");
    const Finished table = run_velkinfo({"list", archive});
    EXPECT_EQ(table.status, 0);
    EXPECT_NE(table.out.find(" BWT +5 RLE -"), std::string::npos) << table.out;
    const Finished chart = run_velkinfo({"list", "--stages", archive});
    const std::string bar(50, '#');
    EXPECT_NE(chart.out.find("\n  BWT             1009  " + bar + "\n"), std::string::npos)
        << chart.out;
    Bytes damaged = read_file(archive);
    damaged.back() ^= 1;
    write_file(archive, damaged);
    const Finished json = run_velkinfo({"list", "--json", archive});
    EXPECT_EQ(json.status, 1);
    EXPECT_NE(
        json.out.find("\"damage\": \"block 1 at offset 18: the block CRC does not match\"\n}"),
        std::string::npos);
}

// The lengths that `list` shows are those that the stages had when they ran.
TEST_F(Velkinfo, TraceFollowsTheForwardChain) {
    for (const Bytes &block : six_blocks()) {
        CoderContext forward{}, inverse{};
        forward.settings.st_off = inverse.settings.st_off = 1;
        ASSERT_NE(alloc_compress(forward, kBlock), 0u);
        ASSERT_NE(alloc_decompress(inverse, kBlock), 0u);
        std::copy(block.begin(), block.end(), forward.buf_in);
        forward.in_len = static_cast<std::uint32_t>(block.size());
        forward.file_size = forward.in_len + 1;
        ASSERT_TRUE(compress_block(forward));
        std::copy_n(forward.buf_out, forward.out_len, inverse.buf_in);
        inverse.in_len = forward.out_len;
        BlockTrace trace;
        ASSERT_TRUE(decompress_block(inverse, &trace));
        EXPECT_TRUE(trace.crc_holds);
        Bytes data = block;
        for (unsigned stage = 0; stage < (trace.fallback ? STAGE_BWT : STAGE_COUNT); ++stage) {
            if (stage != STAGE_ST) {
                data = kStages[stage]->forward(data);
            } else {
                data.push_back(0);
            }
            EXPECT_EQ(trace.coded_len[stage], data.size()) << kStages[stage]->name;
            EXPECT_EQ(trace.trailer[stage], data.back()) << kStages[stage]->name;
        }
        free_compress(forward);
        free_decompress(inverse);
    }
}

TEST_F(Velkinfo, CommandLine) {
    const std::vector<std::string> wrong[] = {
        {},
        {"lost"},
        {"list"},
        {"list", "a", "b"},
        {"list", "--json", "--stages", "a"},
        {"list", "--fill", "a"},
        {"test"},
        {"test", "--json", "a"},
        {"salvage", "a"},
        {"salvage", "--stages", "a", "b"},
        {"--no-such-option", "list", "a"},
    };
    for (const auto &arguments : wrong) {
        const Finished run = run_velkinfo(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find("Try 'velkinfo --help'.\n"), std::string::npos);
    }
    EXPECT_EQ(run_velkinfo({"--help"}).out.find("Usage: velkinfo list"), 0u);
    EXPECT_EQ(run_velkinfo({"--version"}).out, "velkinfo (VELK) 0.95\n");
    EXPECT_EQ(run_velkinfo({"test", folder.path("")}).status, 1);
    if (std::filesystem::exists("/dev/full")) {
        EXPECT_EQ(run_velkinfo({"--help"}, ">/dev/full").status, 1);
        compress(to_bytes("abc"), "-e");
        EXPECT_EQ(run_velkinfo({"salvage", "--force", archive, "/dev/full"}).err,
                  "velkinfo: /dev/full: write error\n");
    }
}

} // namespace
