#include "library_call.h"

#include "archive_call.h"

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
    if (test.good_calls-- == 0) return -1;
    if (offset >= archive.size()) return 0;
    const std::size_t part = std::min<std::size_t>({size, archive.size() - offset, 3000});
    std::copy_n(archive.begin() + static_cast<std::ptrdiff_t>(offset), part,
                static_cast<std::uint8_t *>(buffer));
    return static_cast<std::int64_t>(part);
}

Outcome outcome_of(decltype(velk_compress) *call, const velk_options &options, const Bytes &in,
                   std::size_t capacity) {
    Bytes out(capacity);
    std::size_t size;
    const velk_status status = call(&options, in.data(), in.size(), out.data(), out.size(), &size);
    return {status, first_bytes(out, size)};
}

// The library does not tell a header that no compressor writes from other files.
velk_status status_of(ArchiveStatus status) {
    switch (status) {
    case ArchiveStatus::kEnd:
    case ArchiveStatus::kEndMark:
        return VELK_OK;
    case ArchiveStatus::kNotAnArchive:
    case ArchiveStatus::kHeaderInvalid:
        return VELK_ERROR_FORMAT;
    default:
        return VELK_ERROR_DAMAGED;
    }
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
    return outcome_of(velk_compress, options, in, velk_compress_bound(in.size(), &options));
}

Outcome decompress(const velk_options &options, const Bytes &archive, std::size_t capacity) {
    return outcome_of(velk_decompress, options, archive, capacity);
}

velk_stream TestStream::callbacks() {
    return {this, read_part, write_part, tell, {}};
}

velk_status open_reader(velk_reader *&reader, TestArchive &archive, const velk_options *options) {
    return velk_reader_open(&reader, options, read_at, &archive, nullptr);
}

Outcome read_all(const Bytes &archive, std::size_t piece, int good_calls) {
    Outcome outcome{VELK_OK, {}};
    TestArchive test{archive, good_calls};
    velk_reader *reader;
    outcome.status = open_reader(reader, test);
    for (std::size_t got = 1; outcome.status == VELK_OK && got != 0;) {
        const std::size_t at = outcome.bytes.size();
        outcome.bytes.resize(at + piece);
        outcome.status = velk_reader_read(reader, at, &outcome.bytes[at], piece, &got);
        outcome.bytes.resize(at + got);
    }
    velk_reader_close(reader);
    return outcome;
}

std::string difference_to_program(const Bytes &archive) {
    const Restored expected = restore_archive(archive);
    const Outcome right = {status_of(expected.status), expected.bytes};
    std::uint64_t bound;
    const velk_status bounded = velk_decompress_bound(archive.data(), archive.size(), &bound);
    if (right.status == VELK_OK && (bounded != VELK_OK || bound < right.bytes.size()))
        return "the bound";
    for (const std::uint32_t threads : {1u, 3u}) {
        if (decompress(options_with(threads), archive, right.bytes.size() + 1) != right)
            return "restored by " + std::to_string(threads) + " threads";
    }
    // A reader can't restore what has a short block in the middle, and finds damage behind
    // a block before it has got there.
    const Outcome read = read_all(archive, 70000);
    if (!begins(right.bytes, read.bytes)) return "the reader's bytes";
    if (read.status == VELK_OK && read != right) return "the reader's end";
    if (read.status != VELK_OK && read.status != VELK_ERROR_FORMAT && read.status != right.status)
        return "the reader's status";
    return "";
}
