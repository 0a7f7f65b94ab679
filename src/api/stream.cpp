// velk_compress_stream and velk_decompress_stream: what comes before the first block, and
// where the next one is read from.
#include "api/options.h"
#include "api/transfer.h"
#include "archive/format.h"
#include "archive/memory.h"
#include "base/block_size.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

using namespace velk;

namespace {

bool usable(const velk_stream *stream) {
    return stream != nullptr && stream->read != nullptr && stream->write != nullptr &&
           std::all_of(stream->reserved, stream->reserved + 4,
                       [](const void *pointer) { return pointer == nullptr; });
}

velk_status next_of_input(Transfer &t, std::uint8_t *buffer, std::uint32_t &length) {
    const std::size_t wanted = std::min<std::uint64_t>(t.bytes_left, t.block_size);
    const std::uint32_t ahead = std::min(t.ahead_bytes, static_cast<std::uint32_t>(wanted));
    if (ahead != 0) std::memcpy(buffer, t.ahead, ahead);
    t.ahead += ahead;
    t.ahead_bytes -= ahead;
    std::size_t got;
    const velk_status status = read_fully(t, buffer + ahead, wanted - ahead, got);
    if (status != VELK_OK) return status;
    length = ahead + static_cast<std::uint32_t>(got);
    t.bytes_in += length;
    if (t.bytes_left == VELK_SIZE_UNKNOWN) return VELK_OK;
    t.bytes_left -= length;
    return length == wanted ? VELK_OK : VELK_ERROR_READ;
}

velk_status next_of_archive(Transfer &t, std::uint8_t *buffer, std::uint32_t &length) {
    std::uint8_t head[kRecordHeadBytes];
    std::size_t got;
    velk_status status = read_fully(t, head, sizeof head, got);
    length = 0;
    if (status != VELK_OK || got == 0) return status;
    if (got != sizeof head) return VELK_ERROR_DAMAGED;
    const ArchiveStatus head_status = parse_record_head(head, t.block_size + kBlockSlack, length);
    if (head_status != ArchiveStatus::kGood) return status_of(head_status);
    status = read_fully(t, buffer, length, got);
    if (status == VELK_OK && got != length) return VELK_ERROR_DAMAGED;
    t.bytes_in += sizeof head + length;
    return status;
}

// How many threads the limit has room for, at least the one whose `bytes` it had.
std::uint32_t affordable(const Plan &plan, std::uint64_t bytes, std::uint32_t capacity) {
    const std::uint64_t by_memory = plan.memory_limit / (bytes + 2 * std::uint64_t{capacity});
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(plan.threads, by_memory));
}

velk_status compress(const Plan &plan, Transfer &t, std::uint64_t input_size) {
    t.coder = &kCompressor;
    t.with_heads = true;
    t.next = next_of_input;
    t.bytes_left = input_size;
    t.block_size = choose_block_size(plan.settings, input_size);
    CoderContext context{};
    context.settings = plan.settings;
    set_file_size(context, input_size + 1); // 0 for an unknown one
    std::uint32_t bytes;
    velk_status status = alloc_within(kCompressor, context, t.block_size, plan.memory_limit, bytes);
    if (status != VELK_OK) return status;

    std::uint8_t header[VELK_HEADER_SIZE];
    put_start(header, plan.settings, t.block_size);
    status = write_fully(t, header, sizeof header);
    if (status != VELK_OK) {
        kCompressor.free(context);
        return status;
    }
    const std::uint32_t threads =
        input_size <= t.block_size ? 1 : affordable(plan, bytes, context.capacity);
    return transfer_blocks(t, context, threads);
}

// A block and a byte of the input are read ahead: what ends within the block is an input
// of known size.
velk_status compress_unknown(Plan plan, Transfer &t) {
    const std::uint32_t most = plan.settings.max_block_size + 1;
    if (plan.memory_limit < most) return VELK_ERROR_MEMORY;
    std::uint8_t *const ahead = static_cast<std::uint8_t *>(std::malloc(most));
    if (ahead == nullptr) return VELK_ERROR_MEMORY;
    std::size_t got;
    velk_status status = read_fully(t, ahead, most, got);
    if (status == VELK_OK) {
        t.ahead = ahead;
        t.ahead_bytes = static_cast<std::uint32_t>(got);
        plan.memory_limit -= most;
        status = compress(plan, t, got < most ? got : VELK_SIZE_UNKNOWN);
    }
    std::free(ahead);
    return status;
}

} // namespace

velk_status velk_compress_stream(const velk_options *options, const velk_stream *stream,
                                 std::uint64_t input_size) {
    Plan plan;
    if (!usable(stream) || !make_plan(options, plan)) return VELK_ERROR_ARGUMENT;
    Transfer transfer{};
    transfer.stream = stream;
    return input_size == VELK_SIZE_UNKNOWN ? compress_unknown(plan, transfer)
                                           : compress(plan, transfer, input_size);
}

velk_status velk_decompress_stream(const velk_options *options, const velk_stream *stream) {
    Plan plan;
    if (!usable(stream) || !make_plan(options, plan)) return VELK_ERROR_ARGUMENT;
    Transfer transfer{};
    transfer.stream = stream;
    transfer.coder = &kRestorer;
    transfer.next = next_of_archive;
    std::uint8_t header[VELK_HEADER_SIZE];
    std::size_t got;
    velk_status status = read_fully(transfer, header, sizeof header, got);
    if (status != VELK_OK) return status;
    CoderContext context{};
    status = status_of(parse_start(header, got, context.settings, transfer.block_size));
    if (status != VELK_OK) return status;
    transfer.bytes_in = got;
    std::uint32_t bytes;
    status = alloc_within(kRestorer, context, transfer.block_size, plan.memory_limit, bytes);
    if (status != VELK_OK) return status;
    return transfer_blocks(transfer, context, affordable(plan, bytes, context.capacity));
}
