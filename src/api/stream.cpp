// velk_compress_stream and velk_decompress_stream: all blocks of a stream, from its reading end,
// through one thread or several, to its writing end.
#include "api/block_queue.h"
#include "api/block_reader.h"
#include "api/coder.h"
#include "api/growth.h"
#include "api/read_fully.h"
#include "api/trials.h"
#include "archive/member.h"

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
    CheckedOptions options;
    CoderContext context; // of the first thread
    BlockQueue *queue;    // of several; null for one

    std::uint64_t bytes_in;  // read for the blocks so far
    std::uint64_t bytes_out; // written
    std::uint8_t *trials;    // memory for those of the first thread; null: there are none

    // What is read: an input's blocks, or records.
    BlockReader reader;
    RecordIntake intake;
    // What ended the reading: the status, or bytes that were met in place of a record.
    velk_status end;
    ArchiveStatus met;

    Member member;               // that is read or written
    Growing<IndexEntry> entries; // of the blocks written
    std::uint64_t entries_limit; // bytes for them
    velk_report report;

    bool compresses() const { return coder == &kCompressor; }
};

// Reading ------------------------------------------------------------------------

bool read_all(void *user, void *bytes, std::uint32_t count, std::uint32_t &got) {
    Transfer &t = *static_cast<Transfer *>(user);
    return read_fully(bytes, count, got, [&t](std::uint8_t *to, std::uint32_t size) {
        return t.stream->read(t.stream->user, to, size);
    });
}

enum class Reading { kMore, kBlocks, kEnd };

Reading end_reading(Transfer &t, velk_status status) {
    t.end = status;
    return Reading::kEnd;
}

// Reads `wanted` bytes at most; false when that fails.
bool read_part(Transfer &t, std::uint8_t *place, std::uint32_t wanted, std::uint32_t &got) {
    const std::int64_t part = t.stream->read(t.stream->user, place, wanted);
    got = static_cast<std::uint32_t>(part);
    return part >= 0 && part <= wanted;
}

// Reads once, if the block reader wants more of the input.
Reading read_input(Transfer &t) {
    std::uint32_t wanted, got;
    std::uint8_t *const place = next_input(t.reader, wanted);
    if (wanted == 0) return Reading::kBlocks;
    const bool goes_on = read_part(t, place, wanted, got) && take_input(t.reader, got);
    return goes_on ? Reading::kMore : end_reading(t, VELK_ERROR_READ);
}

// Reads once, as much as is missing of the record at most.
Reading read_record(Transfer &t, BlockGroup &record) {
    std::uint32_t wanted, got;
    std::uint8_t *const place = next_place(t.intake, wanted);
    if (!read_part(t, place, wanted, got)) return end_reading(t, VELK_ERROR_READ);
    const ArchiveStatus status = take_in(t.intake, got);
    if (status == ArchiveStatus::kMore) return Reading::kMore;
    if (status == ArchiveStatus::kBlockCut) return end_reading(t, VELK_ERROR_DAMAGED);
    if (status != ArchiveStatus::kGood) {
        t.met = status;
        return end_reading(t, VELK_OK);
    }
    t.bytes_in += t.intake.taken;
    record.count = 1;
    record.length = t.intake.taken - kRecordHeadBytes;
    return Reading::kBlocks;
}

// The next record will be read into `place`. (The blocks of an input stand in the reader.)
void begin_reading(Transfer &t, std::uint8_t *place) {
    t.intake = {place, t.context.capacity};
}

// Reads once. data: of the blocks, or of the record, once they are there.
Reading read_on(Transfer &t, const std::uint8_t *&data, BlockGroup &blocks) {
    if (!t.compresses()) {
        data = t.intake.data;
        return read_record(t, blocks);
    }
    const Reading reading = read_input(t);
    if (reading != Reading::kBlocks) return reading;
    data = give_blocks(t.reader, blocks);
    t.bytes_in += blocks.length;
    return blocks.count != 0 ? reading : end_reading(t, VELK_OK);
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

velk_status tell_progress(Transfer &t, std::uint64_t bytes_in) {
    const velk_stream &stream = *t.stream;
    t.report.archive_size = t.compresses() ? t.bytes_out : bytes_in;
    const bool goes_on =
        stream.progress == nullptr || stream.progress(stream.user, bytes_in, t.bytes_out) == 0;
    return goes_on ? VELK_OK : VELK_CANCELLED;
}

// Writes a block's result and tells of it. bytes_in: of the input, up to this block's end.
velk_status put_block(Transfer &t, const std::uint8_t *result, const IndexEntry &entry,
                      std::uint64_t bytes_in) {
    if (!t.compresses()) {
        if (!add_block(t.member, entry)) return VELK_ERROR_DAMAGED;
        if (!write_all(&t, result, entry.block_len)) return VELK_ERROR_WRITE;
    } else {
        if (!t.options.plain && !add_entry(t.member.sum, entry)) return VELK_ERROR_ARGUMENT;
        if (!t.options.plain && !append(t.entries, entry, t.entries_limit))
            return VELK_ERROR_MEMORY;
        if (write_record({&t, write_all}, result, entry.data_len) == 0) return VELK_ERROR_WRITE;
    }
    ++t.report.blocks;
    t.report.size += entry.block_len;
    t.report.crc = crc32_join(t.report.crc, entry.block_crc, entry.block_len);
    return tell_progress(t, bytes_in);
}

// Writes the blocks' results. bytes_in: of the input, up to the end of all, or of the one record.
velk_status put(Transfer &t, const std::uint8_t *results, const BlockGroup &blocks,
                std::uint64_t bytes_in) {
    for (std::uint32_t i = 1; i < blocks.count; ++i)
        bytes_in -= blocks.entries[i].block_len;
    for (std::uint32_t i = 0; i < blocks.count; ++i) {
        if (i != 0) bytes_in += blocks.entries[i].block_len;
        const velk_status status = put_block(t, results, blocks.entries[i], bytes_in);
        if (status != VELK_OK) return status;
        results += blocks.entries[i].data_len;
    }
    return VELK_OK;
}

// Writes the blocks that are done. wait: for at least one, if any are under way.
velk_status put_done(Transfer &t, bool wait) {
    velk_status status = VELK_OK;
    while (Slot *const done = oldest_done(*t.queue, wait)) {
        status =
            done->whole ? put(t, done->data, done->blocks, done->bytes_in) : VELK_ERROR_DAMAGED;
        if (status != VELK_OK) break;
        retire(*t.queue, done);
        wait = false;
    }
    return status;
}

velk_status write_index(Transfer &t) {
    std::uint8_t bytes[kEntryBytes + kFooterBytes];
    put_record_head(bytes, 0);
    if (!write_all(&t, bytes, kRecordHeadBytes)) return VELK_ERROR_WRITE;
    for (std::uint64_t i = 0; i < t.entries.count; ++i) {
        put_entry(bytes, t.entries.entries[i]);
        if (!write_all(&t, bytes, kEntryBytes)) return VELK_ERROR_WRITE;
    }
    put_footer(bytes, t.member.sum);
    return write_all(&t, bytes, kFooterBytes) ? VELK_OK : VELK_ERROR_WRITE;
}

// Both ---------------------------------------------------------------------------

velk_status transfer_alone(Transfer &t) {
    CoderContext &context = t.context;
    BlockGroup blocks;
    for (;;) {
        begin_reading(t, context.buf_in);
        const std::uint8_t *data = nullptr;
        Reading reading = Reading::kMore;
        while (reading == Reading::kMore)
            reading = read_on(t, data, blocks);
        if (reading == Reading::kEnd) return t.end;
        const std::uint8_t *const results = code_blocks(*t.coder, context, t.trials, data, blocks);
        if (results == nullptr) return VELK_ERROR_DAMAGED;
        const velk_status status = put(t, results, blocks, t.bytes_in);
        if (status != VELK_OK) return status;
    }
}

// Blocks that are done are written while the next ones come piece by piece. What ends the
// reading counts when the blocks before it have been written.
velk_status transfer_by_queue(Transfer &t) {
    BlockQueue &queue = *t.queue;
    Slot *slot = nullptr; // for the next blocks
    for (Reading reading = Reading::kBlocks; reading != Reading::kEnd || queue.under_way != 0;) {
        if (reading == Reading::kBlocks && (slot = free_slot(queue)) != nullptr)
            begin_reading(t, slot->data);
        const bool reads = reading != Reading::kEnd && slot != nullptr;
        const std::uint8_t *data = nullptr;
        if (reads) reading = read_on(t, data, slot->blocks);
        if (reads && reading == Reading::kBlocks) {
            if (data != slot->data) std::memcpy(slot->data, data, slot->blocks.length);
            slot->bytes_in = t.bytes_in;
            submit(queue, slot);
        }
        if (reads && reading == Reading::kEnd) give_back(queue, slot);
        const velk_status status = put_done(t, !reads);
        if (status != VELK_OK) return status;
    }
    return t.end;
}

// Opens as many threads as the memory limit has room for, beside `reserve` bytes if there are
// so many, at least the one whose memory, `memory_bytes`, has been taken. `close` gives it back.
void open_threads(Transfer &t, BlockQueue &queue, std::uint32_t memory_bytes, std::uint64_t reserve,
                  bool one_block) {
    const std::uint32_t block_size = block_size_of(t.context);
    const std::uint64_t each = memory_bytes + worker_bytes(block_size, t.options.tries);
    const std::uint64_t limit = t.options.memory_limit;
    const auto threads = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(t.options.threads, (limit - std::min(limit, reserve)) / each));
    const bool several = threads > 1 && !one_block &&
                         open_queue(queue, *t.coder, t.context, t.options.tries, threads);
    t.queue = several ? &queue : nullptr;
    t.entries_limit = limit - (several ? threads * each : memory_bytes);
}

void close_threads(Transfer &t) {
    if (t.queue != nullptr) {
        close_queue(*t.queue);
    } else {
        t.coder->free(t.context);
    }
}

velk_status transfer_blocks(Transfer &t) {
    return t.queue != nullptr ? transfer_by_queue(t) : transfer_alone(t);
}

// Compression --------------------------------------------------------------------

// Writes header, blocks and index of the input that the reader has been opened for.
velk_status write_member(Transfer &t, std::uint64_t input_size) {
    const CheckedOptions &options = t.options;
    std::uint32_t memory_bytes;
    velk_status status = open_compressor(t.context, options, input_size, memory_bytes);
    if (status != VELK_OK) return status;
    // For an array of entries that doubles; of an input of unknown size for 65,536 blocks: 8 GiB of
    // the smallest, 128 GiB of full ones of 2 MiB.
    const std::uint32_t least = least_block(options, input_size);
    const std::uint64_t reserve = input_size == VELK_SIZE_UNKNOWN
                                      ? 1 << 20
                                      : (input_size / least + 8) * 2 * sizeof(IndexEntry);
    BlockQueue queue;
    open_threads(t, queue, memory_bytes, options.plain ? 0 : reserve, input_size <= least);
    const std::uint32_t trials_bytes = trials_room(block_size_of(t.context));
    if (options.tries && t.queue == nullptr) {
        if (trials_bytes <= t.entries_limit)
            t.trials = static_cast<std::uint8_t *>(std::malloc(trials_bytes));
        if (t.trials == nullptr) status = VELK_ERROR_MEMORY;
        t.entries_limit -= trials_bytes;
    }
    std::uint8_t start[kFirstRecord];
    put_start(start, options.settings, block_size_of(t.context));
    t.member = start_member(start, block_size_of(t.context));
    t.report.block_size = told_block_size(block_size_of(t.context));
    if (status == VELK_OK)
        status = write_all(&t, start, kFirstRecord) ? transfer_blocks(t) : VELK_ERROR_WRITE;
    close_threads(t);
    std::free(t.trials);
    if (status == VELK_OK && !options.plain) status = write_index(t);
    std::free(t.entries.entries);
    if (status != VELK_OK) return status;
    ++t.report.members;
    t.report.whole = 1;
    t.report.archive_size = t.bytes_out;
    return options.plain ? VELK_OK : tell_progress(t, t.bytes_in);
}

velk_status compress(Transfer &t, std::uint64_t input_size) {
    const std::uint64_t bytes = reader_bytes(t.options, input_size);
    if (bytes > t.options.memory_limit || !open_reader(t.reader, t.options, input_size))
        return VELK_ERROR_MEMORY;
    t.options.memory_limit -= bytes;
    // What ends within the window is an input of known size.
    Reading reading = input_size == VELK_SIZE_UNKNOWN ? Reading::kMore : Reading::kBlocks;
    while (reading == Reading::kMore)
        reading = read_input(t);
    if (t.reader.left == 0) input_size = t.reader.end;
    const velk_status status = reading == Reading::kEnd ? t.end : write_member(t, input_size);
    close_reader(t.reader);
    return status;
}

// Restoring ----------------------------------------------------------------------

// Restores the member that begins with `start`, which becomes the header of the next one.
// behind: what follows it.
velk_status restore_member(Transfer &t, std::uint8_t *start, ArchiveStatus &behind) {
    t.member = start_member(start, block_size_of(t.context));
    t.bytes_in += kFirstRecord;
    t.report.archive_size = t.bytes_in;
    t.report.damaged_part = VELK_PART_BLOCK;
    velk_status status = transfer_blocks(t);
    if (status != VELK_OK) return status;
    if (t.met == ArchiveStatus::kEndMark) t.report.damaged_part = VELK_PART_INDEX;
    MemberEnd end;
    behind = end_member({&t, read_all}, t.member, t.met, t.intake, end);
    if (!end.closed) return status_of(behind);
    t.report.damaged_part = VELK_PART_HEADER; // of the next one
    t.bytes_in += end.bytes;
    ++t.report.members;
    if (!end.whole) t.report.whole = 0;
    std::memcpy(start, end.start, kFirstRecord);
    status = tell_progress(t, t.bytes_in);
    return status == VELK_OK ? status_of(behind) : status;
}

velk_status restore(Transfer &t) {
    std::uint8_t start[VELK_HEADER_SIZE], before[VELK_HEADER_SIZE];
    std::uint32_t got, memory_bytes;
    if (!read_all(&t, start, sizeof start, got)) return VELK_ERROR_READ;
    t.report.whole = 1;
    ArchiveStatus behind = ArchiveStatus::kNextHeader;
    while (behind == ArchiveStatus::kNextHeader) {
        t.report.damaged_part = VELK_PART_HEADER;
        t.context = {};
        velk_status status = open_restorer(t.context, t.options, start, got, memory_bytes);
        if (status != VELK_OK) return status;
        if (t.report.members == 0) t.report.block_size = told_block_size(block_size_of(t.context));
        BlockQueue queue;
        open_threads(t, queue, memory_bytes, 0, false);
        do { // with the same memory, as long as block size and flags stay what they are
            std::memcpy(before, start, sizeof start);
            status = restore_member(t, start, behind);
        } while (status == VELK_OK && behind == ArchiveStatus::kNextHeader &&
                 std::memcmp(before, start, sizeof start) == 0);
        close_threads(t);
        if (status != VELK_OK) return status;
    }
    t.report.bytes_follow = behind == ArchiveStatus::kGarbage;
    return VELK_OK;
}

bool usable(const velk_stream *stream) {
    return stream != nullptr && stream->read != nullptr && stream->write != nullptr &&
           std::all_of(stream->reserved, stream->reserved + 3,
                       [](const void *pointer) { return pointer == nullptr; });
}

velk_status finish(Transfer &t, velk_status status) {
    t.report.has_crc = 1;
    if (status != VELK_OK) t.report.whole = 0;
    if (status != VELK_ERROR_DAMAGED) t.report.damaged_part = VELK_PART_NONE;
    if (status == VELK_ERROR_DAMAGED) {
        t.report.damaged_block = t.report.blocks;
        t.report.damaged_offset = t.report.archive_size;
    }
    if (t.stream->report != nullptr) *t.stream->report = t.report;
    return status;
}

} // namespace

velk_status velk_compress_stream(const velk_options *options, const velk_stream *stream,
                                 std::uint64_t input_size) {
    Transfer transfer{};
    if (!usable(stream) || !check_options(options, transfer.options)) return VELK_ERROR_ARGUMENT;
    transfer.stream = stream;
    transfer.coder = &kCompressor;
    return finish(transfer, compress(transfer, input_size));
}

velk_status velk_decompress_stream(const velk_options *options, const velk_stream *stream) {
    Transfer transfer{};
    if (!usable(stream) || !check_options(options, transfer.options)) return VELK_ERROR_ARGUMENT;
    transfer.stream = stream;
    transfer.coder = &kRestorer;
    transfer.options.tries = false;
    return finish(transfer, restore(transfer));
}
