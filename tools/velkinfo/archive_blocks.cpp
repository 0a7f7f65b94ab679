#include "velkinfo/archive_blocks.h"

#include "archive/format.h"
#include "base/block_size.h"
#include "pipeline/crc32.h"
#include "platform/files.h"
#include "platform/streams.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace velk {
namespace {

bool read_placed(void *user, std::uint64_t offset, void *bytes, std::uint32_t count,
                 std::uint32_t &got) {
    ArchiveFile &archive = *static_cast<ArchiveFile *>(user);
    const std::uint64_t left = offset < archive.size ? archive.size - offset : 0;
    got = static_cast<std::uint32_t>(std::min<std::uint64_t>(count, left));
    return got == 0 || read_at(archive, offset, bytes, got);
}

bool read_next(void *user, void *bytes, std::uint32_t count, std::uint32_t &got) {
    ArchiveFile &archive = *static_cast<ArchiveFile *>(user);
    const bool read = read_placed(user, archive.position, bytes, count, got);
    archive.position += got;
    return read;
}

// By ArchiveStatus. Where a text is not all there is to say, text_of says the rest.
constexpr const char *kTexts[] = {
    "",
    "",
    "",
    "",
    "can't be read",
    "does not begin as an archive",
    "shorter than an archive's header",
    "header: the check byte does not match",
    "header: no such block size or stages",
    "not enough memory",
    "the record head is cut short",
    "the check byte of the record head does not match",
    "no block has a record of ",
    "another archive begins",
    "the archive is cut short before the end of its index",
    "the index does not fit the records",
    "what follows is no part of the archive",
    "the block is cut short",
    "the block CRC does not match",
    "the CRC matches, but the ",
};
static_assert(std::size(kTexts) == static_cast<std::size_t>(ArchiveStatus::kStageFailed) + 1);

// Puts all bytes that are to come into a file in the archive's place.
bool copy(ArchiveFile &archive, std::string &why) {
    decltype(archive.file) file{open_temporary(), std::fclose};
    std::vector<char> bytes(65536);
    std::size_t got;
    bool written = file != nullptr;
    for (archive.size = 0;
         written && (got = std::fread(bytes.data(), 1, bytes.size(), archive.file.get())) != 0;
         archive.size += got)
        written = std::fwrite(bytes.data(), 1, got, file.get()) == got;
    written = written && std::fflush(file.get()) == 0;
    const bool read = std::ferror(archive.file.get()) == 0;
    if (!read) why = text_of(ArchiveStatus::kReadFailed);
    if (!written) why = "can't be copied to a temporary file";
    archive.file = std::move(file);
    return read && written;
}

// Sets the reader up for the member with this header, behind which the archive's position is.
ArchiveStatus open_member(BlockReader &reader, const std::uint8_t *start, std::uint32_t got) {
    RestoringContext &context = reader.context;
    if (context.capacity == 0 || std::memcmp(start, reader.start, kFirstRecord) != 0) {
        Settings settings{};
        std::uint32_t block_size;
        const ArchiveStatus status = parse_start(start, got, settings, block_size);
        if (status != ArchiveStatus::kGood) return status;
        free_decompress(context);
        static_cast<CoderContext &>(context) = {};
        context.settings = settings;
        if (alloc_decompress(context, block_size) == 0) return ArchiveStatus::kNoMemory;
        std::memcpy(reader.start, start, kFirstRecord);
    }
    reader.member = start_member(start, block_size_of(context));
    reader.begin = reader.archive.position - kFirstRecord;
    reader.walk = {};
    reader.walk.next = reader.archive.position;
    return ArchiveStatus::kGood;
}

void count_block(BlockReader &reader, std::uint32_t length) {
    if (reader.members == 0) reader.indexed = needs_index(reader.member);
    ++reader.number;
    reader.coded_len = kRecordHeadBytes + length;
}

// Ends the member, as no record follows. Returns kNextHeader when the reader is at the next one,
// kEnd, or what is wrong.
ArchiveStatus close_member(BlockReader &reader, ArchiveStatus met) {
    const Member &member = reader.member;
    const bool indexed = needs_index(member);
    if (reader.members == 0) reader.indexed = indexed;
    RecordIntake intake{nullptr, reader.context.capacity};
    const ByteSource source = source_of(reader.archive);
    reader.archive.position = reader.offset;
    MemberEnd end;
    ArchiveStatus status = ArchiveStatus::kReadFailed;
    if (source.read(source.user, intake.head, kRecordHeadBytes, intake.taken))
        status = end_member(source, member, met, intake, end);
    if (!end.closed) return status;
    ++reader.members;
    reader.whole = reader.whole && end.whole;
    reader.offset += end.bytes;
    reader.most_size += member.sum.size;
    reader.least_size += indexed || member.sum.records == 0 ? member.sum.size
                                                            : member.sum.size - member.last_len + 1;
    if (status == ArchiveStatus::kNextHeader) {
        reader.archive.position = reader.offset + kFirstRecord;
        status = open_member(reader, end.start, kFirstRecord);
        if (status == ArchiveStatus::kGood) return ArchiveStatus::kNextHeader;
    }
    reader.bytes_follow = status == ArchiveStatus::kGarbage;
    return reader.bytes_follow ? ArchiveStatus::kEnd : status;
}

bool ends_member(ArchiveStatus status) {
    using enum ArchiveStatus;
    return status == kEnd || status == kEndMark || status == kNextHeader || status == kHeadCut ||
           status == kHeadDamaged || status == kLengthInvalid;
}

// Whether the block restores whose record is at `offset`.
bool restore_at(BlockReader &reader, std::uint64_t offset) {
    std::uint32_t length;
    reader.archive.position = offset;
    return read_block(source_of(reader.archive), reader.context, length, reader.trace) ==
           ArchiveStatus::kGood;
}

// From head to head: the next record. A block is taken to be as long as it can be.
ArchiveStatus skip_record(BlockReader &reader) {
    Member &member = reader.member;
    const std::uint32_t n = member.block_size;
    reader.offset = reader.walk.next;
    const ArchiveStatus status =
        next_record(places_of(reader.archive), reader.context.capacity, reader.walk);
    if (status == ArchiveStatus::kGood) {
        IndexEntry entry = {reader.walk.length, is_marked(n) ? n - 1 : n, 0};
        if (is_marked(n) && member.sum.records == 0 && restore_at(reader, reader.offset))
            entry.block_len = reader.context.out_len;
        return add_block(member, entry) ? status : ArchiveStatus::kLengthInvalid;
    }
    IndexedMember indexed;
    if (status == ArchiveStatus::kEndMark && needs_index(member)) {
        const std::uint64_t end =
            reader.offset + kRecordHeadBytes + entry_bytes(member.sum.records) + kFooterBytes;
        if (find_indexed(places_of(reader.archive), end, indexed) == ArchiveStatus::kGood &&
            indexed.offset == reader.begin)
            member.sum = indexed.sum;
    } else if (status != ArchiveStatus::kEnd && ends_member(status) && member.sum.records != 0 &&
               restore_at(reader, reader.walk.record)) {
        member.sum.size -= member.last_len;
        member.sum.size += reader.context.out_len;
        member.last_len = reader.context.out_len;
    }
    return status;
}

// By the indexes: the next record.
ArchiveStatus skip_entry(BlockReader &reader, std::uint32_t &length) {
    for (; !reader.found.empty(); reader.found.pop_back(), reader.taken = 0) {
        const IndexedMember &member = reader.found.back();
        if (reader.taken == 0) {
            ++reader.members;
            reader.walk.next = member.offset + kFirstRecord;
        }
        if (reader.taken == member.sum.records) continue;
        std::uint8_t bytes[kEntryBytes];
        const std::uint64_t place = member.entries + entry_bytes(reader.taken++);
        if (!read_at(reader.archive, place, bytes, kEntryBytes)) return ArchiveStatus::kReadFailed;
        length = get_entry(bytes).data_len;
        reader.offset = reader.walk.next;
        reader.walk.next += kRecordHeadBytes + length;
        return ArchiveStatus::kGood;
    }
    return ArchiveStatus::kEnd;
}

} // namespace

bool open_archive(ArchiveFile &archive, const char *name, std::string &why) {
    const bool standard = std::strcmp(name, "-") == 0;
    archive.name = standard ? "standard input" : name;
    if (!(standard ? look_at(kStandardInput, archive.facts) : look_at(name, true, archive.facts))) {
        why = "not found";
        return false;
    }
    const Kind kind = archive.facts.kind;
    const bool in_place = kind == Kind::kFile && (!standard || position_of(kStandardInput) == 0);
    if (in_place || kind == Kind::kPipe || standard)
        archive.file.reset(standard ? stdin : std::fopen(name, "rb"));
    archive.size = archive.facts.size;
    if (archive.file == nullptr) why = "can't be read, or is neither a file nor a pipe";
    return archive.file != nullptr && (in_place || copy(archive, why));
}

ByteSource source_of(ArchiveFile &archive) {
    return {&archive, read_next};
}

PlacedSource places_of(ArchiveFile &archive) {
    return {&archive, read_placed};
}

std::string text_of(ArchiveStatus status, std::uint32_t length, const BlockTrace &trace) {
    const std::string text = kTexts[static_cast<std::size_t>(status)];
    if (status == ArchiveStatus::kLengthInvalid) return text + std::to_string(length) + " bytes";
    if (status != ArchiveStatus::kStageFailed) return text;
    return text + kStageTable[trace.reached].name + " stage can't be undone";
}

ArchiveStatus start_blocks(BlockReader &reader) {
    crc32_init();
    const ByteSource source = source_of(reader.archive);
    std::uint8_t start[kFirstRecord];
    std::uint32_t got;
    return source.read(source.user, start, kFirstRecord, got) ? open_member(reader, start, got)
                                                              : ArchiveStatus::kReadFailed;
}

void use_indexes(BlockReader &reader) {
    IndexedMember member;
    std::uint64_t begin = reader.archive.size, size = 0;
    while (begin != 0 &&
           find_indexed(places_of(reader.archive), begin, member) == ArchiveStatus::kGood) {
        begin = member.offset;
        size += member.sum.size;
        reader.found.push_back(member);
    }
    if (begin != 0) return reader.found.clear();
    reader.indexed = true;
    reader.least_size = reader.most_size = size;
}

ArchiveStatus skip_block(BlockReader &reader, std::string &why) {
    const bool by_index = !reader.found.empty();
    ArchiveStatus status = ArchiveStatus::kNextHeader;
    std::uint32_t length = 0;
    while (status == ArchiveStatus::kNextHeader) {
        status = by_index ? skip_entry(reader, length) : skip_record(reader);
        if (!by_index) length = reader.walk.length;
        if (!by_index && ends_member(status)) status = close_member(reader, status);
    }
    if (status == ArchiveStatus::kGood) count_block(reader, length);
    why = text_of(status, length, reader.trace);
    return status;
}

ArchiveStatus next_block(BlockReader &reader, std::string &why) {
    const CoderContext &context = reader.context;
    ArchiveStatus status = ArchiveStatus::kNextHeader;
    std::uint32_t length = 0;
    while (status == ArchiveStatus::kNextHeader) {
        reader.offset = reader.archive.position;
        status = read_block(source_of(reader.archive), reader.context, length, reader.trace);
        if (ends_member(status)) status = close_member(reader, status);
    }
    why = text_of(status, length, reader.trace);
    if (status != ArchiveStatus::kGood) return status;
    const std::uint32_t crc = crc32_append(0, context.buf_out, context.out_len);
    if (add_block(reader.member, {length, context.out_len, crc})) {
        count_block(reader, length);
        return status;
    }
    why = "no archive has a block of " + std::to_string(context.out_len) + " bytes before an index";
    return ArchiveStatus::kLengthInvalid;
}

bool Restorer::prepare() {
    bwt_.settings.st_off = 1;
    st_.settings.bwt_off = 1;
    bwt_taken_ = bwt_taken_ || alloc_decompress(bwt_, kMaxBlockSize) != 0;
    st_taken_ = st_taken_ || alloc_decompress(st_, kMaxBlockSize) != 0;
    return bwt_taken_ && st_taken_;
}

const std::uint8_t *Restorer::restore(ArchiveFile &archive, std::uint64_t begin, std::uint64_t end,
                                      std::uint32_t &length, BlockTrace &trace) {
    for (RestoringContext *context : {&bwt_, &st_}) {
        context->in_len = static_cast<std::uint32_t>(end - begin);
        if (read_at(archive, begin, context->buf_in, context->in_len) &&
            decompress_block(*context, &trace)) {
            length = context->out_len;
            return context->buf_out;
        }
    }
    return nullptr;
}

bool read_at(ArchiveFile &archive, std::uint64_t offset, void *bytes, std::uint32_t count) {
    if (offset > archive.size || count > archive.size - offset) return false;
    if (archive.watch != nullptr) archive.watch(archive, offset);
    return fseeko(archive.file.get(), static_cast<off_t>(offset), SEEK_SET) == 0 &&
           std::fread(bytes, 1, count, archive.file.get()) == count;
}

} // namespace velk
