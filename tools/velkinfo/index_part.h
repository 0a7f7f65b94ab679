// The members at an archive's end as their indexes tell of them, whatever else is damaged.
#pragma once

#include "velkinfo/archive_blocks.h"

#include <cstdint>
#include <vector>

namespace velk {

struct IndexedPart {
    std::uint64_t begin, end; // of the member in the archive
    // Where bytes got lost or were put in, records before that place lie this far before where
    // the entries' sums put them, modulo 2^64.
    std::uint64_t shift;
    bool whole; // header, end mark and index hold; else perhaps only some of them
    std::vector<IndexEntry> entries;
};

// Reads the index that ends at `end`. False when there is none, or its sums are wrong.
[[nodiscard]] bool find_part(ArchiveFile &archive, std::uint64_t end, IndexedPart &part);

// Where the data of the block of an entry begin, whose record would begin at `record`; 0 where
// there are none with a block CRC that holds.
[[nodiscard]] std::uint64_t place_of(ArchiveFile &archive, const IndexedPart &part,
                                     const IndexEntry &entry, std::uint64_t record);

// Where the first record would begin.
[[nodiscard]] std::uint64_t first_record(const IndexedPart &part);

} // namespace velk
