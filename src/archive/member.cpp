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

// Reads an index, which must be that of the blocks restored.
ArchiveStatus read_index(const ByteSource &source, const Member &member) {
    std::uint8_t bytes[kChunkBytes], expected[kFooterBytes];
    std::uint32_t crc = member.sum.header_crc, got;
    for (std::uint64_t left = entry_bytes(member.sum.records); left != 0;) {
        const auto count = static_cast<std::uint32_t>(std::min<std::uint64_t>(left, kChunkBytes));
        if (!source.read(source.user, bytes, count, got)) return kReadFailed;
        if (got != count) return kMemberCut;
        crc = crc32_append(crc, bytes, count);
        left -= count;
    }
    if (!source.read(source.user, bytes, kFooterBytes, got)) return kReadFailed;
    if (got != kFooterBytes) return kMemberCut;
    put_footer(expected, member.sum);
    const bool fits = crc == member.sum.crc && std::memcmp(bytes, expected, kFooterBytes) == 0;
    return fits ? kGood : kIndexDamaged;
}

// Whether what follows the end mark of a plain member, `got` bytes of it in `start`, ends in
// the footer of an index for its blocks: then only its header is wrong. found: false if the
// source failed.
bool has_index(const ByteSource &source, const Member &member, const std::uint8_t *start,
               std::uint32_t got, bool &found) {
    std::uint8_t last[kFooterBytes] = {}, bytes[kChunkBytes];
    const auto shift_in = [&last](const std::uint8_t *more, std::uint32_t count) {
        const std::uint32_t kept = count < kFooterBytes ? kFooterBytes - count : 0;
        std::memmove(last, last + kFooterBytes - kept, kept);
        std::memcpy(last + kept, more + count - (kFooterBytes - kept), kFooterBytes - kept);
    };
    shift_in(start, got);
    static_assert(kFirstRecord <= kFooterBytes); // `got` is no more
    std::uint64_t left = entry_bytes(member.sum.records) + kFooterBytes - got;
    for (found = true; left != 0 && got != 0; left -= got) {
        const auto count = static_cast<std::uint32_t>(std::min<std::uint64_t>(left, kChunkBytes));
        if (!source.read(source.user, bytes, count, got)) return found = false;
        shift_in(bytes, got);
    }
    Footer footer;
    return left == 0 && get_footer(last, footer) && footer.records == member.sum.records;
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

ArchiveStatus end_member(const ByteSource &source, const Member &member, ArchiveStatus met,
                         const RecordIntake &intake, MemberEnd &end) {
    const bool indexed = needs_index(member);
    std::uint32_t got = 0;
    if (met == kEndMark) {
        end.bytes = kRecordHeadBytes;
        if (indexed) {
            const ArchiveStatus index = read_index(source, member);
            if (index != kGood) return index;
            end.bytes += entry_bytes(member.sum.records) + kFooterBytes;
        }
    } else if (indexed) {
        return met == kEnd || met == kNextHeader ? kMemberCut : met;
    } else if (!has_ended(member)) {
        if (met != kEnd && met != kNextHeader) return met;
        if (member.block_size % 1024 != 0) return kMemberCut;
    }
    if (met != kEndMark) {
        got = intake.taken;
        std::memcpy(end.start, intake.head, got);
    }
    end.closed = true;
    end.whole = indexed || has_ended(member);
    if (met == kEnd) return kEnd;
    std::uint32_t more;
    if (!source.read(source.user, end.start + got, kFirstRecord - got, more)) return kReadFailed;
    got += more;
    const ArchiveStatus behind = classify_behind(end.start, got);
    // No header after all, where a plain member may go on: its next head is damaged.
    if (met == kNextHeader && behind == kGarbage && !has_ended(member)) {
        end.closed = false;
        return kHeadDamaged;
    }
    if (behind != kGarbage || met != kEndMark || indexed) return behind;
    bool found;
    if (!has_index(source, member, end.start, got, found)) return found ? kGarbage : kReadFailed;
    end.closed = false;
    return kIndexDamaged;
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
