#include "archive/member.h"

#include <algorithm>
#include <cstring>

namespace velk {

using enum ArchiveStatus;

namespace {

constexpr std::uint32_t kChunkBytes = 4096;

// A plain member is over, whatever follows, behind a block that only its last one can be.
bool has_ended(const Member &member) {
    return member.sum.records != 0 &&
           (member.last_len < member.block_size || member.block_size % 1024 != 0);
}

// The entries and the footer that are to come are looked at as one: its last bytes, and a CRC.
ArchiveStatus begin_index(MemberEnd &end, MemberEnd::Part part, const Member &member) {
    end.part = part;
    end.left = entry_bytes(member.sum.records) + kFooterBytes;
    end.crc = member.sum.header_crc;
    return kMore;
}

bool index_fits(const MemberEnd &end, const Member &member) {
    std::uint8_t expected[kFooterBytes];
    put_footer(expected, member.sum);
    return std::memcmp(end.index, expected, kFooterBytes) == 0 &&
           end.crc == crc32_append(member.sum.crc, expected, kFooterBytes);
}

// A plain member that ends in the footer of an index for its blocks: only its header is wrong.
bool has_lost_index(const MemberEnd &end, const Member &member) {
    Footer footer;
    return end.left == 0 && get_footer(end.index, footer) && footer.records == member.sum.records;
}

// Once `start` holds what follows, or all that does.
ArchiveStatus judge_behind(MemberEnd &end, const Member &member) {
    const ArchiveStatus behind = classify_behind(end.start, end.got);
    if (behind != kGarbage) return behind;
    // No header after all, where a plain member may go on: its next head is damaged.
    const bool has_mark = end.bytes != 0;
    if (!has_mark && !has_ended(member)) {
        end.closed = false;
        return kHeadDamaged;
    }
    if (!has_mark || needs_index(member) || end.got < kFirstRecord) return behind;
    static_assert(kFirstRecord <= kFooterBytes);
    std::memcpy(end.index + kFooterBytes - kFirstRecord, end.start, kFirstRecord);
    const ArchiveStatus status = begin_index(end, MemberEnd::Part::kLostIndex, member);
    end.left -= kFirstRecord;
    return status;
}

} // namespace

Member start_member(const std::uint8_t *start, std::uint32_t block_size) {
    return {block_size, 0, 0, start_index(start)};
}

bool needs_index(const Member &member) {
    return is_marked(member.block_size) &&
           (member.sum.records == 0 || member.first_len != member.block_size);
}

bool add_block(Member &member, const IndexEntry &entry) {
    if (!add_entry(member.sum, entry)) return false;
    if (member.sum.records == 1) member.first_len = entry.block_len;
    member.last_len = entry.block_len;
    return !needs_index(member) ||
           (entry.block_len != 0 && entry.block_len < member.block_size &&
            entry.data_len >= kMinRecordData && entry.data_len <= member.block_size + kBlockSlack);
}

ArchiveStatus begin_end(MemberEnd &end, const Member &member, ArchiveStatus met,
                        const RecordIntake &intake) {
    const bool indexed = needs_index(member);
    if (met == kEndMark) {
        end.bytes = kRecordHeadBytes;
        if (indexed) return begin_index(end, MemberEnd::Part::kIndex, member);
    } else if (indexed) {
        return met == kEnd || met == kNextHeader ? kMemberCut : met;
    } else if (!has_ended(member)) {
        if (met != kEnd && met != kNextHeader) return met;
        if (member.block_size % 1024 != 0) return kMemberCut;
    }
    end.closed = true;
    end.whole = has_ended(member);
    if (met == kEnd) return kEnd;
    if (met != kEndMark) std::memcpy(end.start, intake.head, end.got = intake.taken);
    return kMore;
}

std::uint8_t *next_place(MemberEnd &end, std::uint32_t &wanted) {
    if (end.part == MemberEnd::Part::kBehind) {
        wanted = kFirstRecord - end.got;
        return end.start + end.got;
    }
    wanted = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(end.left, sizeof end.index - kFooterBytes));
    return end.index + kFooterBytes;
}

ArchiveStatus take_in(MemberEnd &end, const Member &member, std::uint32_t count) {
    if (end.part == MemberEnd::Part::kBehind) {
        end.got += count;
        return count != 0 && end.got != kFirstRecord ? kMore : judge_behind(end, member);
    }
    end.crc = crc32_append(end.crc, end.index + kFooterBytes, count);
    std::memmove(end.index, end.index + count, kFooterBytes);
    end.left -= count;
    if (count != 0 && end.left != 0) return kMore;
    if (end.part == MemberEnd::Part::kLostIndex) {
        end.closed = !has_lost_index(end, member);
        return end.closed ? kGarbage : kIndexDamaged;
    }
    if (end.left != 0) return kMemberCut;
    if (!index_fits(end, member)) return kIndexDamaged;
    end.bytes += entry_bytes(member.sum.records) + kFooterBytes;
    end.closed = end.whole = true;
    end.part = MemberEnd::Part::kBehind;
    return kMore;
}

ArchiveStatus end_member(const ByteSource &source, const Member &member, ArchiveStatus met,
                         const RecordIntake &intake, MemberEnd &end) {
    ArchiveStatus status = begin_end(end, member, met, intake);
    while (status == kMore) {
        std::uint32_t wanted, got;
        std::uint8_t *const place = next_place(end, wanted);
        if (!source.read(source.user, place, wanted, got)) return kReadFailed;
        status = take_in(end, member, got);
    }
    return status;
}

ArchiveStatus classify_behind(const std::uint8_t *start, std::uint32_t got) {
    if (got == 0) return kEnd;
    const std::uint32_t compared = std::min(got, kMagicBytes);
    std::uint32_t same = 0;
    for (std::uint32_t i = 0; i < compared; ++i)
        same += start[i] == static_cast<std::uint8_t>(kMagic[i]);
    if (got < kFirstRecord) return same == compared ? kHeaderCut : kGarbage;
    if (same < 8) return kGarbage;
    Settings settings{};
    std::uint32_t block_size;
    const ArchiveStatus status = parse_start(start, got, settings, block_size);
    return status == kGood ? kNextHeader : kHeaderDamaged;
}

ArchiveStatus find_indexed(const PlacedSource &source, std::uint64_t end, IndexedMember &member) {
    std::uint32_t got;
    const auto read = [&](std::uint64_t offset, std::uint8_t *bytes, std::uint32_t count) {
        if (!source.read_at(source.user, offset, bytes, count, got)) return kReadFailed;
        return got == count ? kGood : kIndexDamaged;
    };
    std::uint8_t last[kFooterBytes], start[kFirstRecord], bytes[kChunkBytes];
    constexpr std::uint64_t kLeast = kFirstRecord + kRecordHeadBytes + kFooterBytes;
    if (end < kLeast) return kIndexDamaged;
    ArchiveStatus status = read(end - kFooterBytes, last, kFooterBytes);
    Footer footer;
    if (status != kGood || !get_footer(last, footer))
        return status == kGood ? kIndexDamaged : status;
    const std::uint64_t index_bytes = entry_bytes(footer.records);
    if (index_bytes > end - kLeast) return kIndexDamaged;

    // The entries' sums first, which tell where the header is, whose bounds they must keep.
    member.entries = end - kFooterBytes - index_bytes;
    IndexSum sum{kLeast, 0, 0, 0, 0};
    IndexEntry least = {UINT32_MAX, UINT32_MAX, 0}, most = {0, 0, 0};
    for (std::uint64_t done = 0; done != index_bytes;) {
        const auto count = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(index_bytes - done, kChunkBytes / kEntryBytes * kEntryBytes));
        status = read(member.entries + done, bytes, count);
        if (status != kGood) return status;
        done += count;
        for (std::uint32_t at = 0; at < count; at += kEntryBytes) {
            const IndexEntry entry = get_entry(bytes + at);
            if (!add_entry(sum, entry)) return kIndexDamaged;
            least = {std::min(least.data_len, entry.data_len),
                     std::min(least.block_len, entry.block_len), 0};
            most = {std::max(most.data_len, entry.data_len),
                    std::max(most.block_len, entry.block_len), 0};
        }
    }
    if (sum.member_bytes > end) return kIndexDamaged;
    member.offset = end - sum.member_bytes;
    status = read(member.offset, start, kFirstRecord);
    if (status != kGood) return status;
    Settings settings{};
    if (parse_start(start, kFirstRecord, settings, member.block_size) != kGood ||
        !is_marked(member.block_size)) {
        return kIndexDamaged;
    }
    if (sum.records != 0 &&
        (least.data_len < kMinRecordData || least.block_len == 0 ||
         most.data_len > member.block_size + kBlockSlack || most.block_len >= member.block_size)) {
        return kIndexDamaged;
    }
    sum.header_crc = crc32_append(0, start, kFirstRecord);
    sum.crc = crc32_join(sum.header_crc, sum.crc, index_bytes);
    put_footer(bytes, sum);
    if (std::memcmp(bytes, last, kFooterBytes) != 0) return kIndexDamaged;
    member.sum = sum;

    std::uint32_t mark;
    status = read(member.entries - kRecordHeadBytes, bytes, kRecordHeadBytes);
    if (status != kGood) return status;
    return get_record_head(bytes, mark) && mark == 0 ? kGood : kIndexDamaged;
}

} // namespace velk
