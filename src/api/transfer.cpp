#include "api/transfer.h"

#include "api/block_queue.h"
#include "archive/format.h"

namespace velk {
namespace {

// Writes a block's result and tells of it. bytes_in: of the input, up to this block's end.
velk_status put(Transfer &transfer, const std::uint8_t *result, std::uint32_t length,
                std::uint64_t bytes_in) {
    velk_status status = VELK_OK;
    if (transfer.with_heads) {
        std::uint8_t head[kRecordHeadBytes];
        put_record_head(head, length);
        status = write_fully(transfer, head, sizeof head);
    }
    if (status == VELK_OK) status = write_fully(transfer, result, length);
    const velk_stream &stream = *transfer.stream;
    if (status == VELK_OK && stream.progress != nullptr &&
        stream.progress(stream.user, bytes_in, transfer.bytes_out) != 0) {
        return VELK_CANCELLED;
    }
    return status;
}

velk_status transfer_alone(Transfer &transfer, CoderContext &context) {
    for (;;) {
        velk_status status = transfer.next(transfer, context.buf_in, context.in_len);
        if (status != VELK_OK || context.in_len == 0) return status;
        if (!transfer.coder->code(context, transfer.bytes_in)) return VELK_ERROR_DAMAGED;
        status = put(transfer, context.buf_out, context.out_len, transfer.bytes_in);
        if (status != VELK_OK) return status;
    }
}

// Writes the blocks that are done, up to the first fault. wait: for at least one, if any are
// under way.
velk_status put_done(Transfer &transfer, bool wait) {
    BlockQueue &queue = *transfer.queue;
    while (transfer.fault == VELK_OK) {
        Slot *const done = oldest_done(queue, wait);
        if (done == nullptr) break;
        transfer.fault = done->whole ? put(transfer, done->data, done->length, done->bytes_in)
                                     : VELK_ERROR_DAMAGED;
        retire(queue, done);
        wait = false;
    }
    return transfer.fault;
}

// What ends the reading counts when the blocks before it have been written.
velk_status transfer_by(BlockQueue &queue, Transfer &transfer) {
    transfer.queue = &queue;
    velk_status end = VELK_OK;
    for (bool ended = false;;) {
        Slot *const slot = ended ? nullptr : free_slot(queue);
        if (slot != nullptr) {
            end = transfer.next(transfer, slot->data, slot->length);
            slot->bytes_in = transfer.bytes_in;
            ended = end != VELK_OK || slot->length == 0;
            if (!ended) submit(queue, slot);
        }
        const velk_status status = put_done(transfer, slot == nullptr);
        if (status != VELK_OK) return status;
        if (ended && queue.under_way == 0) return end;
    }
}

} // namespace

velk_status read_fully(Transfer &transfer, std::uint8_t *buffer, std::size_t size,
                       std::size_t &got) {
    const velk_stream &stream = *transfer.stream;
    for (got = 0; got < size;) {
        const std::int64_t part = stream.read(stream.user, buffer + got, size - got);
        if (part == 0) break;
        if (part < 0 || static_cast<std::uint64_t>(part) > size - got) return VELK_ERROR_READ;
        got += static_cast<std::size_t>(part);
        if (transfer.queue != nullptr && put_done(transfer, false) != VELK_OK)
            return transfer.fault;
    }
    return VELK_OK;
}

velk_status write_fully(Transfer &transfer, const std::uint8_t *bytes, std::size_t size) {
    const velk_stream &stream = *transfer.stream;
    for (std::size_t done = 0; done < size;) {
        const std::int64_t part = stream.write(stream.user, bytes + done, size - done);
        if (part <= 0 || static_cast<std::uint64_t>(part) > size - done) return VELK_ERROR_WRITE;
        done += static_cast<std::size_t>(part);
        transfer.bytes_out += static_cast<std::uint64_t>(part);
    }
    return VELK_OK;
}

velk_status transfer_blocks(Transfer &transfer, CoderContext &context, std::uint32_t threads) {
    BlockQueue queue;
    if (threads > 1 && open_queue(queue, *transfer.coder, context, transfer.block_size, threads)) {
        const velk_status status = transfer_by(queue, transfer);
        close_queue(queue);
        return status;
    }
    const velk_status status = transfer_alone(transfer, context);
    transfer.coder->free(context);
    return status;
}

} // namespace velk
