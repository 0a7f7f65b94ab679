// The mutator of the targets that take an archive. It sets check bytes, lengths and the CRCs of
// blocks and indexes right, or nothing would get past them.
#include "archive/index.h"
#include "base/block_size.h"
#include "base/byte_order.h"
#include "pipeline/crc32.h"

#include <cstddef>
#include <cstring>

using namespace velk;

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t *data, std::size_t size, std::size_t max_size);

namespace {

// Has the bytes behind an end mark end in a footer that fits their entries.
void repair_index(const std::uint8_t *header, std::uint8_t *entries, std::size_t size) {
    if (size < kFooterBytes) return;
    IndexSum sum = start_index(header);
    for (; size >= kFooterBytes + kEntryBytes; size -= kEntryBytes, entries += kEntryBytes) {
        if (!add_entry(sum, get_entry(entries))) return;
    }
    put_footer(entries, sum);
}

// The length of a record beyond the end becomes all that is left; so does that of one of no
// bytes, unless the check byte of an end mark is right.
void repair_records(const std::uint8_t *header, std::uint8_t *records, std::size_t size) {
    while (size > kRecordHeadBytes) {
        const auto left = static_cast<std::uint32_t>(size - kRecordHeadBytes);
        std::uint32_t length;
        const bool checked = get_record_head(records, length);
        std::uint8_t *const data = records + kRecordHeadBytes;
        if (checked && length == 0) return repair_index(header, data, left);
        if (length == 0 || length > left) length = left;
        put_record_head(records, length);
        if (length > kCrcBytes) {
            const std::uint32_t covered = length - kCrcBytes;
            put_u32(data + covered, crc32_block(data, covered));
        }
        records = data + length;
        size = left - length;
    }
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t *data, std::size_t size,
                                               std::size_t max_size, unsigned seed) {
    crc32_init();
    size = LLVMFuzzerMutate(data, size, max_size);
    // One in 32 stays as it is; one in 32 keeps its block size. Half of the others are to have an
    // index.
    if (seed % 32 == 0 || max_size < kFirstRecord) return size;
    if (size < kFirstRecord) {
        std::memset(data + size, 0, kFirstRecord - size);
        size = kFirstRecord;
    }
    Settings settings{};
    set_flags(settings, data[kMagicBytes + 1]);
    const std::uint32_t block_size = kMinBlockSize + (seed % 2 == 0 ? kIndexMark : 0);
    put_start(data, settings, seed % 32 == 1 ? get_u32(data + kMagicBytes + 2) : block_size);
    repair_records(data, data + kFirstRecord, size - kFirstRecord);
    return size;
}
