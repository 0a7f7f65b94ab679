// The mutator of the targets that take an archive. It sets check bytes, lengths and block
// CRCs right, or nothing would get past them.
#include "archive/format.h"
#include "base/block_size.h"
#include "base/byte_order.h"
#include "pipeline/crc32.h"

#include <cstddef>
#include <cstring>

using namespace velk;

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t *data, std::size_t size, std::size_t max_size);

namespace {

// The length of a record beyond the end, or of no bytes, becomes all that is left.
void repair_records(std::uint8_t *records, std::size_t size) {
    while (size > kRecordHeadBytes) {
        const auto left = static_cast<std::uint32_t>(size - kRecordHeadBytes);
        std::uint32_t length = get_u32(records + 1);
        if (length == 0 || length > left) length = left;
        put_record_head(records, length);
        std::uint8_t *const data = records + kRecordHeadBytes;
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
    // One in 32 stays as it is; one in 32 keeps its block size.
    if (seed % 32 == 0 || max_size < kFirstRecord) return size;
    if (size < kFirstRecord) {
        std::memset(data + size, 0, kFirstRecord - size);
        size = kFirstRecord;
    }
    Settings settings{};
    set_flags(settings, data[kMagicBytes + 1]);
    put_start(data, settings, seed % 32 == 1 ? get_u32(data + kMagicBytes + 2) : kMinBlockSize);
    repair_records(data + kFirstRecord, size - kFirstRecord);
    return size;
}
