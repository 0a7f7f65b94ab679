// libvelk: the program's bytes by any number of threads, whatever the callbacks do and
// however little memory there is.
#include "archive/format.h"
#include "archive/memory.h"
#include "archive_call.h"
#include "base/byte_order.h"
#include "library_call.h"
#include "library_memory.h"
#include "program.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

using namespace velk;

namespace {

// Where programs that are compiled already look for the fields: there these stay. What is new
// takes the place of reserved ones.
static_assert(sizeof(velk_options) == 64 && offsetof(velk_options, block_size) == 0 &&
              offsetof(velk_options, threads) == 4 && offsetof(velk_options, memory_limit) == 8 &&
              offsetof(velk_options, stages_off) == 16 &&
              offsetof(velk_options, fixed_block_size) == 17 &&
              offsetof(velk_options, no_fallback) == 18 && offsetof(velk_options, plain) == 19 &&
              offsetof(velk_options, level) == 20 && offsetof(velk_options, one_member) == 21);
static_assert(sizeof(velk_report) == 64 && offsetof(velk_report, size) == 0 &&
              offsetof(velk_report, archive_size) == 8 && offsetof(velk_report, blocks) == 16 &&
              offsetof(velk_report, members) == 24 && offsetof(velk_report, damaged_block) == 32 &&
              offsetof(velk_report, damaged_offset) == 40 && offsetof(velk_report, crc) == 48 &&
              offsetof(velk_report, block_size) == 52 && offsetof(velk_report, has_crc) == 56 &&
              offsetof(velk_report, whole) == 57 && offsetof(velk_report, bytes_follow) == 58 &&
              offsetof(velk_report, damaged_part) == 59 && offsetof(velk_report, cut) == 60);
constexpr std::size_t kPointer = sizeof(void *);
static_assert(sizeof(velk_stream) == 8 * kPointer && offsetof(velk_stream, user) == 0 &&
              offsetof(velk_stream, read) == kPointer &&
              offsetof(velk_stream, write) == 2 * kPointer &&
              offsetof(velk_stream, progress) == 3 * kPointer &&
              offsetof(velk_stream, report) == 4 * kPointer);
static_assert(sizeof(velk_buffers) == 4 * kPointer && offsetof(velk_buffers, in) == 0 &&
              offsetof(velk_buffers, in_size) == kPointer &&
              offsetof(velk_buffers, out) == 2 * kPointer &&
              offsetof(velk_buffers, out_size) == 3 * kPointer);
static_assert(sizeof(velk_block) == 40 && offsetof(velk_block, offset) == 0 &&
              offsetof(velk_block, start) == 8 && offsetof(velk_block, header) == 16 &&
              offsetof(velk_block, record_size) == 24 && offsetof(velk_block, size) == 28 &&
              offsetof(velk_block, crc) == 32 && offsetof(velk_block, indexed) == 36);

constexpr std::uint32_t kBlock = VELK_MIN_BLOCK_SIZE;

// Nine blocks and a part, of which no two take the same time.
const Bytes &mixed() {
    static const Bytes bytes = [] {
        Bytes b = join({code(400000, 2), prose(300000, 70, "\r\n", 1), records(200000, 4, 3),
                        random_bytes(150000, 256, 4), runs(250000, 5)});
        b.resize(9 * kBlock + 12345);
        return b;
    }();
    return bytes;
}

const Bytes &mixed_archive() {
    static const Bytes archive = compress(options_with(1), mixed()).bytes;
    return archive;
}

TEST(Library, WritesTheProgramsBytesWithAnyNumberOfThreads) {
    const ScratchFolder scratch;
    const struct {
        const char *switches;
        velk_options options;
        std::size_t size;
    } cases[] = {
        {"-b128", {kBlock, 0, 0, VELK_OFF_ST, 0, 0, 1, 0, 0, {}}, mixed().size()},
        {"-b200t", {204800, 0, 0, VELK_OFF_BWT, 0, 0, 1, 0, 0, {}}, mixed().size()},
        {"-b128zedfo", {kBlock, 0, 0, 0xAB, 0, 1, 1, 0, 0, {}}, 3 * kBlock},
        {"-b128", {kBlock, 0, 0, VELK_OFF_ST, 0, 0, 1, 0, 0, {}}, kBlock},
        {"-a", {0, 0, 0, VELK_OFF_ST, 1, 0, 1, 0, 0, {}}, 1000},
        {"-s", {0, 0, 0, VELK_OFF_ST, 0, 0, 1, 0, 0, {}}, kBlock + 1},
        {"-s", {0, 0, 0, VELK_OFF_ST, 0, 0, 1, 0, 0, {}}, 0},
    };
    for (auto c : cases) {
        const Bytes in = first_bytes(mixed(), c.size);
        write_file(scratch.input, in);
        ASSERT_EQ(run_velk({"e", scratch.input, scratch.archive, c.switches}).status, 0);
        const Bytes archive = read_file(scratch.archive);
        for (const std::uint32_t threads : {0u, 1u, 2u, 8u}) {
            c.options.threads = threads;
            SCOPED_TRACE(std::string(c.switches) + " " + std::to_string(c.options.threads));
            EXPECT_EQ(compress(c.options, in), (Outcome{VELK_OK, archive}));
            EXPECT_EQ(decompress(c.options, archive, in.size()), (Outcome{VELK_OK, in}));
            if (in.empty() || threads == 0) continue;
            EXPECT_EQ(decompress(c.options, archive, in.size() - 1),
                      (Outcome{VELK_ERROR_SPACE, first_bytes(in, in.size() - 1)}));
        }
        TestStream known(in), unknown(in);
        velk_stream callbacks = known.callbacks();
        EXPECT_EQ(velk_compress_stream(&c.options, &callbacks, in.size()), VELK_OK);
        EXPECT_EQ(known.out, archive);
        // Without the FLT32 filter, or within a block, the size is of no account.
        callbacks = unknown.callbacks();
        EXPECT_EQ(velk_compress_stream(&c.options, &callbacks, VELK_SIZE_UNKNOWN), VELK_OK);
        EXPECT_EQ(decompress(c.options, unknown.out, in.size()), (Outcome{VELK_OK, in}));
        const bool sized = in.size() > kBlock + 1 && (c.options.stages_off & VELK_OFF_FLT32) == 0;
        EXPECT_TRUE(sized || unknown.out == archive);
        // With an index the program restores it, too.
        velk_options indexed = c.options;
        indexed.plain = 0;
        const Outcome with_index = compress(indexed, in);
        EXPECT_EQ(decompress(indexed, with_index.bytes, in.size()), (Outcome{VELK_OK, in}));
        write_file(scratch.archive, with_index.bytes);
        EXPECT_EQ(run_velk({"d", scratch.archive, scratch.output}).status, 0);
        EXPECT_EQ(read_file(scratch.output), in);
    }
}

// What the stages can add at most, and small blocks that take it.
TEST(Library, BoundIsReachedAndNeverPassed) {
    const std::pair<velk_options, std::size_t> cases[] = {
        {{kBlock, 1, 0, VELK_OFF_ST, 0, 0, 0, 0, 0, {}}, 29},
        {{kBlock, 1, 0, 0xA0, 0, 0, 0, 0, 0, {}}, 18},
        {{kBlock, 1, 0, VELK_OFF_ST, 0, 1, 0, 0, 0, {}}, 29},
        {{kBlock, 1, 0, VELK_OFF_BWT, 0, 1, 0, 0, 0, {}}, 28},
        {{kBlock, 1, 0, 0xFF, 0, 1, 0, 0, 0, {}}, 12},
        {{kBlock, 1, 0, 0xFF, 0, 0, 0, 0, 0, {}}, 9}};
    for (const auto &[options, added] : cases) {
        velk_options plain = options;
        plain.plain = 1;
        std::size_t most = 0;
        for (const std::uint32_t seed : {1218u, 13u, 3u}) {
            Random random(seed);
            const std::uint32_t n = 2 + random.below(1200);
            Bytes block = random_bytes(n, 4 + random.below(252), seed);
            block[0] = '\n';
            // With the bound as capacity; and plain, as an index keeps the FLT32 filter away.
            const Outcome outcome = compress(plain, block);
            ASSERT_EQ(outcome.status, VELK_OK);
            most = std::max(most + n, outcome.bytes.size()) - n;
        }
        EXPECT_EQ(most, VELK_HEADER_SIZE + VELK_RECORD_HEAD_SIZE + added);
        EXPECT_EQ(velk_compress_bound(1, &plain), 1 + most);
        EXPECT_EQ(velk_compress_bound(3 * kBlock + 1, &options),
                  3 * kBlock + 1 + VELK_HEADER_SIZE + 29 +
                      4 * (VELK_RECORD_HEAD_SIZE + VELK_ENTRY_SIZE + added));
    }
    EXPECT_EQ(velk_compress_bound(SIZE_MAX, nullptr), 0u);
}

// With no stage that takes time.
velk_options quick_options(std::uint32_t threads) {
    velk_options options = options_with(threads);
    options.stages_off = 0xFF;
    return options;
}

// Each kind of call goes wrong at each of its calls; threads change nothing of what was
// written by then.
TEST(Library, FaultsOfCallbacksAtEveryCall) {
    const std::tuple<Call, std::int64_t, velk_status> cases[] = {
        {Call::kRead, -1, VELK_ERROR_READ},       {Call::kRead, 0, VELK_ERROR_READ},
        {Call::kRead, kTooMuch, VELK_ERROR_READ}, {Call::kWrite, -1, VELK_ERROR_WRITE},
        {Call::kWrite, 0, VELK_ERROR_WRITE},      {Call::kWrite, kTooMuch, VELK_ERROR_WRITE},
        {Call::kTell, 1, VELK_CANCELLED}};
    const Bytes in = first_bytes(mixed(), 4 * kBlock + 10);
    const Bytes archive = compress(quick_options(1), in).bytes;
    for (int i = 0; i < 14; ++i) {
        const auto &[faulty, answer, failure] = cases[i / 2];
        const bool restoring = i % 2 != 0;
        if (restoring && faulty == Call::kRead && answer == 0) continue; // a damaged archive
        const Bytes &from = restoring ? archive : in, &to = restoring ? in : archive;
        const auto run = [&](std::uint32_t threads, TestStream &stream) {
            const velk_stream callbacks = stream.callbacks();
            const velk_options options = quick_options(threads);
            return restoring ? velk_decompress_stream(&options, &callbacks)
                             : velk_compress_stream(&options, &callbacks, in.size());
        };
        for (int call = 0, met = true; met; ++call) {
            TestStream one(from, faulty, answer, call), three = one;
            const velk_status status = run(1, one);
            EXPECT_EQ(run(3, three), status);
            ASSERT_EQ(three.out, one.out) << i << ", call " << call;
            met = one.fault_met;
            ASSERT_EQ(status, met ? failure : VELK_OK) << i << ", call " << call;
            ASSERT_EQ(one.out, first_bytes(to, met ? one.out.size() : to.size()));
            if (met) continue;
            EXPECT_EQ(three.told_in, from.size());
            EXPECT_EQ(three.told_out, to.size());
        }
    }
}

// The worst of what each function says that takes memory or threads.
velk_status take_all_kinds_of_memory(const Bytes &in, const Bytes &archive) {
    const velk_options options = quick_options(3);
    const Outcome compressed = compress(options, in);
    EXPECT_TRUE(compressed.status != VELK_OK || compressed.bytes == archive);
    const Outcome restored = decompress(options, archive, in.size());
    EXPECT_TRUE(restored.status != VELK_OK || restored.bytes == in);
    TestStream stream(in);
    const velk_stream callbacks = stream.callbacks();
    TestArchive test{archive};
    velk_reader *reader;
    velk_encoder *encoder;
    velk_decoder *decoder;
    velk_flow *flow;
    const velk_status worst =
        std::max({compressed.status, restored.status, open_reader(reader, test),
                  velk_compress_stream(&options, &callbacks, VELK_SIZE_UNKNOWN),
                  velk_flow_restore(&flow, &options, nullptr, nullptr),
                  velk_encoder_new(&encoder, &options, in.size()),
                  velk_decoder_new(&decoder, nullptr, archive.data())});
    velk_reader_close(reader);
    velk_encoder_free(encoder);
    velk_decoder_free(decoder);
    velk_flow_close(flow);
    return worst;
}

// With the first allocations, or threads, only: done by fewer threads, or not enough
// memory, and nothing is kept.
TEST(Library, AllocationsAndThreadsThatFail) {
    const Bytes in = first_bytes(mixed(), 5 * kBlock);
    const Bytes archive = compress(quick_options(1), in).bytes;
    for (const bool threads_fail : {false, true}) {
        bool failed = true;
        for (int good = 0; failed; ++good) {
            memory_watch.restart(threads_fail ? -1 : good, threads_fail ? good : -1);
            const velk_status status = take_all_kinds_of_memory(in, archive);
            failed = memory_watch.failed;
            EXPECT_TRUE(status == VELK_OK || (!threads_fail && status == VELK_ERROR_MEMORY));
            EXPECT_EQ(memory_watch.held, 0) << good;
        }
    }
    memory_watch.restart(-1, -1);
}

// Zeros, as many at a time as `part` says; what is written is counted.
struct Zeros {
    std::int64_t (*part)(const Zeros &, std::size_t size);
    std::uint64_t in = 0, out = 0;

    static std::int64_t read(void *user, void *buffer, std::size_t size) {
        Zeros &zeros = *static_cast<Zeros *>(user);
        const std::int64_t part = zeros.part(zeros, size);
        std::memset(buffer, 0, size);
        zeros.in += static_cast<std::uint64_t>(part);
        return part;
    }
    static std::int64_t write(void *user, const void *, std::size_t size) {
        static_cast<Zeros *>(user)->out += size;
        return static_cast<std::int64_t>(size);
    }
    velk_status compress(std::uint64_t size, std::uint32_t threads) {
        const velk_stream stream{this, read, write, nullptr, nullptr, {}};
        const velk_options options = quick_options(threads);
        return velk_compress_stream(&options, &stream, size);
    }
};

// The second block comes in pieces, slowly until the first one has been written.
TEST(Library, WritesABlockWhileTheNextOneComes) {
    Zeros slow{[](const Zeros &zeros, std::size_t size) -> std::int64_t {
        constexpr std::int64_t kPiece = kBlock / 128;
        if (zeros.in < kBlock) return static_cast<std::int64_t>(size);
        if (zeros.out > VELK_HEADER_SIZE) return kPiece;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return zeros.in + kPiece < 2 * kBlock ? kPiece : -1; // too late
    }};
    EXPECT_EQ(slow.compress(2 * kBlock, 2), VELK_OK);
}

// None works until more blocks than the most threads were read.
TEST(Library, ThreadsBeyondTheMost) {
    memory_watch.restart(-1, -1);
    memory_watch.waiting = true;
    Zeros many{[](const Zeros &zeros, std::size_t size) {
        memory_watch.waiting = zeros.in < (VELK_MAX_THREADS + 3) * kBlock;
        return static_cast<std::int64_t>(size);
    }};
    EXPECT_EQ(many.compress((VELK_MAX_THREADS + 4) * kBlock, UINT32_MAX), VELK_OK);
    EXPECT_EQ(memory_watch.started, static_cast<int>(VELK_MAX_THREADS));
}

// The figures of the header, up to the pages that allocations are rounded to.
TEST(Library, MemoryLimit) {
    const Bytes &in = mixed(), &archive = mixed_archive();
    const auto check = [&](std::uint64_t limit, std::uint64_t threads, bool restoring) {
        velk_options options = options_with(4);
        options.memory_limit = limit;
        memory_watch.restart(-1, -1);
        EXPECT_EQ(restoring ? decompress(options, archive, in.size()) : compress(options, in),
                  (Outcome{VELK_OK, restoring ? in : archive}));
        const auto most = static_cast<std::uint64_t>(memory_watch.most_held);
        EXPECT_LE(most, limit + threads * (32 << 10));
        EXPECT_TRUE(threads > 1 || most + (32 << 10) > limit); // several may find no work
    };
    for (std::uint64_t threads = 1; threads <= 3; ++threads) {
        const std::uint64_t waiting = threads == 1 ? 0 : 2 * kBlock;
        check(threads * (kBlock * 17 / 2 + waiting + (776 << 10)) + kBlock, threads, false);
        check(threads * (kBlock * 5 + waiting + (334 << 10)), threads, true);
    }
    velk_options options = options_with(1);
    options.level = VELK_MAX_LEVEL;
    options.memory_limit = kBlock * 12 + (776 << 10); // leaves less than what is tried takes
    EXPECT_EQ(compress(options, in).status, VELK_ERROR_MEMORY);
    options = options_with(1);
    options.memory_limit = kBlock * 9 + (776 << 10); // leaves less than the window
    TestStream stream(in);
    const velk_stream callbacks = stream.callbacks();
    EXPECT_EQ(velk_compress_stream(&options, &callbacks, VELK_SIZE_UNKNOWN), VELK_ERROR_MEMORY);
    CoderContext context{};
    context.settings.st_off = 1;
    const std::uint32_t to_compress = alloc_compress(context, kBlock + 513);
    free_compress(context);
    const std::uint32_t to_restore = alloc_decompress(context, kBlock + 513);
    free_decompress(context);
    for (const std::uint32_t missing : {1u, 0u}) {
        const velk_status right = missing == 0 ? VELK_OK : VELK_ERROR_MEMORY;
        velk_reader *reader;
        velk_encoder *encoder;
        velk_decoder *decoder;
        TestArchive test{archive};
        options.memory_limit = to_restore + 16 * sizeof(velk_block) - missing;
        EXPECT_EQ(open_reader(reader, test, &options), right);
        options.memory_limit = to_restore - missing;
        EXPECT_EQ(velk_decoder_new(&decoder, &options, archive.data()), right);
        options.memory_limit = to_compress - missing;
        EXPECT_EQ(velk_encoder_new(&encoder, &options, in.size()), right);
        velk_reader_close(reader);
        velk_decoder_free(decoder);
        velk_encoder_free(encoder);
        // With the window and room for 16 entries of the index.
        options.memory_limit += kBlock + (missing == 0 ? 192 : 191);
        EXPECT_EQ(compress(options, in).status, right);
        options.memory_limit = to_restore - missing;
        EXPECT_EQ(decompress(options, archive, in.size()).status, right);
    }
}

TEST(Library, SettingsOutOfBounds) {
    std::vector<velk_options> wrong = {{kBlock - 1, 1, 0, 0x20, 0, 0, 0, 0, 0, {}},
                                       {VELK_MAX_BLOCK_SIZE + 1, 1, 0, 0x20, 0, 0, 0, 0, 0, {}},
                                       {kBlock, 1, 0, 0, 0, 0, 0, 0, 0, {}},
                                       {kBlock, 1, 0, 0x20, 2, 0, 0, 0, 0, {}},
                                       {kBlock, 1, 0, 0x20, 0, 2, 0, 0, 0, {}},
                                       {kBlock, 1, 0, 0x20, 0, 0, 2, 0, 0, {}},
                                       {kBlock, 1, 0, 0x20, 0, 0, 0, 0, 2, {}},
                                       {kBlock + 512, 1, 0, 0x20, 0, 0, 0, 0, 0, {}}};
    for (std::size_t i = 0; i < sizeof wrong[0].reserved; ++i) {
        wrong.push_back(options_with(1));
        wrong.back().reserved[i] = 1;
    }
    for (const velk_options &options : wrong) {
        EXPECT_EQ(velk_compress_bound(1, &options), 0u);
        EXPECT_EQ(velk_block_size(&options, 1), 0u);
        EXPECT_EQ(compress(options, {}).status, VELK_ERROR_ARGUMENT);
        EXPECT_EQ(decompress(options, mixed_archive(), 0).status, VELK_ERROR_ARGUMENT);
    }
    TestStream bytes(mixed());
    velk_stream stream = bytes.callbacks();
    for (void *&reserved : stream.reserved) {
        reserved = &bytes;
        EXPECT_EQ(velk_compress_stream(nullptr, &stream, 1), VELK_ERROR_ARGUMENT);
        EXPECT_EQ(velk_decompress_stream(nullptr, &stream), VELK_ERROR_ARGUMENT);
        reserved = nullptr;
    }
    velk_options_init(nullptr);
    std::size_t size;
    EXPECT_EQ(velk_compress(nullptr, &bytes, SIZE_MAX, &bytes, 1, &size), VELK_ERROR_ARGUMENT);
}

TEST(Library, FlowsTakeAndGiveAnyPieces) {
    for (const std::uint32_t threads : {1u, 2u, 3u}) {
        const velk_options options = options_with(threads);
        std::atomic<int> blocks = 0;
        EXPECT_EQ(run_flow(false, options, mixed(), threads, 0, VELK_SIZE_UNKNOWN, &blocks),
                  (Outcome{VELK_OK, mixed_archive()}));
        EXPECT_EQ(blocks, threads == 1 ? 0 : 10);
        EXPECT_EQ(run_flow(true, options, mixed_archive(), threads), (Outcome{VELK_OK, mixed()}));
        const Outcome flushed = run_flow(false, options, mixed(), threads, 8, mixed().size());
        EXPECT_NE(flushed.bytes, mixed_archive());
        EXPECT_EQ(decompress(options, flushed.bytes, mixed().size()), (Outcome{VELK_OK, mixed()}));
        EXPECT_EQ(run_flow(false, options, mixed(), threads, 0, mixed().size() + 1).status,
                  VELK_ERROR_READ);
    }
}

// A flow and all that it has given.
struct Flow {
    velk_flow *flow = nullptr;
    Bytes out = {};
    velk_status run(const Bytes &in, velk_action action) {
        Bytes room(mixed().size());
        velk_buffers buffers = {in.data(), in.size(), room.data(), room.size()};
        velk_status status = velk_flow_run(flow, &buffers, action);
        for (; status == VELK_BUSY; status = velk_flow_run(flow, &buffers, action))
            velk_flow_wait(flow);
        out.insert(out.end(), room.begin(), room.end() - static_cast<int>(buffers.out_size));
        return status;
    }
};

// What was flushed can be restored, before anything else comes; and a block leaves that is done.
TEST(Library, FlowsHoldNothingBack) {
    for (const std::uint32_t level : {1u, 5u, 9u}) {
        velk_options options = options_with(1 + level % 4, 0);
        options.level = static_cast<std::uint8_t>(level);
        Flow forth, back;
        ASSERT_EQ(velk_flow_compress(&forth.flow, &options, VELK_SIZE_UNKNOWN, nullptr, nullptr),
                  VELK_OK);
        ASSERT_EQ(velk_flow_restore(&back.flow, &options, nullptr, nullptr), VELK_OK);
        EXPECT_EQ(forth.run({}, VELK_FLUSH), VELK_DONE);
        EXPECT_EQ(forth.out.size(), 0u);
        std::size_t at = 0, taken = 0;
        for (const std::size_t size : {1u, 300000u, 2u}) {
            const Bytes part(mixed().begin() + static_cast<int>(at),
                             mixed().begin() + static_cast<int>(at + size));
            at += size;
            EXPECT_EQ(forth.run(part, VELK_FLUSH), VELK_DONE);
            const std::size_t written = forth.out.size();
            EXPECT_EQ(forth.run({}, VELK_FLUSH), VELK_DONE);
            EXPECT_EQ(forth.out.size(), written);
            Bytes more(forth.out.begin() + static_cast<int>(taken), forth.out.end());
            taken = written;
            for (; back.run(more, VELK_RUN) == VELK_OK && back.out.size() < at; more.clear())
                velk_flow_wait(back.flow);
            EXPECT_EQ(back.out, first_bytes(mixed(), at));
        }
        EXPECT_EQ(forth.run({}, VELK_FINISH), VELK_DONE);
        EXPECT_EQ(back.run(Bytes(forth.out.begin() + static_cast<int>(taken), forth.out.end()),
                           VELK_FINISH),
                  VELK_DONE);
        velk_report report;
        velk_flow_report(back.flow, &report);
        EXPECT_EQ(report.size, at);
        EXPECT_TRUE(report.whole);
        EXPECT_EQ(back.run({}, VELK_FLUSH), VELK_ERROR_ARGUMENT);
        velk_flow_close(forth.flow);
        velk_flow_close(back.flow);
    }
    // Indexes that just fit into the bytes that are written at once, or not.
    for (const std::size_t blocks : {338u, 339u, 341u}) {
        Flow many;
        const velk_options quick = quick_options(1);
        ASSERT_EQ(velk_flow_compress(&many.flow, &quick, VELK_SIZE_UNKNOWN, nullptr, nullptr),
                  VELK_OK);
        for (std::size_t i = 0; i < blocks; ++i)
            EXPECT_EQ(many.run({7}, VELK_FLUSH), VELK_DONE);
        EXPECT_EQ(many.run({}, VELK_FINISH), VELK_DONE);
        EXPECT_EQ(decompress(quick, many.out, 400), (Outcome{VELK_OK, Bytes(blocks, 7)}));
        velk_flow_close(many.flow);
    }
    // Given up at work.
    Flow flow;
    velk_options options = options_with(3);
    ASSERT_EQ(velk_flow_compress(&flow.flow, &options, mixed().size(), nullptr, nullptr), VELK_OK);
    velk_buffers buffers = {mixed().data(), mixed().size(), nullptr, 0};
    EXPECT_EQ(velk_flow_run(flow.flow, &buffers, VELK_RUN), VELK_OK);
    velk_flow_close(flow.flow);
}

// Of one member nothing behind it is taken but what shows that it ends, which is told.
TEST(Library, FlowsOfOneMember) {
    const Bytes in = first_bytes(mixed(), 1000);
    for (const bool plain : {false, true}) {
        velk_options options = options_with(1);
        options.plain = plain;
        options.one_member = 1;
        const Bytes archive = compress(options, in).bytes;
        for (const Bytes &behind : {Bytes{}, to_bytes("more"), to_bytes("much more"), archive}) {
            Flow flow;
            ASSERT_EQ(velk_flow_restore(&flow.flow, &options, nullptr, nullptr), VELK_OK);
            Bytes out(in.size());
            const Bytes all = join({archive, behind});
            velk_buffers buffers = {all.data(), all.size(), out.data(), out.size()};
            const bool seen = !plain || behind.size() >= 5;
            EXPECT_EQ(velk_flow_run(flow.flow, &buffers, VELK_RUN), seen ? VELK_DONE : VELK_OK);
            EXPECT_EQ(velk_flow_run(flow.flow, &buffers, VELK_FINISH), VELK_DONE);
            EXPECT_EQ(out, in);
            const void *unused;
            const std::size_t taken = velk_flow_unused(flow.flow, &unused);
            EXPECT_EQ(taken + buffers.in_size, behind.size());
            EXPECT_EQ(taken, !plain || behind.empty() ? 0
                             : behind == archive      ? 18
                                                      : std::min<std::size_t>(behind.size(), 5));
            EXPECT_TRUE(taken == 0 || std::memcmp(unused, behind.data(), taken) == 0);
            velk_flow_close(flow.flow);
        }
    }
}

// Text, code and records.
const Bytes &changing() {
    static const Bytes bytes =
        join({prose(500000, 70, "\n", 1), code(700000, 2), records(450000, 4, 3)});
    return bytes;
}

std::vector<std::uint32_t> blocks_of(const Bytes &archive) {
    TestArchive test{archive};
    velk_reader *reader;
    EXPECT_EQ(open_reader(reader, test), VELK_OK);
    std::vector<std::uint32_t> sizes;
    velk_block block;
    while (velk_reader_block(reader, sizes.size(), &block) == VELK_OK)
        sizes.push_back(block.size);
    velk_reader_close(reader);
    return sizes;
}

TEST(Library, BlocksEndWhereTheContentChanges) {
    const Bytes &in = changing();
    const std::pair<std::uint8_t, std::uint32_t> cases[] = {
        {4, 0}, {5, 0}, {8, 0}, {9, 0}, {9, 1 << 20}};
    for (const auto &[level, block_size] : cases) {
        SCOPED_TRACE(level);
        velk_options options = options_with(1, block_size);
        options.level = level;
        const Bytes archive = compress(options, in).bytes;
        options.threads = 3;
        EXPECT_EQ(compress(options, in), (Outcome{VELK_OK, archive}));
        EXPECT_EQ(decompress(options, archive, in.size()), (Outcome{VELK_OK, in}));
        TestStream pipe(in);
        const velk_stream callbacks = pipe.callbacks();
        EXPECT_EQ(velk_compress_stream(&options, &callbacks, VELK_SIZE_UNKNOWN), VELK_OK);
        EXPECT_EQ(pipe.out, archive);
        EXPECT_EQ(difference_to_program(archive), "");
        EXPECT_EQ(read_all(archive, 100000), (Outcome{VELK_OK, in}));
    }
}

TEST(Library, BlocksOfTheLevels) {
    const auto at = [](std::uint8_t level, const Bytes &in) {
        velk_options options = options_with(2, 0);
        options.level = level;
        const Bytes archive = compress(options, in).bytes;
        EXPECT_LE(archive.size(), velk_compress_bound(in.size(), &options));
        return archive;
    };
    using Sizes = std::vector<std::uint32_t>;
    const Bytes &in = changing();
    const std::uint32_t piece = 32 << 10, rest = length_of(in) - 37 * piece;
    EXPECT_EQ(blocks_of(at(5, in)), (Sizes{15 * piece, 22 * piece, rest}));
    EXPECT_EQ(blocks_of(at(3, in)), (Sizes{16 * piece, 16 * piece, 16 * piece, rest - 11 * piece}));
    // What follows has long parts that are the same again.
    const Bytes code_again = join({code(200000, 2), prose(200000, 70, "\n", 1), code(200000, 2)});
    EXPECT_EQ(blocks_of(at(8, code_again)), (Sizes{600000}));
    // No filter tells these apart, but a trial does.
    const Bytes alike = join({random_bytes(16 * piece, 16, 1), random_bytes(16 * piece, 64, 2)});
    EXPECT_EQ(blocks_of(at(8, alike)), (Sizes{32 * piece}));
    EXPECT_EQ(blocks_of(at(9, alike)), (Sizes{16 * piece, 16 * piece}));
    EXPECT_LT(at(9, alike).size(), at(8, alike).size());
    velk_options plain = options_with(2, 0), fixed = options_with(2, VELK_MAX_BLOCK_SIZE);
    plain.level = 9;
    plain.plain = fixed.plain = 1;
    EXPECT_EQ(compress(plain, in), compress(fixed, in));
}

TEST(Library, ReaderFindsEveryPlace) {
    Random random(7);
    for (const std::size_t size : std::vector<std::size_t>{0, 1, 2 * kBlock, mixed().size()}) {
        const Bytes in = first_bytes(mixed(), size);
        const Bytes archive = compress(options_with(2), in).bytes;
        velk_reader *reader;
        TestArchive test{archive};
        ASSERT_EQ(open_reader(reader, test), VELK_OK);
        EXPECT_EQ(test.report.size, size);
        for (int i = 0; i < 30; ++i) {
            const std::size_t at = random.below(static_cast<std::uint32_t>(size + 10));
            Bytes piece(random.below(i % 2 == 0 ? 100 : 3 * kBlock));
            std::size_t got;
            ASSERT_EQ(velk_reader_read(reader, at, piece.data(), piece.size(), &got), VELK_OK);
            const std::size_t begin = std::min(at, size), end = std::min(at + piece.size(), size);
            ASSERT_EQ(first_bytes(piece, got), Bytes(in.begin() + static_cast<long>(begin),
                                                     in.begin() + static_cast<long>(end)));
        }
        velk_reader_close(reader);
    }
    const Bytes in = first_bytes(mixed(), kBlock + 1000);
    const Bytes archive = compress(options_with(1), in).bytes;
    Outcome read{VELK_ERROR_READ, {}};
    for (int good = 0; read.status == VELK_ERROR_READ; ++good) {
        read = read_all(archive, 100000, good);
        ASSERT_EQ(read.bytes, first_bytes(in, read.bytes.size()));
    }
    EXPECT_EQ(read, (Outcome{VELK_OK, in}));
    const Bytes block = first_bytes(in, 1000);
    EXPECT_EQ(read_all(make_archive(0x20, {block, block}), 5000).status, VELK_ERROR_FORMAT);
}

// Records made and restored in any order.
TEST(Library, SingleBlocksMakeTheSameArchive) {
    const velk_options options = options_with(1);
    const Bytes &in = mixed();
    Bytes archive(VELK_HEADER_SIZE), restored(kBlock);
    ASSERT_EQ(velk_write_header(&options, in.size(), archive.data()), VELK_OK);
    velk_options read;
    ASSERT_EQ(velk_read_header(archive.data(), &read), VELK_OK);
    EXPECT_EQ(velk_block_size(&read, 0), velk_block_size(&options, in.size()));
    velk_encoder *encoder;
    velk_decoder *decoder;
    ASSERT_EQ(velk_encoder_new(&encoder, &options, in.size()), VELK_OK);
    ASSERT_EQ(velk_decoder_new(&decoder, nullptr, archive.data()), VELK_OK);
    std::vector<Bytes> records(in.size() / kBlock + 1, Bytes(2 * kBlock));
    Bytes entries(records.size() * VELK_ENTRY_SIZE), index(entries.size() + 29);
    for (std::size_t i = records.size(); i-- > 0;) {
        Bytes &record = records[i];
        const std::uint8_t *const block = &in[i * kBlock];
        const std::size_t length = std::min<std::size_t>(kBlock, in.size() - i * kBlock);
        std::size_t size, got;
        ASSERT_EQ(
            velk_encode_block(encoder, block, length, record.data(), record.size(), &size, nullptr),
            VELK_OK);
        EXPECT_EQ(velk_encode_block(encoder, block, length, record.data(), size, &got,
                                    &entries[i * VELK_ENTRY_SIZE]),
                  VELK_OK);
        record.resize(size);
        EXPECT_EQ(velk_record_size(record.data(), &got), VELK_OK);
        EXPECT_EQ(got, size);
        Bytes damaged = record;
        put_record_head(damaged.data(), length_of(record) - kRecordHeadBytes - 1);
        EXPECT_EQ(velk_decode_block(decoder, damaged.data(), size, &restored[0], length, &got),
                  VELK_ERROR_DAMAGED);
        ASSERT_EQ(velk_decode_block(decoder, record.data(), size, &restored[0], length, &got),
                  VELK_OK);
        EXPECT_TRUE(got == length && std::equal(block, block + length, restored.begin()));
    }
    for (const Bytes &record : records)
        append(archive, record);
    std::size_t size;
    for (const std::size_t room : {index.size() - 1, index.size()})
        EXPECT_EQ(velk_write_index(archive.data(), entries.data(), records.size(), index.data(),
                                   room, &size),
                  room == index.size() ? VELK_OK : VELK_ERROR_SPACE);
    EXPECT_EQ(join({archive, index}), mixed_archive());
    velk_encoder_free(encoder);
    velk_decoder_free(decoder);
}

// The bytes of the format.
TEST(Library, IndexOfSmallArchives) {
    const Bytes magic = to_bytes("VELK_V0.95a>"), end = to_bytes("VELKindx");
    EXPECT_EQ(compress(options_with(1), {}).bytes, join({magic,
                                                         {0x71, 0x20, 1, 2, 2, 0, 0x1C, 0, 0, 0, 0},
                                                         Bytes(12),
                                                         {0x61, 0x78, 0x64, 0xC9},
                                                         end}));
    // Of a call that took the input for one of 900,000 bytes.
    const Bytes abc =
        join({magic,
              {0x71, 0x20, 1, 2,    2,    0,    0x61, 0x14, 0, 0, 0, 0x61, 0x62, 0x63, 1,   0xA1,
               0xBB, 0x0D, 0, 0x42, 0x77, 0x1B, 0,    1,    0, 0, 2, 0xFB, 0x3F, 0x65, 0x1C},
              {0x1C, 0, 0, 0, 0, 0x14, 0, 0, 0, 3, 0, 0, 0, 0xC2, 0x41, 0x24, 0x35},
              {3, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0x9D, 0x6A, 0xF0, 0x7E},
              end});
    velk_report report;
    EXPECT_EQ(restore_stream(abc, 1, report), (Outcome{VELK_OK, to_bytes("abc")}));
    EXPECT_EQ(report.crc, 0x352441C2u);
    EXPECT_EQ(report.archive_size, abc.size());
}

// The least block size above the input's that bears the mark.
TEST(Library, BlockSizesOfIndexedArchives) {
    const std::tuple<std::uint64_t, std::uint32_t, std::uint32_t> cases[] = {
        {0, 0, 131585},           {131584, 0, 131585},
        {131585, 0, 132609},      {2097151, 0, 2097665},
        {2097152, 0, 2097665},    {VELK_SIZE_UNKNOWN, 0, 2097665},
        {500000, kBlock, 131585}, {1u << 25, VELK_MAX_BLOCK_SIZE, 16775681}};
    for (const auto &[size, block_size, n] : cases) {
        Bytes header(VELK_HEADER_SIZE);
        const velk_options options = options_with(1, block_size);
        ASSERT_EQ(velk_write_header(&options, size, header.data()), VELK_OK);
        EXPECT_EQ(get_u32(&header[14]), n);
        EXPECT_LT(velk_block_size(&options, size), n);
        EXPECT_TRUE(size > velk_block_size(&options, size) || size < n);
    }
}

struct Part {
    Bytes bytes, original;
};

// Members of all kinds in a row: with indexes and plain, without a block, with one and several.
std::vector<Part> members() {
    const Bytes a = prose(150, 60, "\n", 1), b = code(90, 2), c = runs(40, 3);
    return {{make_indexed(0x20, {a, b, c}), join({a, b, c})},
            {make_archive(0x20, {b}), b}, // ends in a block that is shorter than others
            {make_indexed(0x20, {}), {}},
            {make_indexed(0x20, {c}), c}};
}

// What is right of an archive that was cut to `n` bytes of these members.
Outcome right_of_cut(const std::vector<Part> &parts, std::size_t n) {
    Outcome right{VELK_OK, {}};
    for (const Part &part : parts) {
        if (n == 0) return right;
        if (n < part.bytes.size()) {
            // A plain member without a record can't be told from an empty one.
            const bool empty = part.bytes[15] == 0 && n == VELK_HEADER_SIZE;
            return {empty ? VELK_OK : VELK_ERROR_DAMAGED, right.bytes};
        }
        append(right.bytes, part.original);
        n -= part.bytes.size();
    }
    return right;
}

TEST(Library, CutsOfMembersInARow) {
    const std::vector<Part> parts = members();
    Bytes archive;
    for (const Part &part : parts)
        append(archive, part.bytes);
    for (std::size_t n = 12; n <= archive.size(); ++n) {
        const Bytes cut = first_bytes(archive, n);
        ASSERT_EQ(difference_to_program(cut), "") << n;
        const Outcome right = right_of_cut(parts, n);
        velk_report report;
        const Outcome restored = restore_stream(cut, 1, report);
        EXPECT_EQ(report.cut, restored.status == VELK_ERROR_DAMAGED);
        EXPECT_TRUE(report.cut == 0 || report.whole == 0);
        ASSERT_EQ(restored.status, right.status) << n;
        ASSERT_TRUE(restored.bytes.size() >= right.bytes.size() &&
                    (right.status != VELK_OK || restored == right))
            << n;
        ASSERT_EQ(report.size, restored.bytes.size());
        velk_reader *reader;
        TestArchive test{cut};
        test.size_known = n % 2 == 0;
        ASSERT_EQ(open_reader(reader, test), right.status) << n;
        if (right.status == VELK_OK) {
            EXPECT_EQ(test.report.size, report.size);
            EXPECT_EQ(test.report.members, report.members);
            EXPECT_EQ(test.report.whole, report.whole);
            EXPECT_TRUE(test.report.has_crc == 0 || test.report.crc == report.crc);
        }
        velk_reader_close(reader);
    }
}

// The reader goes from member to member, whose memory differs, and back.
TEST(Library, ReaderOfMembers) {
    Bytes archive, original;
    for (const Part &part : members()) {
        append(archive, part.bytes);
        append(original, part.original);
    }
    velk_reader *reader;
    TestArchive test{archive};
    ASSERT_EQ(open_reader(reader, test), VELK_OK);
    for (std::size_t at = original.size(); at-- > 0;) {
        const std::size_t place = at % 2 == 0 ? at : original.size() - at;
        std::uint8_t byte;
        std::size_t got;
        ASSERT_EQ(velk_reader_read(reader, place, &byte, 1, &got), VELK_OK) << place;
        ASSERT_TRUE(got == 1 && byte == original[place]) << place;
    }
    velk_reader_close(reader);
}

// What lies behind the archive's size is not looked at, and a failure leaves the reader usable.
TEST(Library, ReaderWithinItsBounds) {
    const Bytes a = prose(150, 60, "\n", 1), whole = make_indexed(0x20, {a, a, a});
    for (std::size_t less = 1; less < whole.size(); less += 7) {
        velk_reader *reader;
        TestArchive test{whole};
        test.more = less;
        EXPECT_NE(open_reader(reader, test), VELK_OK) << less;
    }
    velk_options large = options_with(1, 1 << 22);
    large.fixed_block_size = 1;
    const Bytes archive = join({whole, compress(large, a).bytes});
    velk_options limited = options_with(1);
    limited.memory_limit = 2 << 20;
    velk_reader *reader;
    TestArchive test{archive};
    ASSERT_EQ(open_reader(reader, test, &limited), VELK_OK);
    std::uint8_t byte;
    std::size_t got;
    for (const velk_status right : {VELK_OK, VELK_ERROR_MEMORY, VELK_OK, VELK_ERROR_MEMORY}) {
        const std::uint64_t place = right == VELK_OK ? 1 : 3 * a.size();
        EXPECT_EQ(velk_reader_read(reader, place, &byte, 1, &got), right);
    }
    velk_reader_close(reader);
}

// An indexed archive whose header became that of a plain one shows itself by its index.
TEST(Library, IndexOfALostHeader) {
    const Bytes a = prose(150, 60, "\n", 1);
    for (const std::size_t blocks : {0u, 1u, 3u}) {
        Bytes archive = make_indexed(0x20, std::vector<Bytes>(blocks, a));
        std::copy_n(make_archive(0x20, {}).begin(), VELK_HEADER_SIZE, archive.begin());
        velk_report report;
        EXPECT_EQ(restore_stream(archive, 1, report).status, VELK_ERROR_DAMAGED) << blocks;
        EXPECT_EQ(report.damaged_part, VELK_PART_INDEX);
        velk_reader *reader;
        TestArchive test{archive};
        EXPECT_EQ(open_reader(reader, test), VELK_ERROR_DAMAGED) << blocks;
    }
}

// Each bit of an indexed archive flipped; blocks exchanged, removed, repeated, of another archive.
TEST(Library, DamageOfIndexedArchives) {
    const Bytes a = prose(150, 60, "\n", 1), b = code(150, 2), c = runs(40, 3);
    const Bytes archive = make_indexed(0x20, {a, b, c}), original = join({a, b, c});
    const std::vector<std::size_t> starts = record_starts(archive);
    // Every bit of header and index, and each fifth of the records, whose every byte DamageIsSeen
    // changes in an archive without index.
    const auto in_records = [&](std::size_t byte) { return starts[0] <= byte && byte < starts[3]; };
    for (std::size_t bit = 0; bit < 8 * archive.size(); ++bit) {
        if (in_records(bit / 8) && bit % 5 != 0) continue;
        Bytes damaged = archive;
        damaged[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
        ASSERT_EQ(difference_to_program(damaged), "") << bit;
        velk_report report;
        const Outcome restored = restore_stream(damaged, 1, report);
        ASSERT_NE(restored.status, VELK_OK) << bit;
    }
    const auto record = [&](std::size_t i) {
        return Bytes(archive.begin() + static_cast<long>(starts[i]),
                     archive.begin() + static_cast<long>(starts[i + 1]));
    };
    const Bytes header = first_bytes(archive, starts[0]),
                index(archive.begin() + static_cast<long>(starts[3]), archive.end());
    const Bytes other = make_archive(0x20, {runs(40, 4)});
    const Bytes foreign(other.begin() + VELK_HEADER_SIZE, other.end());
    const std::vector<Bytes> changes[] = {{record(1), record(0), record(2)},
                                          {record(0), record(2)},
                                          {record(0), record(1), record(2), record(2)},
                                          {record(0), record(1), foreign}};
    for (const std::vector<Bytes> &records : changes) {
        Bytes changed = header;
        for (const Bytes &r : records)
            append(changed, r);
        append(changed, index);
        velk_report report;
        ASSERT_EQ(difference_to_program(changed), "");
        EXPECT_EQ(restore_stream(changed, 1, report).status, VELK_ERROR_DAMAGED);
        EXPECT_EQ(report.damaged_part, VELK_PART_INDEX);
        EXPECT_NE(read_all(changed, 70000).status, VELK_OK);
    }
}

// What follows an archive: left out, part of it, or damage.
TEST(Library, WhatFollowsAnArchive) {
    const Bytes a = prose(150, 60, "\n", 1);
    const Bytes indexed = make_indexed(0x20, {a}), small = make_archive(0x20, {a});
    const Bytes full = make_archive(0x20, {runs(kBlock, 1)}), other = make_indexed(0x20, {});
    const std::tuple<Bytes, Bytes, velk_status, int> cases[] = {
        {indexed, {'\n'}, VELK_OK, 1},
        {indexed, Bytes(512), VELK_OK, 1},
        {small, {'\n'}, VELK_OK, 1},
        {small, to_bytes("VEL"), VELK_ERROR_DAMAGED, 0},
        {indexed, to_bytes("VELK_V0.95a>......"), VELK_ERROR_DAMAGED, 0},
        {indexed, to_bytes("VELK_V........xxxxx"), VELK_OK, 1},
        {indexed, to_bytes("VELK_V0.9.......xxxxx"), VELK_ERROR_DAMAGED, 0},
        {full, {'\n'}, VELK_ERROR_DAMAGED, 0},
        {full, to_bytes("VELK_............."), VELK_ERROR_DAMAGED, 0},
        {small, to_bytes("VELK_............."), VELK_OK, 1},
        {full, other, VELK_OK, 0},
        {first_bytes(indexed, indexed.size() - 41), other, VELK_ERROR_DAMAGED, 0}};
    for (const auto &[archive, more, status, follows] : cases) {
        const Bytes both = join({archive, more});
        velk_report report;
        ASSERT_EQ(difference_to_program(both), "") << testing::PrintToString(more);
        EXPECT_EQ(restore_stream(both, 1, report).status, status) << testing::PrintToString(more);
        EXPECT_EQ(status == VELK_OK ? report.bytes_follow : 0, follows);
        velk_reader *reader;
        TestArchive test{both};
        EXPECT_EQ(open_reader(reader, test), status) << testing::PrintToString(more);
        EXPECT_EQ(test.report.bytes_follow, follows);
        velk_reader_close(reader);
    }
}

// A block of N bytes tells that a plain archive of a file of such a size is none with an index.
TEST(Library, PlainArchivesWithTheMark) {
    const ScratchFolder scratch;
    const Bytes in = runs(131585, 1);
    write_file(scratch.input, in);
    ASSERT_EQ(run_velk({"e", scratch.input, scratch.archive}).status, 0);
    const Bytes archive = read_file(scratch.archive);
    velk_report report;
    EXPECT_EQ(restore_stream(archive, 2, report), (Outcome{VELK_OK, in}));
    EXPECT_EQ(report.whole, 1);
    EXPECT_EQ(read_all(archive, 70000), (Outcome{VELK_OK, in}));
    EXPECT_EQ(restore_stream(first_bytes(archive, 18), 1, report).status, VELK_ERROR_DAMAGED);
    // A multiple of 1024 can't tell.
    EXPECT_EQ(restore_stream(make_archive(0x20, {runs(kBlock, 1)}), 1, report).status, VELK_OK);
    EXPECT_EQ(report.whole, 0);
}

// Two reads where the index is within the last 64 KiB, and three beyond.
TEST(Library, ReadsToOpen) {
    for (const std::size_t blocks : {100u, 6000u}) {
        const Bytes archive = make_indexed(0x20, std::vector<Bytes>(blocks, Bytes(20, 'a')));
        velk_reader *reader;
        TestArchive test{archive};
        test.largest = archive.size();
        ASSERT_EQ(open_reader(reader, test), VELK_OK);
        EXPECT_EQ(test.calls, blocks == 100 ? 2 : 3);
        velk_block block;
        EXPECT_EQ(velk_reader_block(reader, blocks, &block), VELK_ERROR_ARGUMENT);
        EXPECT_EQ(velk_reader_block(reader, blocks - 1, &block), VELK_OK);
        EXPECT_EQ(block.start, 20 * (blocks - 1));
        velk_reader_close(reader);
    }
}

// Each byte damaged, each length, and more behind the end: it is seen, or does not matter, and
// the library says what the program does. Cut between two records, an archive has fewer blocks.
TEST(Library, DamageIsSeen) {
    const Bytes block = prose(150, 60, "\n", 1), original = join({block, block, block});
    const Bytes archive = make_archive(0x20, {block, block, block});
    const std::vector<std::size_t> starts = record_starts(archive);
    const auto face = [&](const Bytes &damaged, std::size_t at) {
        ASSERT_EQ(difference_to_program(damaged), "") << at;
        velk_report report;
        const Outcome restored = restore_stream(damaged, 1, report);
        ASSERT_TRUE(restored.status != VELK_OK || restored.bytes == original ||
                    report.bytes_follow != 0)
            << at;
    };
    for (std::size_t at = 0; at < archive.size(); ++at) {
        const Bytes cut = first_bytes(archive, at);
        ASSERT_EQ(difference_to_program(cut), "") << at;
        const velk_status status = decompress(options_with(1), cut, 2000).status;
        const bool at_record = std::count(starts.begin(), starts.end(), at) == 1;
        // Behind a short block no more must come, and what does is left out.
        const bool in_head =
            (at > starts[1] && at < starts[1] + 5) || (at > starts[2] && at < starts[2] + 5);
        ASSERT_EQ(status == VELK_OK, at_record || in_head) << at;
        for (int bit = at % 2 == 0 ? 1 : 2; bit < 256; bit *= 4) {
            Bytes damaged = archive;
            damaged[at] ^= static_cast<std::uint8_t>(bit);
            face(damaged, at);
        }
        if (at != 0) face(join({archive, random_bytes(at, at % 2 == 0 ? 256 : 1, at)}), at);
    }
}

// No check sees which records there are, nor their order: the blocks come back as they stand.
TEST(Library, RecordsExchangedRemovedAndRepeated) {
    const ScratchFolder scratch;
    const Bytes a = prose(kBlock, 60, "\n", 1), b = code(kBlock, 2), last = runs(999, 3);
    const std::vector<Bytes> changes[] = {{b, a, last}, {b, last}, {a, a, b, last}, {a}, {}};
    for (const std::vector<Bytes> &blocks : changes) {
        const Bytes archive = make_archive(0x20, blocks);
        Bytes original;
        for (const Bytes &block : blocks)
            append(original, block);
        EXPECT_EQ(difference_to_program(archive), "");
        EXPECT_EQ(read_all(archive, 70000), (Outcome{VELK_OK, original}));
        write_file(scratch.archive, archive);
        EXPECT_EQ(run_velkinfo({"test", scratch.archive}).status, 0);
        EXPECT_EQ(run_velk({"d", scratch.archive, scratch.output}).status, 0);
        EXPECT_EQ(read_file(scratch.output), original);
    }
}

} // namespace
