// The index behind the end mark of an archive's member: what its records are and what they
// restore to, so that the member is known to be whole, and any place of the original is found.
//
//   index   | entry | entry | ... | footer |            an entry for each record, in their order
//   entry   | L (4) | bytes of the block (4) | CRC-32 of the block (4) |
//   footer  | bytes of the original (8) | records (4) | index CRC (4) | "VELKindx" (8) |
//
// The blocks are those of the original, before all stages; the CRCs are in the usual order of
// the bytes. The index CRC covers the member's header, the entries and the 12 bytes of the
// footer before it.
//
// The block size N of a header tells whether an index must follow: N mod 1024 is 513 then,
// and blocks are shorter than N. What else writes such an N writes a block of just N bytes.
#pragma once

#include "archive/format.h"

#include <cstdint>

namespace velk {

constexpr std::uint32_t kEntryBytes = 12;
constexpr std::uint32_t kFooterBytes = 24;
constexpr std::uint32_t kFooterCovered = 12; // bytes of the footer under the index CRC

// Bytes of the entries of so many records.
[[nodiscard]] constexpr std::uint64_t entry_bytes(std::uint64_t records) {
    return kEntryBytes * records;
}

// N is this much above the size that blocks have at most.
constexpr std::uint32_t kIndexMark = 513;
constexpr std::uint32_t kMaxIndexedBlock = kMaxBlockSize - 1024;

[[nodiscard]] constexpr bool is_marked(std::uint32_t block_size) {
    return block_size % 1024 == kIndexMark;
}

struct IndexEntry {
    std::uint32_t data_len;  // L, bytes of the record's data
    std::uint32_t block_len; // bytes of the block
    std::uint32_t block_crc;
};

void put_entry(std::uint8_t *bytes, const IndexEntry &entry);
[[nodiscard]] IndexEntry get_entry(const std::uint8_t *bytes);

// What entries come to, taken in their order.
struct IndexSum {
    std::uint64_t member_bytes; // header, records, end mark and index
    std::uint64_t size;         // bytes of the original
    std::uint32_t records;
    std::uint32_t header_crc;
    std::uint32_t crc; // of header and entries
};

// Of a member that begins with these kFirstRecord bytes.
[[nodiscard]] IndexSum start_index(const std::uint8_t *header);

// False, with the sum as it was, when there are more than a footer can count.
[[nodiscard]] bool add_entry(IndexSum &sum, const IndexEntry &entry);

// Writes the kFooterBytes bytes behind the entries.
void put_footer(std::uint8_t *footer, const IndexSum &sum);

// What a footer says.
struct Footer {
    std::uint64_t size;
    std::uint32_t records, crc;
};
// False when the bytes do not end as a footer does.
[[nodiscard]] bool get_footer(const std::uint8_t *bytes, Footer &footer);

} // namespace velk
