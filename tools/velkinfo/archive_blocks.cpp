#include "velkinfo/archive_blocks.h"

#include "archive/format.h"
#include "base/block_size.h"
#include "pipeline/crc32.h"
#include "platform/files.h"

#include <algorithm>
#include <iterator>

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

// By ArchiveStatus. Where a text is not all there is to say, `reason` says the rest.
constexpr const char *kTexts[] = {
    "",
    "",
    "",
    "an end mark with more bytes behind it",
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
    "the archive is cut short before its index",
    "the index does not fit the records",
    "what follows is no part of the archive",
    "the block is cut short",
    "the block CRC does not match",
    "the CRC matches, but the ",
};
static_assert(std::size(kTexts) == static_cast<std::size_t>(ArchiveStatus::kStageFailed) + 1);

std::string reason(ArchiveStatus status, std::uint32_t length, const BlockTrace &trace) {
    std::string text = text_of(status);
    if (status == ArchiveStatus::kLengthInvalid) return text + std::to_string(length) + " bytes";
    if (status != ArchiveStatus::kStageFailed) return text;
    return text + kStageTable[trace.reached].name + " stage can't be undone";
}

// Counts the block that was read, or says in `why` what is wrong.
ArchiveStatus end_step(BlockReader &reader, ArchiveStatus status, std::uint32_t length,
                       std::string &why) {
    if (status == ArchiveStatus::kGood) {
        ++reader.number;
        reader.coded_len = kRecordHeadBytes + length;
        return status;
    }
    if (status == ArchiveStatus::kEndMark &&
        reader.offset + kRecordHeadBytes == reader.archive.size)
        status = ArchiveStatus::kEnd;
    if (status != ArchiveStatus::kEnd) {
        why = "block " + std::to_string(reader.number + 1) + " at offset " +
              std::to_string(reader.offset) + ": " + reason(status, length, reader.trace);
    }
    return status;
}

} // namespace

bool open_archive(ArchiveFile &archive, const char *name, std::string &why) {
    FileFacts facts;
    const bool exists = look_at(name, true, facts);
    if (exists && facts.kind == Kind::kFile) archive.file.reset(std::fopen(name, "rb"));
    if (archive.file == nullptr) {
        why = exists ? "can't be read, or is not a regular file" : "not found";
        return false;
    }
    archive.name = name;
    archive.size = facts.size;
    return true;
}

ByteSource source_of(ArchiveFile &archive) {
    return {&archive, read_next};
}

const char *text_of(ArchiveStatus status) {
    return kTexts[static_cast<std::size_t>(status)];
}

bool open_blocks(BlockReader &reader, const char *name, std::string &why) {
    crc32_init();
    if (!open_archive(reader.archive, name, why)) return false;
    std::uint32_t memory_bytes;
    const ArchiveStatus status =
        start_reading(source_of(reader.archive), reader.context, memory_bytes);
    why = text_of(status);
    return status == ArchiveStatus::kGood;
}

ArchiveStatus skip_block(BlockReader &reader, std::string &why) {
    reader.offset = reader.walk.next;
    const ArchiveStatus status =
        next_record({&reader.archive, read_placed}, reader.context.capacity, reader.walk);
    return end_step(reader, status, reader.walk.length, why);
}

ArchiveStatus next_block(BlockReader &reader, std::string &why) {
    std::uint32_t length;
    reader.offset = reader.archive.position;
    const ArchiveStatus status =
        read_block(source_of(reader.archive), reader.context, length, reader.trace);
    return end_step(reader, status, length, why);
}

bool Restorer::prepare() {
    bwt_.settings.st_off = 1;
    st_.settings.bwt_off = 1;
    return alloc_decompress(bwt_, kMaxBlockSize) != 0 && alloc_decompress(st_, kMaxBlockSize) != 0;
}

const std::uint8_t *Restorer::restore(ArchiveFile &archive, std::uint64_t begin, std::uint64_t end,
                                      std::uint32_t &length) {
    for (RestoringContext *context : {&bwt_, &st_}) {
        context->in_len = static_cast<std::uint32_t>(end - begin);
        if (read_at(archive, begin, context->buf_in, context->in_len) &&
            decompress_block(*context)) {
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
