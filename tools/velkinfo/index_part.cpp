#include "velkinfo/index_part.h"

#include "base/byte_order.h"

namespace velk {
namespace {

// Whether the header at `offset` has this CRC.
bool header_fits(ArchiveFile &archive, std::uint64_t offset, std::uint32_t header_crc) {
    std::uint8_t start[kFirstRecord];
    return read_at(archive, offset, start, kFirstRecord) &&
           crc32_append(0, start, kFirstRecord) == header_crc;
}

} // namespace

bool find_part(ArchiveFile &archive, std::uint64_t end, IndexedPart &part) {
    std::uint8_t last[kFooterBytes], bytes[kEntryBytes];
    Footer footer;
    if (end < kFooterBytes || !read_at(archive, end - kFooterBytes, last, kFooterBytes) ||
        !get_footer(last, footer))
        return false;
    const std::uint64_t index_bytes = entry_bytes(footer.records);
    if (index_bytes > end - kFooterBytes) return false;
    IndexSum sum{kFirstRecord + kRecordHeadBytes + kFooterBytes, 0, 0, 0, 0};
    part = {0, end, 0, false, {}};
    for (std::uint64_t at = end - kFooterBytes - index_bytes; at != end - kFooterBytes;
         at += kEntryBytes) {
        if (!read_at(archive, at, bytes, kEntryBytes)) return false;
        const IndexEntry entry = get_entry(bytes);
        if (entry.data_len < kMinRecordData || entry.data_len > kMaxRecordData ||
            entry.block_len == 0 || entry.block_len > kMaxIndexedBlock || !add_entry(sum, entry))
            return false;
        part.entries.push_back(entry);
    }
    if (sum.size != footer.size) return false;
    part.begin = end - sum.member_bytes;

    IndexedMember member;
    part.whole = find_indexed(places_of(archive), end, member) == ArchiveStatus::kGood;
    if (part.whole) return true;
    // The header's CRC, as the index CRC has it: what is behind it taken off, x^-n times.
    std::uint32_t header_crc = footer.crc ^ crc32_append(sum.crc, last, kFooterCovered);
    const std::uint64_t period = UINT32_MAX; // of x
    header_crc = crc32_multiply(header_crc,
                                crc32_power(period - 8 * (index_bytes + kFooterCovered) % period));
    std::uint8_t head[kRecordHeadBytes];
    std::uint32_t length;
    // Bytes are missing, or too many, behind the start of the archive.
    const bool moved = !header_fits(archive, part.begin, header_crc) &&
                       header_fits(archive, 0, header_crc) && !part.entries.empty() &&
                       read_at(archive, kFirstRecord, head, kRecordHeadBytes) &&
                       get_record_head(head, length) && length == part.entries[0].data_len;
    if (moved || part.begin > end) {
        part.shift = part.begin;
        part.begin = 0;
    }
    return true;
}

std::uint64_t first_record(const IndexedPart &part) {
    return part.begin + part.shift + kFirstRecord;
}

std::uint64_t place_of(ArchiveFile &archive, const IndexedPart &part, const IndexEntry &entry,
                       std::uint64_t record) {
    std::vector<std::uint8_t> data(entry.data_len);
    for (const std::uint64_t shift : {std::uint64_t{0}, part.shift}) {
        const std::uint64_t place = record - shift + kRecordHeadBytes;
        const std::uint32_t covered = entry.data_len - kCrcBytes;
        if (read_at(archive, place, data.data(), entry.data_len) &&
            crc32_block(data.data(), covered) == get_u32(&data[covered]))
            return place;
    }
    return 0;
}

} // namespace velk
