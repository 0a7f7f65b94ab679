#include "archive/archive_io.h"

#include "archive/memory.h"

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

ArchiveStatus read_record(const ByteSource &source, std::uint32_t capacity, std::uint8_t *data,
                          std::uint32_t &length) {
    std::uint8_t head[kRecordHeadBytes];
    std::uint32_t got;
    if (!source.read(source.user, head, kRecordHeadBytes, got)) return kReadFailed;
    if (got != kRecordHeadBytes) return got == 0 ? kEnd : kHeadCut;
    const ArchiveStatus status = parse_record_head(head, capacity, length);
    if (status != kGood) return status;
    if (!source.read(source.user, data, length, got)) return kReadFailed;
    // A block cut short has lost its CRC, which must not be made up from what an earlier
    // block left in the buffer.
    return got == length ? kGood : kBlockCut;
}

ArchiveStatus read_block(const ByteSource &source, CoderContext &context, std::uint32_t &length,
                         BlockTrace &trace) {
    const ArchiveStatus status = read_record(source, context.capacity, context.buf_in, length);
    if (status != kGood) return status;
    context.in_len = length;
    if (decompress_block(context, &trace)) return kGood;
    return trace.crc_holds ? kStageFailed : kBlockDamaged;
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
