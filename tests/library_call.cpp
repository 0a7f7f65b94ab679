#include "library_call.h"

#include "archive/index.h"
#include "archive_call.h"
#include "base/byte_order.h"

#include <algorithm>

namespace {

// What this call answers, if it is the one to go wrong.
std::optional<std::int64_t> wrong_answer(TestStream &s, Call call, std::size_t size) {
    if (s.faulty != call || s.good_calls-- != 0) return {};
    s.fault_met = true;
    return s.wrong_answer == kTooMuch ? static_cast<std::int64_t>(size) + 1 : s.wrong_answer;
}

std::int64_t read_part(void *user, void *buffer, std::size_t size) {
    TestStream &s = *static_cast<TestStream *>(user);
    if (const auto wrong = wrong_answer(s, Call::kRead, size)) return *wrong;
    const std::size_t part =
        std::min({size, s.in.size() - s.at, std::size_t{1} + s.read_sizes.below(100000)});
    std::copy_n(s.in.begin() + static_cast<std::ptrdiff_t>(s.at), part,
                static_cast<std::uint8_t *>(buffer));
    s.at += part;
    return static_cast<std::int64_t>(part);
}

std::int64_t write_part(void *user, const void *buffer, std::size_t size) {
    TestStream &s = *static_cast<TestStream *>(user);
    if (const auto wrong = wrong_answer(s, Call::kWrite, size)) return *wrong;
    const std::size_t part = std::min(size, std::size_t{1} + s.write_sizes.below(100000));
    const auto *const bytes = static_cast<const std::uint8_t *>(buffer);
    s.out.insert(s.out.end(), bytes, bytes + part);
    return static_cast<std::int64_t>(part);
}

int tell(void *user, std::uint64_t bytes_in, std::uint64_t bytes_out) {
    TestStream &s = *static_cast<TestStream *>(user);
    s.told_in = bytes_in;
    s.told_out = bytes_out;
    return static_cast<int>(wrong_answer(s, Call::kTell, 0).value_or(0));
}

std::int64_t read_at(void *user, std::uint64_t offset, void *buffer, std::size_t size) {
    TestArchive &test = *static_cast<TestArchive *>(user);
    const Bytes &archive = test.bytes;
    ++test.calls;
    if (test.good_calls-- == 0) return -1;
    if (offset >= archive.size()) return 0;
    const std::size_t part = std::min<std::size_t>({size, archive.size() - offset, test.largest});
    std::copy_n(archive.begin() + static_cast<std::ptrdiff_t>(offset), part,
                static_cast<std::uint8_t *>(buffer));
    return static_cast<std::int64_t>(part);
}

// What is left of `out` when the call has written its `size` bytes.
Outcome outcome_of(velk_status status, const Bytes &out, std::size_t size) {
    return {status, first_bytes(out, size)};
}

bool begins(const Bytes &whole, const Bytes &part) {
    return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

} // namespace

velk_options options_with(std::uint32_t threads, std::uint32_t block_size) {
    velk_options options;
    velk_options_init(&options);
    options.threads = threads;
    options.block_size = block_size;
    return options;
}

Outcome compress(const velk_options &options, const Bytes &in) {
    Bytes out(velk_compress_bound(in.size(), &options));
    std::size_t size;
    const velk_status status =
        velk_compress(&options, in.data(), in.size(), out.data(), out.size(), &size);
    return outcome_of(status, out, size);
}

Outcome decompress(const velk_options &options, const Bytes &archive, std::size_t capacity) {
    Bytes out(capacity);
    std::size_t size;
    const velk_status status = velk_decompress(&options, archive.data(), archive.size(), out.data(),
                                               out.size(), &size, nullptr);
    return outcome_of(status, out, size);
}

velk_stream TestStream::callbacks() {
    return {this, read_part, write_part, tell, nullptr, {}};
}

velk_status open_reader(velk_reader *&reader, TestArchive &archive, const velk_options *options) {
    const std::uint64_t size =
        archive.size_known ? archive.bytes.size() - archive.more : VELK_SIZE_UNKNOWN;
    return velk_reader_open(&reader, options, read_at, &archive, size, &archive.report);
}

Outcome read_all(const Bytes &archive, std::size_t piece, int good_calls, velk_report *report) {
    Outcome outcome{VELK_OK, {}};
    TestArchive test{archive, good_calls};
    velk_reader *reader;
    outcome.status = open_reader(reader, test);
    if (report != nullptr) *report = test.report;
    for (std::size_t got = 1; outcome.status == VELK_OK && got != 0;) {
        const std::size_t at = outcome.bytes.size();
        outcome.bytes.resize(at + piece);
        outcome.status = velk_reader_read(reader, at, &outcome.bytes[at], piece, &got);
        outcome.bytes.resize(at + got);
    }
    velk_reader_close(reader);
    return outcome;
}

Outcome restore_stream(const Bytes &archive, std::uint32_t threads, velk_report &report) {
    TestStream stream(archive);
    velk_stream callbacks = stream.callbacks();
    callbacks.report = &report;
    const velk_options options = options_with(threads);
    const velk_status status = velk_decompress_stream(&options, &callbacks);
    return {status, stream.out};
}

Outcome run_flow(bool restoring, const velk_options &options, const Bytes &in, std::uint32_t seed,
                 std::uint32_t flushes, std::uint64_t size, std::atomic<int> *blocks) {
    std::atomic<int> uncounted = 0;
    const auto count = [](void *user) { ++*static_cast<std::atomic<int> *>(user); };
    void *const user = blocks != nullptr ? blocks : &uncounted;
    velk_flow *flow;
    Outcome outcome{restoring ? velk_flow_restore(&flow, &options, count, user)
                              : velk_flow_compress(&flow, &options, size, count, user),
                    {}};
    Random random(seed);
    const auto size_of = [&random] { return random.below(1u << random.below(18)); };
    for (std::size_t at = 0; outcome.status == VELK_OK || outcome.status == VELK_BUSY;) {
        if (outcome.status == VELK_BUSY) velk_flow_wait(flow);
        Bytes out(size_of());
        const std::size_t part = std::min<std::size_t>(size_of(), in.size() - at);
        const bool flushing = random.below(16) < flushes;
        const velk_action action = flushing                 ? VELK_FLUSH
                                   : at + part == in.size() ? VELK_FINISH
                                                            : VELK_RUN;
        velk_buffers buffers = {in.data() + at, part, out.data(), out.size()};
        outcome.status = velk_flow_run(flow, &buffers, action);
        at += part - buffers.in_size;
        out.resize(out.size() - buffers.out_size);
        outcome.bytes.insert(outcome.bytes.end(), out.begin(), out.end());
        if (flushing && outcome.status == VELK_DONE) outcome.status = VELK_OK;
    }
    velk_flow_close(flow);
    if (outcome.status == VELK_DONE) outcome.status = VELK_OK;
    return outcome;
}

std::string difference_to_program(const Bytes &archive, bool with_threads) {
    const Restored program = restore_archive(archive);
    velk_report report, again;
    const Outcome right = restore_stream(archive, 1, report);
    const bool ok = right.status == VELK_OK;
    const std::uint32_t block_size = archive.size() < 18 ? 0 : get_u32(&archive[14]);
    // Where an index must follow, the library refuses blocks of no bytes and of N or more.
    bool refused = is_marked(block_size) && report.damaged_part == VELK_PART_BLOCK &&
                   report.damaged_block < program.lengths.size();
    if (refused) {
        const std::size_t length = program.lengths[report.damaged_block];
        refused = length == 0 || length >= block_size;
    }
    if (!begins(right.bytes, program.bytes) && !(refused && begins(program.bytes, right.bytes)))
        return "the program's bytes";
    if (ok && !program.whole() && report.bytes_follow == 0 && report.members < 2)
        return "what the program refuses";
    if (!ok && program.status == ArchiveStatus::kEnd && block_size % 1024 == 0)
        return "what the program restores";
    if (with_threads &&
        (restore_stream(archive, 3, again) != right || again.size != report.size ||
         again.crc != report.crc || again.damaged_part != report.damaged_part ||
         again.damaged_offset != report.damaged_offset || again.whole != report.whole))
        return "threads";
    const std::uint32_t seed = crc32_append(0, archive.data(), archive.size());
    if (run_flow(true, options_with(1), archive, seed) != right) return "the flow";
    std::uint64_t bound;
    const velk_status bounded = velk_decompress_bound(archive.data(), archive.size(), &bound);
    if (ok && (bounded != VELK_OK || bound < right.bytes.size())) return "the bound";
    // A reader can't restore plain archives with a short block in the middle. It goes by an
    // index, if it can, and needs no record heads then.
    const Outcome read = read_all(archive, 70000, -1, &again);
    if (read.status == VELK_OK ? read != right && again.has_crc == 0
                               : !begins(right.bytes, read.bytes))
        return "the reader's bytes";
    if (ok && read.status != VELK_OK && read.status != VELK_ERROR_FORMAT)
        return "the reader's status";
    return "";
}
