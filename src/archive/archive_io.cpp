#include "archive/archive_io.h"

#include "archive/memory.h"
#include "base/checked.h"

#include <cstring>

namespace velk {

using enum ArchiveStatus;

ArchiveStatus read_start(const ByteSource &source, Settings &settings, std::uint32_t &block_size) {
    std::uint8_t start[kFirstRecord];
    std::uint32_t got;
    if (!source.read(source.user, start, kFirstRecord, got)) return kReadFailed;
    return parse_start(start, got, settings, block_size);
}

ArchiveStatus start_reading(const ByteSource &source, CoderContext &context,
                            std::uint32_t &memory_bytes) {
    std::uint32_t block_size;
    const ArchiveStatus status = read_start(source, context.settings, block_size);
    if (status != kGood) return status;
    memory_bytes = alloc_decompress(context, block_size);
    return memory_bytes != 0 ? kGood : kNoMemory;
}

std::uint8_t *next_place(RecordIntake &intake, std::uint32_t &wanted) {
    const bool in_head = intake.taken < kRecordHeadBytes;
    wanted = kRecordHeadBytes + intake.length - intake.taken; // without a head there is no length
    return in_head ? intake.head + intake.taken : intake.data + (intake.taken - kRecordHeadBytes);
}

ArchiveStatus take_in(RecordIntake &intake, std::uint32_t count) {
    // A block cut short has lost its CRC, which must not be made up from what an earlier
    // block left in the buffer.
    if (count == 0)
        return intake.taken == 0 ? kEnd : intake.taken < kRecordHeadBytes ? kHeadCut : kBlockCut;
    intake.taken += count;
    if (intake.taken == kRecordHeadBytes) {
        if (std::memcmp(intake.head, kMagic, kRecordHeadBytes) == 0) return kNextHeader;
        const ArchiveStatus head = parse_record_head(intake.head, intake.capacity, intake.length);
        return head == kGood ? kMore : head;
    }
    return intake.taken == kRecordHeadBytes + intake.length ? kGood : kMore;
}

ArchiveStatus read_record(const ByteSource &source, std::uint32_t capacity, std::uint8_t *data,
                          std::uint32_t &length) {
    RecordIntake intake{data, capacity};
    ArchiveStatus status = kMore;
    while (status == kMore) {
        std::uint32_t wanted, got;
        std::uint8_t *const place = next_place(intake, wanted);
        if (!source.read(source.user, place, wanted, got)) return kReadFailed;
        status = take_in(intake, got);
        length = intake.length;
    }
    return status;
}

ArchiveStatus read_block(const ByteSource &source, CoderContext &context, std::uint32_t &length,
                         BlockTrace &trace) {
    const ArchiveStatus status = read_record(source, context.capacity, context.buf_in, length);
    if (status != kGood) return status;
    context.in_len = length;
    if (decompress_block(context, &trace)) return kGood;
    return trace.crc_holds ? kStageFailed : kBlockDamaged;
}

ArchiveStatus next_record(const PlacedSource &source, std::uint32_t capacity, RecordWalk &walk) {
    const auto look = [&] {
        return source.read_at(source.user, walk.next - 1, walk.bytes, sizeof walk.bytes, walk.got);
    };
    if (walk.got == 0 && (!look() || walk.got == 0)) return kReadFailed; // before it is a header
    if (walk.got != sizeof walk.bytes) return walk.got == 1 ? kEnd : kHeadCut;
    if (std::memcmp(walk.bytes + 1, kMagic, kRecordHeadBytes) == 0) return kNextHeader;
    const ArchiveStatus head = parse_record_head(walk.bytes + 1, capacity, walk.length);
    if (head != kGood) return head;
    walk.record = walk.next;
    if (!add_checked(walk.next, kRecordHeadBytes + walk.length)) return kBlockCut;
    if (!look()) return kReadFailed;
    return walk.got == 0 ? kBlockCut : kGood;
}

std::uint32_t write_start(const ByteSink &sink, const Settings &settings,
                          std::uint32_t block_size) {
    std::uint8_t start[kFirstRecord];
    put_start(start, settings, block_size);
    return sink.write(sink.user, start, kFirstRecord) ? kFirstRecord : 0;
}

std::uint32_t write_record(const ByteSink &sink, const std::uint8_t *data, std::uint32_t length) {
    std::uint8_t head[kRecordHeadBytes];
    put_record_head(head, length);
    const bool written =
        sink.write(sink.user, head, kRecordHeadBytes) && sink.write(sink.user, data, length);
    return written ? kRecordHeadBytes + length : 0;
}

} // namespace velk
