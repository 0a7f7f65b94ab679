#include "archive/index.h"

#include "base/byte_order.h"
#include "base/checked.h"

#include <cstring>

namespace velk {
namespace {

constexpr char kIndexMagic[] = "VELKindx";
constexpr std::uint32_t kIndexMagicBytes = sizeof kIndexMagic - 1;
static_assert(kFooterCovered + kCrcBytes + kIndexMagicBytes == kFooterBytes);

} // namespace

void put_entry(std::uint8_t *bytes, const IndexEntry &entry) {
    put_u32(bytes, entry.data_len);
    put_u32(bytes + 4, entry.block_len);
    put_u32(bytes + 8, entry.block_crc);
}

IndexEntry get_entry(const std::uint8_t *bytes) {
    return {get_u32(bytes), get_u32(bytes + 4), get_u32(bytes + 8)};
}

IndexSum start_index(const std::uint8_t *header) {
    const std::uint32_t crc = crc32_append(0, header, kFirstRecord);
    return {kFirstRecord + kRecordHeadBytes + kFooterBytes, 0, 0, crc, crc};
}

bool add_entry(IndexSum &sum, const IndexEntry &entry) {
    IndexSum more = sum;
    const std::uint64_t member_bytes =
        std::uint64_t{kRecordHeadBytes} + entry.data_len + kEntryBytes;
    if (++more.records == 0 || !add_checked(more.member_bytes, member_bytes) ||
        !add_checked(more.size, entry.block_len)) {
        return false;
    }
    std::uint8_t bytes[kEntryBytes];
    put_entry(bytes, entry);
    more.crc = crc32_append(more.crc, bytes, kEntryBytes);
    sum = more;
    return true;
}

void put_footer(std::uint8_t *footer, const IndexSum &sum) {
    put_u32(footer, static_cast<std::uint32_t>(sum.size));
    put_u32(footer + 4, static_cast<std::uint32_t>(sum.size >> 32));
    put_u32(footer + 8, sum.records);
    put_u32(footer + kFooterCovered, crc32_append(sum.crc, footer, kFooterCovered));
    std::memcpy(footer + kFooterCovered + kCrcBytes, kIndexMagic, kIndexMagicBytes);
}

bool get_footer(const std::uint8_t *bytes, Footer &footer) {
    footer = {get_u64(bytes), get_u32(bytes + 8), get_u32(bytes + kFooterCovered)};
    return std::memcmp(bytes + kFooterCovered + kCrcBytes, kIndexMagic, kIndexMagicBytes) == 0;
}

} // namespace velk
