// Memory to memory: streams whose two ends are buffers.
#include "api/options.h"
#include "archive/member.h"
#include "base/block_size.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

using namespace velk;

namespace {

struct Buffers {
    const std::uint8_t *in;
    std::size_t in_left;
    std::uint8_t *out;
    std::size_t room; // left in `out`
};

std::int64_t read_buffer(void *user, void *buffer, std::size_t size) {
    Buffers &b = *static_cast<Buffers *>(user);
    const std::size_t part = std::min(size, b.in_left);
    if (part != 0) std::memcpy(buffer, b.in, part);
    b.in += part;
    b.in_left -= part;
    return static_cast<std::int64_t>(part);
}

std::int64_t write_buffer(void *user, const void *buffer, std::size_t size) {
    Buffers &b = *static_cast<Buffers *>(user);
    const std::size_t part = std::min(size, b.room);
    if (part != 0) std::memcpy(b.out, buffer, part);
    b.out += part;
    b.room -= part;
    return static_cast<std::int64_t>(part);
}

// Of what has not been read from the front.
bool read_placed(void *user, std::uint64_t offset, void *bytes, std::uint32_t count,
                 std::uint32_t &got) {
    const Buffers &b = *static_cast<const Buffers *>(user);
    const std::uint64_t left = offset < b.in_left ? b.in_left - offset : 0;
    got = static_cast<std::uint32_t>(std::min<std::uint64_t>(count, left));
    if (got != 0) std::memcpy(bytes, b.in + offset, got);
    return true;
}

// Calls run(stream) with the buffers as its ends.
template<typename Run>
velk_status run_on_buffers(const void *in, std::size_t in_size, void *out, std::size_t capacity,
                           std::size_t *out_size, velk_report *report, Run run) {
    if (out_size == nullptr) return VELK_ERROR_ARGUMENT;
    *out_size = 0;
    if ((in == nullptr && in_size != 0) || (out == nullptr && capacity != 0))
        return VELK_ERROR_ARGUMENT;
    Buffers buffers = {static_cast<const std::uint8_t *>(in), in_size,
                       static_cast<std::uint8_t *>(out), capacity};
    const velk_stream stream = {&buffers, read_buffer, write_buffer, nullptr, report, {}};
    const velk_status status = run(stream);
    *out_size = capacity - buffers.room;
    return status == VELK_ERROR_WRITE ? VELK_ERROR_SPACE : status;
}

} // namespace

velk_status velk_compress(const velk_options *options, const void *in, std::size_t in_size,
                          void *out, std::size_t capacity, std::size_t *out_size) {
    return run_on_buffers(
        in, in_size, out, capacity, out_size, nullptr,
        [=](const velk_stream &stream) { return velk_compress_stream(options, &stream, in_size); });
}

velk_status velk_decompress(const velk_options *options, const void *archive, std::size_t size,
                            void *out, std::size_t capacity, std::size_t *out_size,
                            velk_report *report) {
    return run_on_buffers(
        archive, size, out, capacity, out_size, report,
        [=](const velk_stream &stream) { return velk_decompress_stream(options, &stream); });
}

velk_status velk_decompress_bound(const void *archive, std::size_t size, std::uint64_t *bound) {
    if (bound == nullptr) return VELK_ERROR_ARGUMENT;
    *bound = 0;
    if (archive == nullptr && size != 0) return VELK_ERROR_ARGUMENT;
    Buffers buffers = {static_cast<const std::uint8_t *>(archive), size, nullptr, 0};
    const PlacedSource source = {&buffers, read_placed};
    std::uint64_t sum = 0;
    for (std::uint64_t at = 0;;) {
        const std::uint8_t *const start = buffers.in + at;
        const auto left =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(size - at, kFirstRecord));
        Settings settings{};
        std::uint32_t block_size;
        ArchiveStatus status =
            at == 0 ? parse_start(start, left, settings, block_size) : classify_behind(start, left);
        const bool more = status == ArchiveStatus::kNextHeader &&
                          parse_start(start, left, settings, block_size) == ArchiveStatus::kGood;
        if (status != ArchiveStatus::kGood && !more) {
            if (status_of(status) == VELK_OK) *bound = sum;
            return status_of(status);
        }
        RecordWalk walk;
        walk.next = at + kFirstRecord;
        const std::uint32_t capacity = block_size + kBlockSlack;
        std::uint64_t records = 0;
        while ((status = next_record(source, capacity, walk)) == ArchiveStatus::kGood)
            ++records;
        at = walk.next + (status == ArchiveStatus::kEndMark ? kRecordHeadBytes : 0);
        IndexedMember member;
        if (status == ArchiveStatus::kEndMark && is_marked(block_size) &&
            find_indexed(source, at + entry_bytes(records) + kFooterBytes, member) ==
                ArchiveStatus::kGood &&
            member.entries == at) {
            at += entry_bytes(records) + kFooterBytes;
            sum += member.sum.size; // each member's, and all, below 2^24 for 22 bytes
            continue;
        }
        // That no block is there is a cut, unless N, or an end mark, tells of an empty original.
        if (status == ArchiveStatus::kBlockCut ||
            (records == 0 &&
             (block_size % 1024 != 0 || status == ArchiveStatus::kHeadDamaged ||
              status == ArchiveStatus::kHeadCut || status == ArchiveStatus::kLengthInvalid) &&
             (status != ArchiveStatus::kEndMark || is_marked(block_size))))
            return VELK_ERROR_DAMAGED;
        sum += records * capacity;
    }
}
