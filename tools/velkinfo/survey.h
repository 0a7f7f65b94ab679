// What damage has left of an archive.
#pragma once

#include "velkinfo/archive_window.h"

#include <cstdint>
#include <deque>

namespace velk {

// A stretch of a damaged archive.
enum class ExtentKind { kIntact, kHeadLost, kLost, kFrame };
struct Extent {
    std::uint64_t begin, end; // bytes of the archive
    // One intact record; one without its head; no intact block; a header, or an end mark and
    // the index behind it.
    ExtentKind kind;
    std::uint64_t data;  // where the block data begin, which go to `end`; 0 if lost
    std::uint32_t heads; // record heads that still show its blocks; 0: unknown
};

// Divides an archive behind its header into intact records and what lies between.
//
// A record is intact when its head and its block CRC hold. Behind damage a head that
// holds is believed if it leads to another one or to the archive's end; that way a record
// inside the data of a damaged one (an archive that was compressed once more) is not
// taken for one of this archive. Otherwise intact records are searched for, byte by byte.
// As a block CRC covers all up to the block's end, a block whose head alone is damaged
// shows itself by its end, the place of an intact record: the first one behind, or, if
// what it holds is an archive, one of many.
//
// Every byte is tried as a head once, and a CRC is a matter of a few steps, so the time is
// linear whatever the bytes. No more than a stretch of the archive is in memory.
class Survey {
public:
    // begin: where a header is, or was.
    Survey(ArchiveFile &archive, bool header_holds, std::uint64_t begin = 0);

    // The next stretch. False at the archive's end.
    [[nodiscard]] bool next(Extent &extent);

    // Whether the archive ends there, or the records of a member do. Not before the last stretch's
    // end.
    [[nodiscard]] bool ends_at(std::uint64_t offset);

    // Bytes checksummed so far.
    std::uint64_t checksummed() const { return window_.checksummed(); }

private:
    bool head_at(std::uint64_t offset, std::uint32_t &length, bool cut = false);
    bool intact_at(std::uint64_t offset);
    std::uint64_t frame_end(std::uint64_t offset);
    bool leads_on(std::uint64_t &offset);
    bool search(std::uint64_t limit);
    std::uint64_t find_data(std::uint64_t begin, std::uint64_t end, std::uint32_t head);
    std::uint64_t find_behind(std::uint64_t begin, Extent &headless);
    void find_end_of_damage(Extent &extent);

    ArchiveFile &archive_;
    ArchiveWindow window_;
    std::uint64_t position_;           // where the next stretch begins
    std::deque<std::uint64_t> intact_; // the intact records behind position_ ...
    std::uint64_t searched_ = 0;       // ... as far as they have been searched for
    std::uint64_t tries_left_;         // of ends behind the first, and of places of a footer
    Extent pending_{};                 // found together with the stretch before it
};

} // namespace velk
