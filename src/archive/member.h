// A member of an archive, read from its front: what its records restored to, and whether what
// ends it fits them.
//
//   archive   member | member | ...
//   member    header | records                         plain
//             header | records | end mark | index      indexed (archive/index.h)
#pragma once

#include "archive/archive_io.h"
#include "archive/index.h"

#include <cstdint>

namespace velk {

struct Member {
    std::uint32_t block_size; // N
    std::uint32_t first_len;  // bytes of the first block
    std::uint32_t last_len;   // of the one restored last
    IndexSum sum;             // of the blocks restored so far
};

// start: the kFirstRecord bytes of the member's header, which holds.
[[nodiscard]] Member start_member(const std::uint8_t *start, std::uint32_t block_size);

// Whether only an index can end the member. The first block tells where N does not.
[[nodiscard]] bool needs_index(const Member &member);

// Counts a restored block, the next one. False for one that no compressor writes there.
[[nodiscard]] bool add_block(Member &member, const IndexEntry &entry);

// What a member ends with, and where the next one begins, as the bytes behind its records come, in
// pieces of any size.
struct MemberEnd {
    bool closed = false;                   // nothing is wrong with it, whatever follows
    bool whole = false;                    // or else it may have been cut between two records
    std::uint64_t bytes = 0;               // of end mark and index
    std::uint8_t start[kFirstRecord] = {}; // the header of the next member

    enum class Part { kIndex, kBehind, kLostIndex } part = Part::kBehind; // that comes next
    std::uint32_t got = 0;                                                // bytes of `start`
    std::uint64_t left = 0;                                               // bytes of the index
    std::uint32_t crc = 0;
    std::uint8_t index[kFooterBytes + 4096] = {}; // its last bytes so far, and room for more
};

// Begins with the end of the member all of whose records have been restored. met: what
// next_place's bytes turned out to be in place of another record, kEnd to kLengthInvalid; intake:
// those bytes. Returns kMore when what follows them has to be seen; kNextHeader when another member
// follows, kEnd when nothing does, kGarbage when what does is no part of the archive, or what is
// wrong.
[[nodiscard]] ArchiveStatus begin_end(MemberEnd &end, const Member &member, ArchiveStatus met,
                                      const RecordIntake &intake);

// As those of a record; 0 bytes at the end of all. Returns as above.
[[nodiscard]] std::uint8_t *next_place(MemberEnd &end, std::uint32_t &wanted);
[[nodiscard]] ArchiveStatus take_in(MemberEnd &end, const Member &member, std::uint32_t count);

// All of that, with bytes from the source.
[[nodiscard]] ArchiveStatus end_member(const ByteSource &source, const Member &member,
                                       ArchiveStatus met, const RecordIntake &intake,
                                       MemberEnd &end);

// What the bytes behind a member are, `got` of them, fewer than kFirstRecord at the end of all:
// kEnd, kNextHeader, kGarbage, or what is wrong with a header.
[[nodiscard]] ArchiveStatus classify_behind(const std::uint8_t *start, std::uint32_t got);

// A member that was found by the index at its end.
struct IndexedMember {
    std::uint64_t offset;  // of its header
    std::uint64_t entries; // offset of the first of them
    std::uint32_t block_size;
    IndexSum sum;
};

// Finds the member whose index ends at `end`. kIndexDamaged where there is none, or where
// header, end mark, entries and footer do not fit each other in all that they say.
[[nodiscard]] ArchiveStatus find_indexed(const PlacedSource &source, std::uint64_t end,
                                         IndexedMember &member);

} // namespace velk
