// Random access: where the members' records lie, and the block decoded last.
#include "api/coder.h"
#include "api/growth.h"
#include "archive/member.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

using namespace velk;

using Blocks = Growing<velk_block>;

// Bytes of the archive that are kept while it is opened: two reads are enough for most.
struct Window {
    std::uint8_t *bytes;
    std::uint64_t offset;
    std::uint64_t size;
};

struct velk_reader {
    velk_read_at *read_at;
    void *user;
    CheckedOptions options;
    std::uint64_t archive_size;
    velk_report *told; // what the caller is told; may be null
    velk_report report;
    Window window;

    CoderContext context;
    std::uint32_t context_bytes;       // of memory
    std::uint8_t header[kFirstRecord]; // of the member that the context is for
    std::uint64_t header_offset;
    Blocks blocks;
    std::uint64_t kept; // the block in `context.buf_out`; kNone: none
};

namespace {

constexpr std::uint64_t kNone = UINT64_MAX;
constexpr std::uint64_t kTailBytes = 65536;
constexpr std::uint64_t kLargestWindow = 16 << 20; // an index of 1.4 million blocks

bool read_placed(void *user, std::uint64_t offset, void *bytes, std::uint32_t count,
                 std::uint32_t &got) {
    const velk_reader &reader = *static_cast<const velk_reader *>(user);
    const Window &window = reader.window;
    if (offset >= window.offset && offset - window.offset <= window.size &&
        count <= window.size - (offset - window.offset)) {
        std::memcpy(bytes, window.bytes + (offset - window.offset), got = count);
        return true;
    }
    if (offset == reader.header_offset && count == kFirstRecord && reader.context.capacity != 0) {
        std::memcpy(bytes, reader.header, got = count);
        return true;
    }
    // What lies behind the archive is not looked at.
    const std::uint64_t left = offset < reader.archive_size ? reader.archive_size - offset : 0;
    count = static_cast<std::uint32_t>(std::min<std::uint64_t>(count, left));
    for (got = 0; got < count;) {
        const std::int64_t part = reader.read_at(
            reader.user, offset + got, static_cast<std::uint8_t *>(bytes) + got, count - got);
        if (part < 0 || part > count - got) return false;
        if (part == 0) break;
        got += static_cast<std::uint32_t>(part);
    }
    return true;
}

// Entry `number` of the index whose entries begin at `entries`. False if it can't be read.
bool read_entry(velk_reader &reader, std::uint64_t entries, std::uint64_t number,
                IndexEntry &entry) {
    std::uint8_t bytes[kEntryBytes];
    std::uint32_t got;
    const std::uint64_t place = entries + entry_bytes(number);
    if (!read_placed(&reader, place, bytes, kEntryBytes, got) || got != kEntryBytes) return false;
    entry = get_entry(bytes);
    return true;
}

// What the memory limit leaves when these bytes have been taken.
std::uint64_t left_of_limit(const velk_reader &reader, std::uint64_t taken) {
    return reader.options.memory_limit - std::min(reader.options.memory_limit, taken);
}

// Appends to the array, beside which `taken` bytes are taken for another one.
bool add(velk_reader &reader, Blocks &blocks, const velk_block &block, std::uint64_t taken = 0) {
    return append(blocks, block,
                  left_of_limit(reader, reader.context_bytes + reader.window.size + taken));
}

// The status, with the place of the damage if it is one.
velk_status tell(velk_reader &reader, velk_status status, velk_part part, std::uint64_t block,
                 std::uint64_t offset) {
    if (status == VELK_ERROR_DAMAGED) {
        reader.report.damaged_part = part;
        reader.report.damaged_block = block;
        reader.report.damaged_offset = offset;
        if (reader.told != nullptr) *reader.told = reader.report;
    }
    return status;
}

// Blocks -------------------------------------------------------------------------

// Has the memory for the blocks of the member with this header.
velk_status open_member(velk_reader &reader, std::uint64_t offset) {
    std::uint8_t header[kFirstRecord];
    std::uint32_t got;
    if (!read_placed(&reader, offset, header, kFirstRecord, got)) return VELK_ERROR_READ;
    if (reader.context.capacity != 0 && got == kFirstRecord &&
        std::memcmp(header, reader.header, kFirstRecord) == 0) {
        reader.header_offset = offset;
        return VELK_OK;
    }
    kRestorer.free(reader.context);
    reader.context = {};
    reader.kept = kNone;
    CheckedOptions options = reader.options;
    options.memory_limit = left_of_limit(
        reader, reader.window.size + reader.blocks.room * sizeof *reader.blocks.entries);
    const velk_status status =
        open_restorer(reader.context, options, header, got, reader.context_bytes);
    if (status != VELK_OK) {
        reader.context = {};
        return tell(reader, status, VELK_PART_HEADER, 0, offset);
    }
    std::memcpy(reader.header, header, kFirstRecord);
    reader.header_offset = offset;
    return VELK_OK;
}

// Decodes a block into `context.buf_out`.
velk_status decode(velk_reader &reader, const velk_block &block, std::uint64_t number,
                   IndexEntry &entry) {
    reader.kept = kNone;
    const velk_status status = open_member(reader, block.header);
    if (status != VELK_OK) return status;
    CoderContext &context = reader.context;
    context.in_len = block.record_size - kRecordHeadBytes;
    if (context.in_len > context.capacity) // the header has changed
        return tell(reader, VELK_ERROR_DAMAGED, VELK_PART_HEADER, number, block.header);
    std::uint32_t got;
    if (!read_placed(&reader, block.offset + kRecordHeadBytes, context.buf_in, context.in_len, got))
        return VELK_ERROR_READ;
    if (got == context.in_len && kRestorer.code(context, entry)) return VELK_OK;
    return tell(reader, VELK_ERROR_DAMAGED, VELK_PART_BLOCK, number, block.offset);
}

// Has block `number` in `context.buf_out`.
velk_status load(velk_reader &reader, std::uint64_t number) {
    if (reader.kept == number) return VELK_OK;
    const velk_block &block = reader.blocks.entries[number];
    IndexEntry entry;
    const velk_status status = decode(reader, block, number, entry);
    if (status != VELK_OK) return status;
    if (block.indexed != 0 && (entry.block_len != block.size || entry.block_crc != block.crc))
        return tell(reader, VELK_ERROR_DAMAGED, VELK_PART_BLOCK, number, block.offset);
    if (entry.block_len != block.size) return VELK_ERROR_FORMAT;
    reader.kept = number;
    return VELK_OK;
}

// The first block that begins behind `offset` of the original.
std::uint64_t block_behind(const Blocks &blocks, std::uint64_t offset) {
    const velk_block *const begin = blocks.entries, *const end = begin + blocks.count;
    const auto is_before = [](std::uint64_t o, const velk_block &b) { return o < b.start; };
    return static_cast<std::uint64_t>(std::upper_bound(begin, end, offset, is_before) - begin);
}

// From the end -------------------------------------------------------------------

// Has the `size` bytes before `end` in the window, with more before them up to kTailBytes. Where
// it can't have so many, they are read piece by piece later.
velk_status fill_window(velk_reader &reader, std::uint64_t end, std::uint64_t size) {
    Window &window = reader.window;
    const std::uint64_t have = window.offset + window.size;
    if (end >= size && end - size >= window.offset && end <= have) return VELK_OK;
    size = std::min(std::max(size, kTailBytes), end);
    const std::uint64_t blocks_bytes = reader.blocks.room * sizeof *reader.blocks.entries;
    if (size > kLargestWindow || size > left_of_limit(reader, reader.context_bytes + blocks_bytes))
        return VELK_OK;
    // What is there already is kept.
    const std::uint64_t kept = have == end && window.size < size ? window.size : 0;
    auto *const bytes = static_cast<std::uint8_t *>(std::malloc(static_cast<std::size_t>(size)));
    if (bytes == nullptr) return VELK_OK;
    if (kept != 0) std::memcpy(bytes + (size - kept), window.bytes, static_cast<std::size_t>(kept));
    std::free(window.bytes);
    window = {};
    const auto wanted = static_cast<std::uint32_t>(size - kept);
    std::uint32_t got;
    if (!read_placed(&reader, end - size, bytes, wanted, got) || got != wanted) {
        std::free(bytes);
        return VELK_ERROR_READ;
    }
    window = {bytes, end - size, size};
    return VELK_OK;
}

// Adds the member's blocks, the last one first.
velk_status add_backwards(velk_reader &reader, const IndexedMember &member) {
    std::uint64_t record = member.entries - kRecordHeadBytes; // the one behind the last
    for (std::uint64_t i = member.sum.records; i-- > 0;) {
        IndexEntry entry;
        if (!read_entry(reader, member.entries, i, entry)) return VELK_ERROR_READ;
        record -= kRecordHeadBytes + entry.data_len;
        const velk_block block = {
            record,          0, member.offset, kRecordHeadBytes + entry.data_len, entry.block_len,
            entry.block_crc, 1};
        if (!add(reader, reader.blocks, block)) return VELK_ERROR_MEMORY;
    }
    return VELK_OK;
}

// Takes members off the end, as long as there are indexed ones: those from `begin` on.
velk_status find_from_end(velk_reader &reader, std::uint64_t &begin) {
    for (begin = reader.archive_size; begin != 0;) {
        velk_status status = fill_window(reader, begin, kFooterBytes);
        if (status != VELK_OK) return status;
        std::uint8_t last[kFooterBytes];
        std::uint32_t got;
        Footer footer;
        if (begin < kFooterBytes ||
            !read_placed(&reader, begin - kFooterBytes, last, kFooterBytes, got) ||
            got != kFooterBytes || !get_footer(last, footer))
            break;
        const std::uint64_t tail = entry_bytes(footer.records) + kRecordHeadBytes + kFooterBytes;
        if (tail > begin) break;
        status = fill_window(reader, begin, tail);
        if (status != VELK_OK) return status;
        IndexedMember member;
        const ArchiveStatus found = find_indexed({&reader, read_placed}, begin, member);
        if (found == ArchiveStatus::kReadFailed) return VELK_ERROR_READ;
        if (found != ArchiveStatus::kGood) break;
        status = add_backwards(reader, member);
        if (status != VELK_OK) return status;
        begin = member.offset;
        ++reader.report.members;
    }
    std::reverse(reader.blocks.entries, reader.blocks.entries + reader.blocks.count);
    return VELK_OK;
}

// From the front -----------------------------------------------------------------

// What follows in order.
struct Follower {
    velk_reader *reader;
    std::uint64_t offset;
};

bool read_following(void *user, void *bytes, std::uint32_t count, std::uint32_t &got) {
    Follower &follower = *static_cast<Follower *>(user);
    if (!read_placed(follower.reader, follower.offset, bytes, count, got)) return false;
    follower.offset += got;
    return true;
}

// Walks over the member at `offset`, adds its blocks, and moves on to what follows it. behind:
// what that is, kNextHeader for another member.
velk_status walk_member(velk_reader &reader, Blocks &blocks, std::uint64_t &offset,
                        ArchiveStatus &behind) {
    velk_status status = open_member(reader, offset);
    if (status != VELK_OK) return status;
    const std::uint32_t block_size = block_size_of(reader.context);
    const std::uint64_t first = blocks.count;
    const std::uint64_t found_bytes = reader.blocks.room * sizeof *reader.blocks.entries;
    RecordWalk walk;
    walk.next = offset + kFirstRecord;
    ArchiveStatus met;
    while ((met = next_record({&reader, read_placed}, reader.context.capacity, walk)) ==
           ArchiveStatus::kGood) {
        const velk_block block = {walk.record, 0, offset, kRecordHeadBytes + walk.length,
                                  block_size,  0, 0};
        if (!add(reader, blocks, block, found_bytes)) return VELK_ERROR_MEMORY;
    }
    const std::uint64_t records = blocks.count - first;
    const auto damaged = [&](ArchiveStatus what, velk_part part) {
        return tell(reader, status_of(what), part, blocks.count, walk.next);
    };
    if (met == ArchiveStatus::kReadFailed) return VELK_ERROR_READ;
    if (met == ArchiveStatus::kBlockCut)
        return tell(reader, VELK_ERROR_DAMAGED, VELK_PART_BLOCK, blocks.count, walk.record);

    Member member = start_member(reader.header, block_size);
    member.sum.records = static_cast<std::uint32_t>(std::min<std::uint64_t>(records, UINT32_MAX));
    if (is_marked(block_size) && met == ArchiveStatus::kEndMark) {
        // An index that is not right may still be garbage behind a plain block of N bytes.
        IndexedMember indexed;
        const std::uint64_t entries = walk.next + kRecordHeadBytes;
        const std::uint64_t end = entries + entry_bytes(records) + kFooterBytes;
        const ArchiveStatus found = find_indexed({&reader, read_placed}, end, indexed);
        if (found == ArchiveStatus::kReadFailed) return VELK_ERROR_READ;
        if (found == ArchiveStatus::kGood && indexed.offset == offset) {
            for (std::uint64_t i = 0; i < records; ++i) {
                IndexEntry entry;
                if (!read_entry(reader, entries, i, entry)) return VELK_ERROR_READ;
                velk_block &block = blocks.entries[first + i];
                if (block.record_size != kRecordHeadBytes + entry.data_len)
                    return damaged(ArchiveStatus::kIndexDamaged, VELK_PART_INDEX);
                block.size = entry.block_len;
                block.crc = entry.block_crc;
                block.indexed = 1;
            }
            std::uint8_t start[kFirstRecord];
            std::uint32_t got;
            offset = end;
            if (!read_placed(&reader, offset, start, kFirstRecord, got)) return VELK_ERROR_READ;
            behind = classify_behind(start, got);
            return tell(reader, status_of(behind), VELK_PART_HEADER, blocks.count, offset);
        }
    }
    IndexEntry entry{};
    if (records != 0 && is_marked(block_size)) {
        status = decode(reader, blocks.entries[first], first, entry);
        if (status != VELK_OK) return status;
        member.first_len = entry.block_len;
    }
    if (needs_index(member)) {
        const bool at_index = met == ArchiveStatus::kEndMark;
        return damaged(ArchiveStatus::kIndexDamaged, at_index ? VELK_PART_INDEX : VELK_PART_BLOCK);
    }
    if (records != 0) {
        velk_block &last = blocks.entries[blocks.count - 1];
        status = decode(reader, last, blocks.count - 1, entry);
        if (status != VELK_OK) return status;
        if (entry.block_len > block_size) return VELK_ERROR_FORMAT;
        member.last_len = last.size = entry.block_len;
    }
    RecordIntake intake{nullptr, reader.context.capacity};
    intake.taken = walk.got - 1;
    std::memcpy(intake.head, walk.bytes + 1, intake.taken);
    Follower follower = {&reader, walk.next + intake.taken};
    MemberEnd end;
    behind = end_member({&follower, read_following}, member, met, intake, end);
    if (!end.closed)
        return damaged(behind, met == ArchiveStatus::kEndMark ? VELK_PART_INDEX : VELK_PART_BLOCK);
    if (!end.whole) reader.report.whole = 0;
    offset = walk.next + end.bytes;
    return tell(reader, status_of(behind), VELK_PART_HEADER, blocks.count, offset);
}

// Walks over all that is before `stop`, at which members found from the end begin; or, where it
// does not come out there, over all of the archive.
velk_status walk_from_front(velk_reader &reader, std::uint64_t stop) {
    const std::uint64_t found = reader.report.members;
    Blocks blocks{};
    std::uint64_t offset = 0, members = 0;
    ArchiveStatus behind = ArchiveStatus::kNextHeader;
    velk_status status = VELK_OK;
    while (status == VELK_OK && behind == ArchiveStatus::kNextHeader && offset != stop) {
        if (offset > stop) stop = reader.archive_size;
        status = walk_member(reader, blocks, offset, behind);
        members += status == VELK_OK;
    }
    const bool joins = offset == stop && behind == ArchiveStatus::kNextHeader;
    for (std::uint64_t i = 0; status == VELK_OK && joins && i < reader.blocks.count; ++i) {
        const std::uint64_t taken = reader.blocks.room * sizeof *reader.blocks.entries;
        if (!add(reader, blocks, reader.blocks.entries[i], taken)) status = VELK_ERROR_MEMORY;
    }
    std::free(reader.blocks.entries);
    reader.blocks = blocks;
    reader.report.members = members + (joins ? found : 0);
    reader.report.archive_size = joins ? reader.archive_size : offset;
    reader.report.bytes_follow = behind == ArchiveStatus::kGarbage;
    return status;
}

// Opening ------------------------------------------------------------------------

// Looks for the end of the archive.
velk_status find_size(velk_reader &reader) {
    std::uint64_t there = 0, behind = 1; // bytes that are there, and where none is
    const auto is_there = [&reader](std::uint64_t offset, bool &answer) {
        std::uint8_t byte;
        std::uint32_t got;
        if (!read_placed(&reader, offset, &byte, 1, got)) return false;
        answer = got == 1;
        return true;
    };
    for (bool more = true; more;) {
        if (!is_there(behind - 1, more)) return VELK_ERROR_READ;
        if (more) {
            there = behind;
            if (behind > UINT64_MAX / 4) return VELK_ERROR_READ;
            behind *= 2;
        }
    }
    while (there + 1 < behind) {
        const std::uint64_t middle = there + (behind - there) / 2;
        bool more;
        if (!is_there(middle - 1, more)) return VELK_ERROR_READ;
        (more ? there : behind) = middle;
    }
    reader.archive_size = there;
    return VELK_OK;
}

// What all blocks come to.
void sum_up(velk_reader &reader) {
    velk_report &report = reader.report;
    report.blocks = reader.blocks.count;
    report.has_crc = 1;
    for (std::uint64_t i = 0; i < reader.blocks.count; ++i) {
        velk_block &block = reader.blocks.entries[i];
        block.start = report.size;
        report.size += block.size;
        report.crc = crc32_join(report.crc, block.crc, block.size);
        if (block.indexed == 0) report.has_crc = 0;
    }
    if (report.has_crc == 0) report.crc = 0;
}

velk_status open_archive(velk_reader &reader) {
    reader.kept = kNone;
    velk_status status = VELK_OK;
    std::uint64_t begin = 0;
    if (reader.archive_size == VELK_SIZE_UNKNOWN) status = find_size(reader);
    if (status == VELK_OK) status = open_member(reader, 0);
    if (status == VELK_OK) {
        reader.report.whole = 1;
        reader.report.archive_size = reader.archive_size;
        reader.report.block_size = told_block_size(block_size_of(reader.context));
        status = find_from_end(reader, begin);
    }
    if (status == VELK_OK && begin != 0) status = walk_from_front(reader, begin);
    std::free(reader.window.bytes);
    reader.window = {};
    sum_up(reader);
    if (status != VELK_OK) reader.report.whole = 0;
    if (reader.told != nullptr) *reader.told = reader.report;
    return status;
}

} // namespace

velk_status velk_reader_open(velk_reader **reader, const velk_options *options,
                             velk_read_at *read_at, void *user, std::uint64_t archive_size,
                             velk_report *report) {
    if (reader == nullptr) return VELK_ERROR_ARGUMENT;
    *reader = nullptr;
    CheckedOptions checked;
    if (read_at == nullptr || !check_options(options, checked)) return VELK_ERROR_ARGUMENT;
    velk_reader *const opened = static_cast<velk_reader *>(std::calloc(1, sizeof(velk_reader)));
    if (opened == nullptr) return VELK_ERROR_MEMORY;
    opened->read_at = read_at;
    opened->user = user;
    opened->options = checked;
    opened->archive_size = archive_size;
    opened->told = report;
    const velk_status status = open_archive(*opened);
    if (status != VELK_OK) {
        velk_reader_close(opened);
        return status;
    }
    *reader = opened;
    return VELK_OK;
}

void velk_reader_close(velk_reader *reader) {
    if (reader == nullptr) return;
    kRestorer.free(reader->context);
    std::free(reader->blocks.entries);
    std::free(reader);
}

velk_status velk_reader_block(const velk_reader *reader, std::uint64_t number, velk_block *block) {
    if (reader == nullptr || block == nullptr || number >= reader->blocks.count)
        return VELK_ERROR_ARGUMENT;
    *block = reader->blocks.entries[number];
    return VELK_OK;
}

velk_status velk_reader_read(velk_reader *reader, std::uint64_t offset, void *buffer,
                             std::size_t size, std::size_t *read_size) {
    if (read_size == nullptr) return VELK_ERROR_ARGUMENT;
    *read_size = 0;
    if (reader == nullptr || (buffer == nullptr && size != 0)) return VELK_ERROR_ARGUMENT;
    std::uint8_t *const bytes = static_cast<std::uint8_t *>(buffer);
    while (*read_size < size && offset < reader->report.size) {
        const std::uint64_t number = block_behind(reader->blocks, offset) - 1;
        const velk_status status = load(*reader, number);
        if (status != VELK_OK) return status;
        const auto at = static_cast<std::uint32_t>(offset - reader->blocks.entries[number].start);
        const std::size_t part =
            std::min<std::size_t>(size - *read_size, reader->context.out_len - at);
        std::memcpy(bytes + *read_size, reader->context.buf_out + at, part);
        *read_size += part;
        offset += part;
    }
    return VELK_OK;
}
