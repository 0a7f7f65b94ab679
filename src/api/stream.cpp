// velk_compress_stream and velk_decompress_stream: all blocks of a stream, from its reading end,
// through one thread or several, to its writing end.
#include "api/block_queue.h"
#include "api/coder.h"
#include "api/read_fully.h"
#include "archive/archive_io.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

using namespace velk;

namespace {

// One call.
struct Transfer {
    const velk_stream *stream;
    const Coder *coder;
    CoderContext context;      // of the first thread
    std::uint64_t bytes_in;    // read for the blocks so far
    std::uint64_t bytes_out;   // written
    std::uint64_t bytes_left;  // to compress; VELK_SIZE_UNKNOWN: up to the end
    const std::uint8_t *ahead; // what of them has been read before
    std::uint32_t ahead_bytes;
    velk_status end; // what ended the reading

    bool compresses() const { return coder == &kCompressor; }
};

// Reading ------------------------------------------------------------------------

std::int64_t read_part(Transfer &t, std::uint8_t *bytes, std::uint32_t size) {
    if (t.ahead_bytes == 0) return t.stream->read(t.stream->user, bytes, size);
    const std::uint32_t part = std::min(size, t.ahead_bytes);
    std::memcpy(bytes, t.ahead, part);
    t.ahead += part;
    t.ahead_bytes -= part;
    return part;
}

// What the next block is read as: a record or, as if its head had been read already, so many
// bytes of the input.
RecordIntake next_intake(const Transfer &t, std::uint8_t *data) {
    RecordIntake intake{data, t.context.capacity};
    if (t.compresses()) {
        intake.taken = kRecordHeadBytes;
        intake.length = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(t.bytes_left, block_size_of(t.context)));
    }
    return intake;
}

enum class Reading { kMore, kBlock, kEnd };

// Reads once, as much as is missing of the block at most. length: of a block that is there.
Reading read_on(Transfer &t, RecordIntake &intake, std::uint32_t &length) {
    const auto end = [&t](velk_status status) {
        t.end = status;
        return Reading::kEnd;
    };
    if (t.compresses() && intake.length == 0) return end(VELK_OK);
    std::uint32_t wanted;
    std::uint8_t *const place = next_place(intake, wanted);
    const std::int64_t got = read_part(t, place, wanted);
    if (got < 0 || got > wanted) return end(VELK_ERROR_READ);
    const ArchiveStatus status = take_in(intake, static_cast<std::uint32_t>(got));
    if (status == ArchiveStatus::kMore) return Reading::kMore;
    length = intake.taken - kRecordHeadBytes;
    if (t.compresses()) {
        if (status != ArchiveStatus::kGood && t.bytes_left != VELK_SIZE_UNKNOWN)
            return end(VELK_ERROR_READ);
        if (length == 0) return end(VELK_OK);
        if (t.bytes_left != VELK_SIZE_UNKNOWN) t.bytes_left -= length;
        t.bytes_in += length;
        return Reading::kBlock;
    }
    if (status != ArchiveStatus::kGood) return end(status_of(status));
    t.bytes_in += intake.taken;
    return Reading::kBlock;
}

// Writing ------------------------------------------------------------------------

bool write_all(void *user, const void *bytes, std::uint32_t count) {
    Transfer &t = *static_cast<Transfer *>(user);
    for (std::uint32_t done = 0; done < count;) {
        const std::int64_t part = t.stream->write(
            t.stream->user, static_cast<const std::uint8_t *>(bytes) + done, count - done);
        if (part <= 0 || part > count - done) return false;
        done += static_cast<std::uint32_t>(part);
        t.bytes_out += static_cast<std::uint64_t>(part);
    }
    return true;
}

// Writes a block's result and tells of it. bytes_in: of the input, up to this block's end.
velk_status put(Transfer &t, const std::uint8_t *result, std::uint32_t length,
                std::uint64_t bytes_in) {
    const bool written = t.compresses() ? write_record({&t, write_all}, result, length) != 0
                                        : write_all(&t, result, length);
    if (!written) return VELK_ERROR_WRITE;
    const velk_stream &stream = *t.stream;
    const bool goes_on =
        stream.progress == nullptr || stream.progress(stream.user, bytes_in, t.bytes_out) == 0;
    return goes_on ? VELK_OK : VELK_CANCELLED;
}

// Writes the blocks that are done. wait: for at least one, if any are under way.
velk_status put_done(Transfer &t, BlockQueue &queue, bool wait) {
    velk_status status = VELK_OK;
    while (Slot *const done = oldest_done(queue, wait)) {
        status =
            done->whole ? put(t, done->data, done->length, done->bytes_in) : VELK_ERROR_DAMAGED;
        if (status != VELK_OK) break;
        retire(queue, done);
        wait = false;
    }
    return status;
}

// Both ---------------------------------------------------------------------------

velk_status transfer_alone(Transfer &t) {
    CoderContext &context = t.context;
    for (;;) {
        RecordIntake intake = next_intake(t, context.buf_in);
        Reading reading = Reading::kMore;
        while (reading == Reading::kMore)
            reading = read_on(t, intake, context.in_len);
        if (reading == Reading::kEnd) return t.end;
        if (!t.coder->code(context, t.bytes_in)) return VELK_ERROR_DAMAGED;
        const velk_status status = put(t, context.buf_out, context.out_len, t.bytes_in);
        if (status != VELK_OK) return status;
    }
}

// Blocks that are done are written while the next one comes piece by piece. What ends the
// reading counts when the blocks before it have been written.
velk_status transfer_by(BlockQueue &queue, Transfer &t) {
    Slot *slot = nullptr; // that the next block is read into
    RecordIntake intake{};
    for (Reading reading = Reading::kBlock; reading != Reading::kEnd || queue.under_way != 0;) {
        if (reading == Reading::kBlock && (slot = free_slot(queue)) != nullptr)
            intake = next_intake(t, slot->data);
        const bool reads = reading != Reading::kEnd && slot != nullptr;
        if (reads) reading = read_on(t, intake, slot->length);
        if (reads && reading == Reading::kBlock) {
            slot->bytes_in = t.bytes_in;
            submit(queue, slot);
        }
        const velk_status status = put_done(t, queue, !reads);
        if (status != VELK_OK) return status;
    }
    return t.end;
}

// Codes all blocks with as many of the threads as the memory limit has room for, at least the
// one whose memory, `memory_bytes`, has been taken and is given back here. Errors come in the
// order of the blocks.
velk_status transfer_blocks(Transfer &t, const CheckedOptions &options,
                            std::uint32_t memory_bytes) {
    const std::uint64_t bytes_each = memory_bytes + 2 * std::uint64_t{t.context.capacity};
    const auto threads = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(options.threads, options.memory_limit / bytes_each));
    const bool one_block = t.compresses() && t.bytes_left <= block_size_of(t.context);
    BlockQueue queue;
    if (threads > 1 && !one_block && open_queue(queue, *t.coder, t.context, threads)) {
        const velk_status status = transfer_by(queue, t);
        close_queue(queue);
        return status;
    }
    const velk_status status = transfer_alone(t);
    t.coder->free(t.context);
    return status;
}

bool usable(const velk_stream *stream) {
    return stream != nullptr && stream->read != nullptr && stream->write != nullptr &&
           std::all_of(stream->reserved, stream->reserved + 4,
                       [](const void *pointer) { return pointer == nullptr; });
}

velk_status compress(const CheckedOptions &options, Transfer &t, std::uint64_t input_size) {
    t.bytes_left = input_size;
    std::uint32_t memory_bytes;
    velk_status status = open_compressor(t.context, options, input_size, memory_bytes);
    if (status != VELK_OK) return status;
    if (write_start({&t, write_all}, options.settings, block_size_of(t.context)) != 0)
        return transfer_blocks(t, options, memory_bytes);
    kCompressor.free(t.context);
    return VELK_ERROR_WRITE;
}

// A block and a byte of the input are read ahead: what ends within the block is an input
// of known size.
velk_status compress_unknown(CheckedOptions options, Transfer &t) {
    const std::uint32_t most = options.settings.max_block_size + 1;
    if (options.memory_limit < most) return VELK_ERROR_MEMORY;
    std::uint8_t *const ahead = static_cast<std::uint8_t *>(std::malloc(most));
    if (ahead == nullptr) return VELK_ERROR_MEMORY;
    std::uint32_t got;
    velk_status status = VELK_ERROR_READ;
    if (read_fully(ahead, most, got,
                   [&](std::uint8_t *to, std::uint32_t size) { return read_part(t, to, size); })) {
        t.ahead = ahead;
        t.ahead_bytes = got;
        options.memory_limit -= most;
        status = compress(options, t, got < most ? got : VELK_SIZE_UNKNOWN);
    }
    std::free(ahead);
    return status;
}

} // namespace

velk_status velk_compress_stream(const velk_options *options, const velk_stream *stream,
                                 std::uint64_t input_size) {
    CheckedOptions checked;
    if (!usable(stream) || !check_options(options, checked)) return VELK_ERROR_ARGUMENT;
    Transfer transfer{};
    transfer.stream = stream;
    transfer.coder = &kCompressor;
    return input_size == VELK_SIZE_UNKNOWN ? compress_unknown(checked, transfer)
                                           : compress(checked, transfer, input_size);
}

velk_status velk_decompress_stream(const velk_options *options, const velk_stream *stream) {
    CheckedOptions checked;
    if (!usable(stream) || !check_options(options, checked)) return VELK_ERROR_ARGUMENT;
    Transfer transfer{};
    transfer.stream = stream;
    transfer.coder = &kRestorer;
    std::uint8_t start[VELK_HEADER_SIZE];
    std::uint32_t got, memory_bytes;
    if (!read_fully(start, sizeof start, got, [&](std::uint8_t *to, std::uint32_t size) {
            return read_part(transfer, to, size);
        }))
        return VELK_ERROR_READ;
    transfer.bytes_in = got;
    const velk_status status = open_restorer(transfer.context, checked, start, got, memory_bytes);
    return status == VELK_OK ? transfer_blocks(transfer, checked, memory_bytes) : status;
}
