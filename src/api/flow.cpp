#include "api/flow.h"

#include "api/trials.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace velk {
namespace {

using Phase = velk_flow::Phase;

// Opens as many threads as the memory limit has room for, beside `reserve` bytes if there are
// so many, at least the one whose memory, `memory_bytes`, has been taken.
velk_status open_threads(velk_flow &f, std::uint32_t memory_bytes, std::uint64_t reserve,
                         bool one_block) {
    const CheckedOptions &options = f.options;
    const std::uint32_t block_size = block_size_of(f.context);
    const std::uint64_t limit = options.memory_limit;
    const std::uint64_t alone = memory_bytes + worker_bytes(block_size, options.tries, true);
    const std::uint64_t each = memory_bytes + worker_bytes(block_size, options.tries, false);
    const auto most = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(options.threads, (limit - std::min(limit, reserve)) / each));
    const std::uint32_t threads = one_block ? 1 : std::max(most, 1u);
    if ((threads == 1 && alone > limit) ||
        !open_queue(f.queue, *f.coder, f.context, options.tries, threads, f.notice)) {
        f.coder->free(f.context);
        return VELK_ERROR_MEMORY;
    }
    f.entries_limit = limit - (is_alone(f.queue) ? alone : threads * each);
    return VELK_OK;
}

void give(velk_flow &f, const std::uint8_t *bytes, std::uint32_t count) {
    f.piece = bytes;
    f.piece_left = count;
}

void end_blocks(velk_flow &f, velk_status failed) {
    f.last_submitted = true;
    f.failed = failed;
    if (f.slot != nullptr) give_back(f.queue, f.slot);
    f.slot = nullptr;
}

// Blocks of an archive ------------------------------------------------------------

// Gives the next block, or the head of its record before it.
velk_status give_block(velk_flow &f, const IndexEntry &entry) {
    if (!f.compresses()) {
        if (!add_block(f.member, entry)) return VELK_ERROR_DAMAGED;
        give(f, f.result, entry.block_len);
        f.data_given = true;
        return VELK_OK;
    }
    if (f.head_given) {
        give(f, f.result, entry.data_len);
        f.data_given = true;
        return VELK_OK;
    }
    if (!f.options.plain && !add_entry(f.member.sum, entry)) return VELK_ERROR_ARGUMENT;
    if (!f.options.plain && !append(f.entries, entry, f.entries_limit)) return VELK_ERROR_MEMORY;
    put_record_head(f.bytes, entry.data_len);
    give(f, f.bytes, kRecordHeadBytes);
    f.head_given = true;
    return VELK_OK;
}

// Counts the block if all of it has been taken.
void count_given(velk_flow &f) {
    if (!f.data_given || f.piece_left != 0) return;
    const IndexEntry &entry = f.oldest->blocks.entries[f.number];
    ++f.report.blocks;
    f.report.size += entry.block_len;
    f.report.crc = crc32_join(f.report.crc, entry.block_crc, entry.block_len);
    f.report.archive_size = f.compresses()
                                ? f.archive_bytes
                                : f.report.archive_size + kRecordHeadBytes + entry.data_len;
    f.has_news = true;
    f.result += entry.data_len;
    f.head_given = f.data_given = false;
    if (++f.number != f.oldest->blocks.count) return;
    retire(f.queue, f.oldest);
    f.oldest = nullptr;
}

// Takes a step with the blocks that are done; false when none is.
bool step_blocks(velk_flow &f) {
    if (f.oldest == nullptr) {
        f.oldest = oldest_done(f.queue, false);
        if (f.oldest == nullptr) return false;
        f.number = 0;
        f.result = f.oldest->results;
        if (f.result == nullptr) f.status = VELK_ERROR_DAMAGED;
    } else {
        f.status = give_block(f, f.oldest->blocks.entries[f.number]);
        count_given(f); // an empty one
    }
    return true;
}

// Compression --------------------------------------------------------------------

// Gives the header, once it is known whether the input is shorter than a block.
velk_status give_header(velk_flow &f) {
    const CheckedOptions &options = f.options;
    // What ends within the window is an input of known size.
    const std::uint64_t input_size = f.reader.left == 0 ? f.reader.end : f.input_size;
    std::uint32_t memory_bytes;
    velk_status status = open_compressor(f.context, options, input_size, memory_bytes);
    if (status != VELK_OK) return status;
    // For an array of entries that doubles; of an input of unknown size for 65,536 blocks: 8 GiB of
    // the smallest, 128 GiB of full ones of 2 MiB.
    const std::uint32_t least = least_block(options, input_size);
    const std::uint64_t reserve = input_size == VELK_SIZE_UNKNOWN
                                      ? 1 << 20
                                      : (input_size / least + 8) * 2 * sizeof(IndexEntry);
    status = open_threads(f, memory_bytes, options.plain ? 0 : reserve, input_size <= least);
    if (status != VELK_OK) return status;
    const std::uint32_t block_size = block_size_of(f.context);
    put_start(f.bytes, options.settings, block_size);
    f.member = start_member(f.bytes, block_size);
    f.report.block_size = told_block_size(block_size);
    give(f, f.bytes, kFirstRecord);
    f.phase = Phase::kBlocks;
    return VELK_OK;
}

// Has workers take the blocks that are known.
void submit_blocks(velk_flow &f) {
    std::uint32_t wanted = 0;
    while (!f.last_submitted && (static_cast<void>(next_input(f.reader, wanted)), wanted == 0)) {
        Slot *const slot = free_slot(f.queue);
        if (slot == nullptr) return;
        const std::uint8_t *const data = give_blocks(f.reader, slot->blocks);
        if (slot->blocks.count != 0) {
            submit(f.queue, slot, data);
        } else {
            give_back(f.queue, slot);
            end_blocks(f, VELK_OK);
        }
    }
}

// Gives as much of the index as there is room for.
void give_index(velk_flow &f) {
    std::uint8_t *next = f.bytes, *const behind = f.bytes + sizeof f.bytes;
    if (f.entries_given == 0) {
        put_record_head(next, 0);
        next += kRecordHeadBytes;
    }
    for (; f.entries_given < f.entries.count && behind - next >= kEntryBytes; next += kEntryBytes)
        put_entry(next, f.entries.entries[f.entries_given++]);
    if (f.entries_given == f.entries.count && behind - next >= kFooterBytes) {
        put_footer(next, f.member.sum);
        next += kFooterBytes;
        ++f.entries_given; // with the footer
    }
    give(f, f.bytes, static_cast<std::uint32_t>(next - f.bytes));
}

// Gives what follows the blocks, part by part.
void step_end(velk_flow &f) {
    if (!f.options.plain && f.entries_given <= f.entries.count) return give_index(f);
    ++f.report.members;
    f.report.whole = 1;
    f.report.archive_size = f.archive_bytes;
    f.has_news = !f.options.plain;
    f.status = VELK_DONE;
}

// Restoring ----------------------------------------------------------------------

void begin_member(velk_flow &f) {
    f.member = start_member(f.start, block_size_of(f.context));
    f.report.archive_size += kFirstRecord;
    f.report.damaged_part = VELK_PART_BLOCK;
    f.last_submitted = false;
    f.phase = Phase::kBlocks;
}

velk_status open_member(velk_flow &f) {
    std::uint32_t memory_bytes;
    f.context = {};
    velk_status status = open_restorer(f.context, f.options, f.start, f.start_len, memory_bytes);
    if (status == VELK_OK) status = open_threads(f, memory_bytes, 0, false);
    if (status != VELK_OK) return status;
    if (f.report.members == 0) f.report.block_size = told_block_size(block_size_of(f.context));
    begin_member(f);
    return VELK_OK;
}

// behind: what follows the member, or what is wrong.
velk_status close_member(velk_flow &f, ArchiveStatus behind) {
    using enum ArchiveStatus;
    f.report.cut = behind == kMemberCut || behind == kHeadCut || behind == kHeaderCut;
    if (!f.end.closed) return status_of(behind);
    f.report.damaged_part = VELK_PART_HEADER; // of the next one
    f.report.archive_size += f.end.bytes;
    ++f.report.members;
    if (!f.end.whole) f.report.whole = 0;
    f.has_news = true;
    if (f.options.one_member) return VELK_DONE;
    if (behind != kNextHeader) {
        f.report.bytes_follow = behind == kGarbage;
        const velk_status status = status_of(behind);
        return status == VELK_OK ? VELK_DONE : status;
    }
    // With the same memory, as long as block size and flags stay what they are.
    if (std::memcmp(f.start, f.end.start, kFirstRecord) == 0) {
        begin_member(f);
        return VELK_OK;
    }
    std::memcpy(f.start, f.end.start, kFirstRecord);
    close_queue(f.queue);
    return open_member(f);
}

void take_start(velk_flow &f, std::uint32_t count) {
    f.start_len += count;
    if (count == 0 || f.start_len == kFirstRecord) f.status = open_member(f);
    f.report.cut = count == 0 && classify_behind(f.start, f.start_len) != ArchiveStatus::kGarbage;
}

void take_record(velk_flow &f, std::uint32_t count) {
    const ArchiveStatus status = take_in(f.intake, count);
    if (status == ArchiveStatus::kMore) return;
    if (status == ArchiveStatus::kBlockCut) return end_blocks(f, VELK_ERROR_DAMAGED);
    if (status != ArchiveStatus::kGood) {
        f.met = status;
        return end_blocks(f, VELK_OK);
    }
    f.slot->blocks.count = 1;
    f.slot->blocks.length = f.intake.length;
    submit(f.queue, f.slot, f.slot->data);
    f.slot = nullptr;
}

// status: of what has come of the member's end.
void go_on_at_end(velk_flow &f, ArchiveStatus status) {
    // Of one member no more is taken than shows that it ends.
    const bool ends_here = f.options.one_member && f.end.closed &&
                           (f.end.got == 0 || f.met != ArchiveStatus::kNextHeader);
    if (status == ArchiveStatus::kMore && ends_here) status = ArchiveStatus::kEnd;
    if (status != ArchiveStatus::kMore) f.status = close_member(f, status);
}

void begin_end_of_member(velk_flow &f) {
    if (f.met == ArchiveStatus::kEndMark) f.report.damaged_part = VELK_PART_INDEX;
    f.end = {};
    go_on_at_end(f, begin_end(f.end, f.member, f.met, f.intake));
}

// Both ---------------------------------------------------------------------------

// Takes a step towards more output; false when that needs input, or a wait.
bool step(velk_flow &f) {
    if (f.phase == Phase::kBlocks) {
        if (f.compresses()) submit_blocks(f);
        if (step_blocks(f)) return true;
        if (!f.last_submitted || f.queue.under_way != 0) return false;
        f.phase = Phase::kEnd;
        f.status = f.failed;
        f.report.cut = f.status == VELK_ERROR_DAMAGED;
        if (f.status == VELK_OK && !f.compresses()) begin_end_of_member(f);
        return true;
    }
    if (f.failed != VELK_OK) {
        f.status = f.failed;
        return true;
    }
    if (!f.compresses()) return false;
    std::uint32_t wanted = 0;
    if (f.phase == Phase::kEnd) {
        step_end(f);
    } else if (f.input_size != VELK_SIZE_UNKNOWN ||
               (static_cast<void>(next_input(f.reader, wanted)), wanted == 0)) {
        f.status = give_header(f);
    } else {
        return false;
    }
    return true;
}

} // namespace

velk_status start_flow(velk_flow &flow, const Coder &coder, const velk_options *options,
                       std::uint64_t input_size) {
    if (!check_options(options, flow.options)) return VELK_ERROR_ARGUMENT;
    flow.coder = &coder;
    flow.input_size = input_size;
    if (!flow.compresses()) {
        flow.options.tries = false;
        flow.report.whole = 1;
        flow.report.damaged_part = VELK_PART_HEADER;
        return VELK_OK;
    }
    const std::uint64_t bytes = reader_bytes(flow.options, input_size);
    if (bytes > flow.options.memory_limit || !open_reader(flow.reader, flow.options, input_size))
        return VELK_ERROR_MEMORY;
    flow.options.memory_limit -= bytes;
    return VELK_OK;
}

void end_flow(velk_flow &flow) {
    if (flow.queue.workers != nullptr) close_queue(flow.queue);
    if (flow.compresses()) close_reader(flow.reader);
    std::free(flow.entries.entries);
}

velk_status next_output(velk_flow &flow, const std::uint8_t *&bytes, std::uint32_t &count) {
    while (flow.piece_left == 0 && flow.status == VELK_OK && step(flow)) {
    }
    bytes = flow.piece;
    count = flow.piece_left;
    return count != 0 ? VELK_OK : flow.status;
}

void take_output(velk_flow &flow, std::uint32_t count) {
    flow.piece += count;
    flow.piece_left -= count;
    flow.archive_bytes += count;
    count_given(flow);
}

std::uint8_t *next_input(velk_flow &flow, std::uint32_t &wanted) {
    wanted = 0;
    if (flow.compresses()) return flow.last_submitted ? nullptr : next_input(flow.reader, wanted);
    if (flow.phase == Phase::kStart) {
        wanted = kFirstRecord - flow.start_len;
        return flow.start + flow.start_len;
    }
    if (flow.phase == Phase::kEnd) return next_place(flow.end, wanted);
    if (flow.last_submitted) return nullptr;
    if (flow.slot == nullptr) {
        flow.slot = free_slot(flow.queue);
        if (flow.slot == nullptr) return nullptr;
        flow.intake = {flow.slot->data, flow.context.capacity};
    }
    return next_place(flow.intake, wanted);
}

void take_input(velk_flow &flow, std::uint32_t count) {
    if (flow.compresses()) {
        if (!take_input(flow.reader, count)) end_blocks(flow, VELK_ERROR_READ);
    } else if (flow.phase == Phase::kStart) {
        take_start(flow, count);
    } else if (flow.phase == Phase::kBlocks) {
        take_record(flow, count);
    } else {
        go_on_at_end(flow, take_in(flow.end, flow.member, count));
    }
}

void fail_input(velk_flow &flow) {
    end_blocks(flow, VELK_ERROR_READ);
}

void wait_for_output(velk_flow &flow) {
    if (flow.oldest == nullptr) static_cast<void>(oldest_done(flow.queue, true));
}

velk_report report_of(const velk_flow &flow) {
    velk_report report = flow.report;
    report.has_crc = 1;
    if (flow.status != VELK_DONE) report.whole = 0;
    if (flow.status != VELK_ERROR_DAMAGED) report.damaged_part = VELK_PART_NONE;
    if (flow.status == VELK_ERROR_DAMAGED) {
        report.damaged_block = report.blocks;
        report.damaged_offset = report.archive_size;
    }
    return report;
}

} // namespace velk

using namespace velk;

namespace {

velk_status open_flow(velk_flow **flow, const Coder &coder, const velk_options *options,
                      std::uint64_t input_size, void (*notify)(void *user), void *user) {
    if (flow == nullptr) return VELK_ERROR_ARGUMENT;
    *flow = nullptr;
    void *const memory = std::malloc(sizeof(velk_flow));
    if (memory == nullptr) return VELK_ERROR_MEMORY;
    velk_flow *const made = std::construct_at(static_cast<velk_flow *>(memory));
    made->notice = {notify, user};
    const velk_status status = start_flow(*made, coder, options, input_size);
    if (status == VELK_OK) {
        *flow = made;
    } else {
        std::free(memory);
    }
    return status;
}

} // namespace

velk_status velk_flow_compress(velk_flow **flow, const velk_options *options,
                               std::uint64_t input_size, void (*notify)(void *user), void *user) {
    return open_flow(flow, kCompressor, options, input_size, notify, user);
}

velk_status velk_flow_restore(velk_flow **flow, const velk_options *options,
                              void (*notify)(void *user), void *user) {
    return open_flow(flow, kRestorer, options, VELK_SIZE_UNKNOWN, notify, user);
}

velk_status velk_flow_run(velk_flow *flow, velk_buffers *buffers, velk_action action) {
    if (flow == nullptr || buffers == nullptr || action < VELK_RUN || action > VELK_FINISH ||
        (action == VELK_FLUSH && (!flow->compresses() || flow->options.plain)))
        return VELK_ERROR_ARGUMENT;
    velk_buffers &b = *buffers;
    for (;;) {
        const bool flushes = action == VELK_FLUSH && b.in_size == 0;
        const bool unflushed = flushes && flush_input(flow->reader);
        const std::uint8_t *from;
        std::uint32_t count;
        const velk_status status = next_output(*flow, from, count);
        if (status != VELK_OK) return status;
        if (count != 0) {
            count = static_cast<std::uint32_t>(std::min<std::size_t>(count, b.out_size));
            if (count == 0) return VELK_OK;
            std::memcpy(b.out, from, count);
            b.out = static_cast<std::uint8_t *>(b.out) + count;
            b.out_size -= count;
            take_output(*flow, count);
            continue;
        }
        std::uint8_t *const to = next_input(*flow, count);
        if (count != 0 && (b.in_size != 0 || action == VELK_FINISH)) {
            count = static_cast<std::uint32_t>(std::min<std::size_t>(count, b.in_size));
            if (count != 0) std::memcpy(to, b.in, count);
            b.in = static_cast<const std::uint8_t *>(b.in) + count;
            b.in_size -= count;
            take_input(*flow, count);
            continue;
        }
        if (action == VELK_RUN && b.in_size == 0) return VELK_OK;
        return flushes && !unflushed && flow->queue.under_way == 0 ? VELK_DONE : VELK_BUSY;
    }
}

void velk_flow_wait(velk_flow *flow) {
    if (flow != nullptr) wait_for_output(*flow);
}

void velk_flow_report(const velk_flow *flow, velk_report *report) {
    if (flow != nullptr && report != nullptr) *report = report_of(*flow);
}

std::size_t velk_flow_unused(const velk_flow *flow, const void **bytes) {
    const bool ended = flow != nullptr && bytes != nullptr && flow->status == VELK_DONE;
    if (!ended || flow->compresses()) return 0;
    *bytes = flow->end.start;
    return flow->end.got;
}

void velk_flow_close(velk_flow *flow) {
    if (flow == nullptr) return;
    end_flow(*flow);
    std::free(flow);
}
