#include "velkinfo/survey.h"

#include "archive/index.h"
#include "base/byte_order.h"

#include <algorithm>
#include <utility>

namespace velk {
namespace {

// Bytes may have got lost in a damaged head or been put into it.
constexpr std::uint32_t kMaxDamagedHead = 4 * kRecordHeadBytes;

// Both forms of a block have one of these values before the CRC. Asking for it spares
// the check of 84 in 85 false heads.
bool is_last_byte(std::uint8_t byte) {
    return byte <= kFallbackMarker;
}

} // namespace

Survey::Survey(ArchiveFile &archive, bool header_holds, std::uint64_t begin)
    : archive_(archive), window_(archive),
      position_(std::min<std::uint64_t>(begin + kFirstRecord, archive.size)),
      tries_left_(1024 + archive.size / 8) {
    // Of a lost header bytes may be missing, too.
    for (std::uint64_t p = begin; !header_holds && p < position_; ++p) {
        if (intact_at(p)) position_ = p;
    }
}

// Whether there is a record head, and all its data are in the archive or, with `cut`,
// perhaps not.
bool Survey::head_at(std::uint64_t offset, std::uint32_t &length, bool cut) {
    const std::uint64_t left = archive_.size - offset;
    if (left < kRecordHeadBytes) return false;
    window_.reach(offset);
    const std::uint8_t *const head = window_.at(offset);
    length = get_u32(head + 1); // sooner refused than by the check byte
    return length >= kMinRecordData && length <= kMaxRecordData && get_record_head(head, length) &&
           (cut || length <= left - kRecordHeadBytes);
}

bool Survey::intact_at(std::uint64_t offset) {
    std::uint32_t length;
    if (!head_at(offset, length)) return false;
    const std::uint64_t data = offset + kRecordHeadBytes;
    return find_data(data, data + length, 0) != 0;
}

// Where the header at `offset` ends, or the end mark and the index; `offset` if neither is there.
std::uint64_t Survey::frame_end(std::uint64_t offset) {
    window_.reach(offset);
    const std::uint8_t *const bytes = window_.at(offset);
    const std::uint64_t left = std::min<std::uint64_t>(archive_.size - offset, window_.kSegment);
    Settings settings{};
    std::uint32_t length;
    if (left >= kFirstRecord &&
        parse_start(bytes, kFirstRecord, settings, length) == ArchiveStatus::kGood)
        return offset + kFirstRecord;
    if (left < kRecordHeadBytes || !get_record_head(bytes, length) || length != 0) return offset;
    if (left >= kRecordHeadBytes + kFirstRecord &&
        parse_start(bytes + kRecordHeadBytes, kFirstRecord, settings, length) ==
            ArchiveStatus::kGood)
        return offset + kRecordHeadBytes;
    Footer footer;
    std::uint32_t records = 0;
    for (std::uint32_t at = kRecordHeadBytes; at + kFooterBytes <= left && tries_left_ != 0;
         at += kEntryBytes, ++records, --tries_left_) {
        if (get_footer(bytes + at, footer) && footer.records == records)
            return offset + at + kFooterBytes;
    }
    return left == kRecordHeadBytes ? archive_.size : offset;
}

bool Survey::ends_at(std::uint64_t offset) {
    return offset == archive_.size || frame_end(offset) != offset;
}

// Follows a head that is believed.
bool Survey::leads_on(std::uint64_t &offset) {
    std::uint32_t length, length_there;
    if (!head_at(offset, length)) return false;
    const std::uint64_t next = offset + kRecordHeadBytes + length;
    if (!ends_at(next) && !head_at(next, length_there, true)) return false;
    offset = next;
    return true;
}

// Searches on for the next intact record, up to `limit`.
bool Survey::search(std::uint64_t limit) {
    while (searched_ < limit) {
        if (intact_at(searched_++)) {
            intact_.push_back(searched_ - 1);
            return true;
        }
    }
    return false;
}

// Looks for block data that end, with a CRC that fits the rest, at `end` and begin behind
// `head` bytes or fewer at `begin`. Returns where they begin, or 0.
std::uint64_t Survey::find_data(std::uint64_t begin, std::uint64_t end, std::uint32_t head) {
    if (end < begin + kMinRecordData) return 0;
    const std::uint64_t earliest =
        std::max(begin, end - std::min<std::uint64_t>(end, kMaxRecordData));
    std::uint64_t data = std::min(begin + head, end - kMinRecordData);
    if (data < earliest) return 0;
    const std::uint8_t *const stored = window_.at(end - kCrcBytes);
    if (!is_last_byte(stored[-1])) return 0;
    std::uint32_t crc = window_.crc(data, static_cast<std::uint32_t>(end - kCrcBytes - data));
    while (crc != get_u32(stored)) {
        if (data-- == earliest) return 0;
        crc = shift_crc(crc, 1) ^ window_.crc(data, 1);
    }
    return data;
}

// Searches behind `begin`, where a head is damaged or leads nowhere. Returns where the
// next intact record begins, or the archive's end. `headless` becomes the block whose end
// shows that only its head is damaged, the one at `begin` or the one where that leads.
std::uint64_t Survey::find_behind(std::uint64_t begin, Extent &headless) {
    std::uint32_t length;
    std::uint64_t starts[2] = {begin, begin};
    if (head_at(begin, length)) starts[1] += kRecordHeadBytes + length;
    const std::uint64_t last =
        std::min(starts[1] + kMaxDamagedHead + kMaxRecordData + 1, archive_.size);

    while (!intact_.empty() && intact_.front() <= begin)
        intact_.pop_front();
    searched_ = std::max(searched_, begin + 1);
    std::uint64_t first = 0;
    for (std::size_t i = 0;; ++i) {
        const bool found = i < intact_.size() || search(i == 0 ? archive_.size : last);
        const std::uint64_t end = found ? intact_[i] : archive_.size;
        if (i == 0) first = end;
        // Across an intact record no head leads.
        if (end < starts[1] && head_at(end, length) && end + kRecordHeadBytes + length > starts[1])
            starts[1] = begin;
        for (const std::uint64_t start : starts) {
            const std::uint64_t data = find_data(start, end, kMaxDamagedHead);
            if (data == 0) continue;
            headless = {start, end, ExtentKind::kHeadLost, data, 1};
            return end;
        }
        if (!found || end >= last || tries_left_ == 0) return first;
        --tries_left_;
    }
}

// Sets the end of a lost stretch, or makes it one whose head alone is lost.
void Survey::find_end_of_damage(Extent &extent) {
    while (leads_on(extent.end)) {
        ++extent.heads;
        if (ends_at(extent.end) || intact_at(extent.end)) return;
    }
    const std::uint64_t damage = extent.end;
    Extent headless{};
    extent.end = find_behind(damage, headless);
    std::uint32_t length;
    if (headless.data == 0) {
        if (head_at(damage, length, true)) ++extent.heads;
    } else if (headless.begin == extent.begin) {
        extent = headless;
    } else {
        if (headless.begin != damage) ++extent.heads;
        extent.end = headless.begin;
        pending_ = headless;
    }
}

bool Survey::next(Extent &extent) {
    if (pending_.data != 0) {
        extent = std::exchange(pending_, Extent{});
    } else if (position_ == archive_.size) {
        return false;
    } else if (const std::uint64_t end = frame_end(position_); end != position_) {
        extent = {position_, end, ExtentKind::kFrame, 0, 0};
    } else if (intact_at(position_)) {
        std::uint32_t length = get_u32(window_.at(position_) + 1);
        const std::uint64_t data = position_ + kRecordHeadBytes;
        extent = {position_, data + length, ExtentKind::kIntact, data, 1};
    } else {
        extent = {position_, position_, ExtentKind::kLost, 0, 0};
        find_end_of_damage(extent);
    }
    position_ = extent.end;
    return true;
}

} // namespace velk
