// A stretch of an archive in memory that moves on, with the block CRC of any range in it
// for a bounded number of steps, however long the range.
//
//   archive   ...| segment | segment | segment | segment |...
//   crcs          ^ ^ ^ ^ ^ ^ ^ ^ ^   one a step of 16 bytes: of all from there to the
//                                     end of its segment
//
// As crc32_block goes from the last byte to the first, the CRC of a range "front, back"
// is shift(CRC of back, bytes in front) ^ CRC of front, where the shift by n bytes is a
// multiplication by x^(8 n) modulo the CRC's polynomial. Taken the other way round, two
// of the CRCs kept give that of the steps between them.
#pragma once

#include "velkinfo/archive_blocks.h"

#include <cstdint>
#include <vector>

namespace velk {

class ArchiveWindow {
public:
    // Longer than the longest record.
    static constexpr std::uint32_t kSegment = 1u << 24;

    // segment: bytes, a power of 2 from 256 to kSegment.
    explicit ArchiveWindow(ArchiveFile &archive, std::uint32_t segment = kSegment);

    // Moves on if it must, so that the window holds, as far as the archive goes, the
    // bytes of one segment from `offset` on and of two before it; what lies farther back
    // may be lost for good. What can't be read becomes zeros.
    void reach(std::uint64_t offset) {
        if (end_ < archive_.size && end_ < offset + segment_) move_on(offset);
    }

    // The bytes from `offset` on, which must lie in the window, to the window's end.
    const std::uint8_t *at(std::uint64_t offset) const { return bytes_.data() + (offset - begin_); }

    // crc32_block of `length` bytes in the window, fewer than in a segment.
    std::uint32_t crc(std::uint64_t offset, std::uint32_t length);

    // Bytes that went through crc32_block so far, the kept CRCs included: the measure of
    // the work done.
    std::uint64_t checksummed() const { return checksummed_; }

private:
    void move_on(std::uint64_t offset);
    std::uint32_t crc_of(std::uint32_t begin, std::uint32_t end);
    void load(std::uint32_t begin, std::uint32_t end);

    ArchiveFile &archive_;
    const std::uint32_t segment_;
    std::vector<std::uint8_t> bytes_;
    std::vector<std::uint32_t> crcs_;
    std::uint64_t begin_ = 0, end_ = 0; // of the window
    std::uint64_t checksummed_ = 0;
};

// What the crc32_block of some bytes adds to that of `count` bytes and those. `count` is
// below kSegment.
[[nodiscard]] std::uint32_t shift_crc(std::uint32_t crc, std::uint32_t count);

} // namespace velk
