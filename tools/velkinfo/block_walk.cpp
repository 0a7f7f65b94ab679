#include "velkinfo/block_walk.h"

#include <utility>

namespace velk {

using enum ArchiveStatus;

namespace {

// Intact blocks where the entries put them.
std::uint64_t count_placed(ArchiveFile &archive, const IndexedPart &part) {
    std::uint64_t count = 0, record = first_record(part);
    for (const IndexEntry &entry : part.entries) {
        count += place_of(archive, part, entry, record) != 0;
        record += kRecordHeadBytes + entry.data_len;
    }
    return count;
}

// Whether blocks lie where the entries put them, and a survey would find no more: then the
// entries are right, even where the index CRC can't tell, as the header is lost.
bool can_be_used(ArchiveFile &archive, const IndexedPart &part) {
    if (part.whole) return true;
    std::uint64_t found = 0;
    const std::uint64_t size = std::exchange(archive.size, part.end);
    Survey survey(archive, false, part.begin);
    for (Extent extent; survey.next(extent);)
        found += extent.data != 0;
    archive.size = size;
    const std::uint64_t placed = count_placed(archive, part);
    return placed != 0 && placed >= found;
}

// What a header is said to be, whatever comes of it.
ArchiveStatus look_at_header(ArchiveFile &archive, std::uint64_t offset, Member &member) {
    std::uint8_t start[kFirstRecord];
    Settings settings{};
    std::uint32_t block_size, got;
    const PlacedSource source = places_of(archive);
    member = {};
    if (!source.read_at(source.user, offset, start, kFirstRecord, got)) return kReadFailed;
    const ArchiveStatus status = parse_start(start, got, settings, block_size);
    if (status == kGood) member = start_member(start, block_size);
    return status;
}

// What is wrong with a record that is not intact, by its head alone: the time to read what that
// tells of would have no bound.
ArchiveStatus judge_head(ArchiveFile &archive, std::uint64_t offset, std::uint32_t &length) {
    std::uint8_t head[kRecordHeadBytes];
    std::uint32_t got;
    const PlacedSource source = places_of(archive);
    if (!source.read_at(source.user, offset, head, kRecordHeadBytes, got)) return kReadFailed;
    if (got != kRecordHeadBytes) return kHeadCut;
    const ArchiveStatus status = parse_record_head(head, kMaxRecordData, length);
    if (status != kGood) return status;
    return length > archive.size - offset - kRecordHeadBytes ? kBlockCut : kBlockDamaged;
}

bool is_of_block(ArchiveStatus status) {
    return status == kReadFailed || status == kHeadCut || status == kHeadDamaged ||
           status == kLengthInvalid || status >= kBlockCut;
}

// Puts the place before what is wrong, and behind it what is lost.
void complete(Finding &found, bool placed, std::uint64_t start) {
    std::string &text = found.damage;
    const std::string at = "at offset " + std::to_string(found.begin) + ": ";
    if (found.number == 0) {
        if (found.begin != 0) text.insert(0, at);
        return;
    }
    text.insert(0, "block " + std::to_string(found.number) + ' ' + at);
    if (found.bytes != nullptr) {
        text += ", but it can be restored";
        return;
    }
    const bool up_to = found.size == 0 && found.head_left && found.most != 0;
    const bool known = found.size != 0 || up_to;
    const std::uint64_t lost = up_to ? found.most : known ? found.size : found.end - found.begin;
    text += (up_to ? ", up to " : ", ") + std::to_string(lost) + (lost == 1 ? " byte" : " bytes");
    if (!known) text += " of the archive";
    if (known && placed) text += " from " + std::to_string(start) + " on";
    text += lost == 1 ? " is lost" : " are lost";
}

} // namespace

bool BlockWalk::open(const char *name, Step step, std::string &why) {
    return open_archive(reader.archive, name, why) && start(step, why);
}

bool BlockWalk::start(Step step, std::string &why) {
    if (step != nullptr) {
        const ArchiveStatus status = start_blocks(reader);
        step_ = step;
        if (status == kGood) return true;
        why = text_of(status);
        if (status != kHeaderDamaged) return false;
        set_flags(reader.context.settings, UINT8_MAX);
    }
    met_ = look_at_header(reader.archive, 0, reader.member);
    why = text_of(kNoMemory);
    return start_left(0, met_ == kGood);
}

// Goes by what is left from here on: from 0, or behind a header.
bool BlockWalk::start_left(std::uint64_t from, bool header_holds) {
    ArchiveFile &archive = reader.archive;
    step_ = nullptr;
    from_ = from;
    size_ = archive.size;
    closed_ = from != 0 && met_ >= kHeaderCut && met_ <= kNoMemory;
    member_ = closed_ ? Member{} : reader.member;
    numbers_ = reader.number;
    if (reader.members++ == 0) reader.indexed = needs_index(member_);
    if (!restorer_.prepare()) return false;
    find_parts();
    const std::uint64_t front = parts_.empty() ? size_ : parts_.back().begin;
    if (front == 0) reader.indexed = true;
    if (from >= front) return true;
    archive.size = front;
    survey_.emplace(archive, header_holds, from == 0 ? 0 : from - kFirstRecord);
    return true;
}

// Takes the members off the archive's end whose indexes can be used.
void BlockWalk::find_parts() {
    std::uint64_t begin = size_;
    for (IndexedPart part; begin > from_ && find_part(reader.archive, begin, part) &&
                           can_be_used(reader.archive, part);) {
        begin = part.begin;
        parts_.push_back(std::move(part));
    }
}

bool BlockWalk::next(Finding &found) {
    found = {};
    if (step_ != nullptr) {
        if (!next_whole(found)) return false;
    } else if (from_ == 0 && met_ != kGood) {
        found.damage = text_of(std::exchange(met_, kGood));
    } else {
        // What the reader has told of is not told again.
        do {
            found = {};
            if (!next_left(found)) return false;
        } while (found.number == 0 && found.begin == from_ && met_ != kGood && !is_of_block(met_));
    }
    if (!found.damage.empty()) complete(found, placed_, start_);
    placed_ = placed_ && (found.number == 0 || found.size != 0);
    start_ += found.size;
    return true;
}

// By the reader; at the first damage goes over to what is left.
bool BlockWalk::next_whole(Finding &found) {
    std::string why;
    const Step step = step_;
    met_ = step(reader, why);
    if (met_ == kGood) {
        found.begin = reader.offset;
        found.end = reader.offset + reader.coded_len;
        found.number = reader.number;
        if (step == skip_block) return true;
        found.bytes = reader.context.buf_out;
        found.size = reader.context.out_len;
        found.trace = reader.trace;
    } else if (met_ != kEnd) {
        if (!start_left(reader.offset, true)) why += ", " + text_of(kNoMemory);
        // The reader knows best what is wrong, but not whether an end mark is in a block's place.
        if (!is_of_block(met_) || !next_left(found) || found.number == 0) {
            found = {};
            found.begin = found.end = from_;
        }
        found.damage = why;
    }
    return met_ != kEnd;
}

bool BlockWalk::next_left(Finding &found) {
    if (survey_) {
        if (next_surveyed(found)) return true;
        reader.archive.size = size_;
        survey_.reset();
    }
    for (; !parts_.empty(); parts_.pop_back(), entry_ = 0) {
        if (next_entry(parts_.back(), found)) return true;
    }
    return false;
}

// Restores the block whose data go from there to the finding's end.
bool BlockWalk::restore(std::uint64_t data, Finding &found) {
    std::uint32_t length;
    found.bytes = restorer_.restore(reader.archive, data, found.end, length, found.trace);
    if (found.bytes == nullptr) {
        found.damage = text_of(kStageFailed, 0, found.trace);
        return false;
    }
    found.size = length;
    return true;
}

bool BlockWalk::next_surveyed(Finding &found) {
    while (rest_.begin != rest_.end || survey_->next(rest_)) {
        found.begin = rest_.begin;
        found.end = rest_.end;
        const Extent extent = rest_;
        rest_.begin = rest_.end;
        if (extent.kind == ExtentKind::kFrame) {
            if (take_frame(found)) return true;
            continue;
        }
        found.number = ++numbers_;
        found.head_left = extent.heads != 0;
        found.last = survey_->ends_at(extent.end);
        found.most = member_.block_size;
        if (extent.data == 0) {
            rest_.begin = extent.begin;
            take_lost(rest_, found);
        } else if (restore(extent.data, found)) {
            if (++member_.sum.records == 1)
                member_.first_len = static_cast<std::uint32_t>(found.size);
            if (extent.kind == ExtentKind::kHeadLost) found.damage = text_of(kHeadDamaged);
        }
        if (found.bytes == nullptr && found.head_left && !found.last && !needs_index(member_))
            found.size = found.most;
        return true;
    }
    found.begin = found.end = reader.archive.size;
    const bool cut = needs_index(member_);
    member_ = {};
    if (cut) found.damage = text_of(kMemberCut);
    return cut;
}

// A header, or an end mark and an index, which is reported if it does not fit what is before it.
bool BlockWalk::take_frame(Finding &found) {
    const bool needed = needs_index(member_);
    closed_ = found.end - found.begin != kFirstRecord;
    IndexedMember indexed;
    const bool fits = !needed || (closed_ && find_indexed(places_of(reader.archive), found.end,
                                                          indexed) == kGood);
    if (closed_) {
        member_ = {};
    } else {
        ++reader.members;
        static_cast<void>(look_at_header(reader.archive, found.begin, member_));
    }
    found.end = found.begin;
    if (!fits) found.damage = text_of(closed_ ? kIndexDamaged : kMemberCut);
    return !fits;
}

// Takes the first block off a lost stretch, as its head tells it, or all of it.
void BlockWalk::take_lost(Extent &extent, Finding &found) {
    std::uint32_t length = 0;
    Member next;
    ArchiveStatus status = judge_head(reader.archive, extent.begin, length);
    const bool no_head = extent.heads == 0;
    if (no_head && status == kEndMark) {
        status = kIndexDamaged;
        found.number = 0;
        closed_ = true;
        member_ = {};
    } else if (no_head && look_at_header(reader.archive, extent.begin, next) == kHeaderDamaged) {
        status = kHeaderDamaged;
        ++reader.members;
        closed_ = false;
        member_ = {};
        found.most = 0;
        if (extent.end - extent.begin <= kFirstRecord) found.number = 0;
    } else if (no_head && closed_ && extent.end == reader.archive.size) {
        status = kGarbage;
        found.number = 0;
    }
    if (found.number == 0) --numbers_;
    if (extent.heads > 1 && length < extent.end - extent.begin - kRecordHeadBytes) {
        found.end = extent.begin + kRecordHeadBytes + length;
        found.last = false;
        --extent.heads;
    }
    extent.begin = found.end;
    found.damage = text_of(status, length);
}

bool BlockWalk::next_entry(IndexedPart &part, Finding &found) {
    ArchiveFile &archive = reader.archive;
    if (entry_ == 0) {
        record_ = first_record(part);
        behind_ = part.begin + kFirstRecord;
        reader.members += part.begin > from_;
    }
    const bool begun = from_ > part.begin && part.begin == reader.begin;
    const std::uint64_t done = begun ? reader.member.sum.records : 0;
    while (entry_ != part.entries.size()) {
        const IndexEntry &entry = part.entries[entry_];
        const std::uint64_t data = place_of(archive, part, entry, record_);
        record_ += kRecordHeadBytes + entry.data_len;
        found.begin = data != 0 ? data - kRecordHeadBytes : behind_;
        found.end = behind_ = found.begin + kRecordHeadBytes + entry.data_len;
        if (entry_++ < done || found.end <= from_) continue;
        found.number = ++numbers_;
        found.head_left = found.by_index = true;
        const bool restored = data != 0 && restore(data, found);
        const bool fits = found.size == entry.block_len;
        found.size = entry.block_len;
        std::uint32_t length;
        if (restored && fits) {
            std::uint8_t head[kRecordHeadBytes];
            const bool head_holds = read_at(archive, found.begin, head, sizeof head) &&
                                    get_record_head(head, length) && length == entry.data_len;
            if (!head_holds) found.damage = text_of(kHeadDamaged);
            if (crc32_append(0, found.bytes, entry.block_len) != entry.block_crc)
                found.damage = "the index has another CRC for it";
        } else if (data == 0 || restored) {
            found.bytes = nullptr;
            ArchiveStatus status = judge_head(archive, found.begin, length);
            const bool other = status == kBlockDamaged && length != entry.data_len;
            if (other || restored || status == kEndMark) status = kIndexDamaged;
            found.damage = text_of(status, length);
        }
        return true;
    }
    // The reader has told of what ends a member, and of its header.
    const bool told = part.whole || (part.begin < from_ && !is_of_block(met_)) ||
                      (part.begin == 0 && from_ == 0 && member_.block_size == 0);
    part.whole = true;
    if (told) return false;
    found.begin = found.end = part.begin;
    found.damage = "header, end mark or index is damaged; blocks are found by the index";
    return true;
}

} // namespace velk
