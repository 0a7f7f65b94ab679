// Memory to memory: a flow that is given all at once.
#include "api/flow.h"
#include "api/options.h"
#include "archive/member.h"
#include "base/block_size.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

using namespace velk;

namespace {

struct Archive {
    const std::uint8_t *bytes;
    std::uint64_t size;
};

bool read_placed(void *user, std::uint64_t offset, void *bytes, std::uint32_t count,
                 std::uint32_t &got) {
    const Archive &archive = *static_cast<const Archive *>(user);
    const std::uint64_t left = offset < archive.size ? archive.size - offset : 0;
    got = static_cast<std::uint32_t>(std::min<std::uint64_t>(count, left));
    if (got != 0) std::memcpy(bytes, archive.bytes + offset, got);
    return true;
}

velk_status run_whole(const Coder &coder, const velk_options *options, const void *in,
                      std::size_t in_size, void *out, std::size_t capacity, std::size_t *out_size,
                      velk_report *report) {
    if (out_size == nullptr) return VELK_ERROR_ARGUMENT;
    *out_size = 0;
    if ((in == nullptr && in_size != 0) || (out == nullptr && capacity != 0) ||
        in_size == SIZE_MAX) // which no memory has
        return VELK_ERROR_ARGUMENT;
    velk_flow flow{};
    velk_status status = start_flow(flow, coder, options, in_size);
    if (status == VELK_ERROR_ARGUMENT) return status;
    if (status == VELK_OK) {
        velk_buffers buffers = {in, in_size, out, capacity};
        while ((status = velk_flow_run(&flow, &buffers, VELK_FINISH)) == VELK_BUSY)
            wait_for_output(flow);
        *out_size = capacity - buffers.out_size;
        end_flow(flow);
    }
    if (report != nullptr) *report = report_of(flow);
    if (status == VELK_OK) return VELK_ERROR_SPACE; // for what is to come
    return status == VELK_DONE ? VELK_OK : status;
}

} // namespace

velk_status velk_compress(const velk_options *options, const void *in, std::size_t in_size,
                          void *out, std::size_t capacity, std::size_t *out_size) {
    return run_whole(kCompressor, options, in, in_size, out, capacity, out_size, nullptr);
}

velk_status velk_decompress(const velk_options *options, const void *archive, std::size_t size,
                            void *out, std::size_t capacity, std::size_t *out_size,
                            velk_report *report) {
    return run_whole(kRestorer, options, archive, size, out, capacity, out_size, report);
}

velk_status velk_decompress_bound(const void *archive, std::size_t size, std::uint64_t *bound) {
    if (bound == nullptr) return VELK_ERROR_ARGUMENT;
    *bound = 0;
    if (archive == nullptr && size != 0) return VELK_ERROR_ARGUMENT;
    Archive bytes = {static_cast<const std::uint8_t *>(archive), size};
    const PlacedSource source = {&bytes, read_placed};
    std::uint64_t sum = 0;
    for (std::uint64_t at = 0;;) {
        const std::uint8_t *const start = bytes.bytes + at;
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
