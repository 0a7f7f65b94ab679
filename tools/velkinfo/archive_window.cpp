#include "velkinfo/archive_window.h"

#include "pipeline/crc32.h"

#include <algorithm>
#include <array>
#include <cassert>

namespace velk {
namespace {

constexpr std::uint32_t kStep = 16; // bytes; more would save memory, and cost time
constexpr std::uint32_t kSegments = 4;
static_assert(ArchiveWindow::kSegment > kMaxRecordData);

// [k][i] is x^(8 i 256^k): three digits make any shift in a segment.
using Powers = std::array<std::array<std::uint32_t, 256>, 3>;

constexpr Powers make_powers() {
    Powers powers{};
    std::uint32_t step = crc32_power(8);
    for (auto &row : powers) {
        row[0] = crc32_power(0);
        for (std::uint32_t i = 1; i < 256; ++i)
            row[i] = crc32_multiply(row[i - 1], step);
        step = crc32_multiply(row[255], step);
    }
    return powers;
}

constexpr Powers kPowers = make_powers();

constexpr std::uint32_t round_up(std::uint32_t n) {
    return (n + kStep - 1) / kStep * kStep;
}

} // namespace

std::uint32_t shift_crc(std::uint32_t crc, std::uint32_t count) {
    assert(count < ArchiveWindow::kSegment);
    for (const auto &row : kPowers) {
        if (const std::uint32_t digit = count % 256) crc = crc32_multiply(row[digit], crc);
        count /= 256;
    }
    return crc;
}

ArchiveWindow::ArchiveWindow(ArchiveFile &archive, std::uint32_t segment)
    : archive_(archive), segment_(segment) {
    crc32_init();
    const std::uint32_t all = kSegments * segment;
    const auto size = static_cast<std::uint32_t>(std::min<std::uint64_t>(all, archive.size));
    bytes_.resize(size);
    crcs_.resize(size / kStep + 1);
    reach(0);
}

void ArchiveWindow::move_on(std::uint64_t offset) {
    const std::uint64_t wanted = std::min(offset + segment_, archive_.size);
    const std::uint64_t missing = end_ == 0 ? 0 : (wanted - end_ + segment_ - 1) / segment_;
    // Bytes and CRCs that stay move to the front.
    const std::uint64_t skipped = missing * segment_;
    const std::uint64_t kept = skipped < end_ - begin_ ? end_ - begin_ - skipped : 0;
    std::copy_n(bytes_.end() - static_cast<std::ptrdiff_t>(kept), kept, bytes_.begin());
    std::copy_n(crcs_.end() - 1 - static_cast<std::ptrdiff_t>(kept / kStep), kept / kStep,
                crcs_.begin());
    begin_ += skipped;
    end_ = std::min(begin_ + bytes_.size(), archive_.size);
    const auto size = static_cast<std::uint32_t>(end_ - begin_);
    for (auto p = static_cast<std::uint32_t>(kept); p < size; p += segment_)
        load(p, std::min(p + segment_, size));
}

// Reads a segment, or what the archive has of it, and takes its CRCs.
void ArchiveWindow::load(std::uint32_t begin, std::uint32_t end) {
    constexpr std::uint32_t kPiece = 4096; // what an unreadable byte takes with it
    for (std::uint32_t p = begin; p < end; p += kPiece) {
        const std::uint32_t count = std::min(kPiece, end - p);
        std::uint8_t *const piece = bytes_.data() + p;
        if (!read_at(archive_, begin_ + p, piece, count)) std::fill_n(piece, count, 0);
    }
    std::uint32_t crc = 0;
    crcs_[end / kStep] = 0;
    for (std::uint32_t stop = end; stop != begin;) {
        const std::uint32_t start = (stop - 1) / kStep * kStep;
        crc = shift_crc(crc, stop - start) ^ crc_of(start, stop);
        crcs_[start / kStep] = crc;
        stop = start;
    }
}

std::uint32_t ArchiveWindow::crc_of(std::uint32_t begin, std::uint32_t end) {
    checksummed_ += end - begin;
    return crc32_block(bytes_.data() + begin, end - begin);
}

std::uint32_t ArchiveWindow::crc(std::uint64_t offset, std::uint32_t length) {
    const auto begin = static_cast<std::uint32_t>(offset - begin_);
    const std::uint32_t end = begin + length;
    const std::uint32_t first = round_up(begin), last = end / kStep * kStep;
    if (first >= last) return crc_of(begin, end);
    std::uint32_t crc = crc_of(last, end);
    for (std::uint32_t stop = last; stop != first;) {
        const std::uint32_t start = std::max(first, (stop - 1) / segment_ * segment_);
        // Behind the end of a segment nothing counts; the entry is the next one's.
        const std::uint32_t behind = stop % segment_ == 0 ? 0 : crcs_[stop / kStep];
        crc = crcs_[start / kStep] ^ shift_crc(crc ^ behind, stop - start);
        stop = start;
    }
    return shift_crc(crc, first - begin) ^ crc_of(begin, first);
}

} // namespace velk
