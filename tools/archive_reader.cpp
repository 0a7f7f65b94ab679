#include "archive_reader.h"

#include "archive/format.h"
#include "archive/memory.h"
#include "pipeline/crc32.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kCrcBytes = 4;
constexpr std::uint32_t kMinRecordData = 1 + kCrcBytes;
constexpr std::uint64_t kFirstRecord = kMagicBytes + kHeaderBytes;

void describe_block(BlockReader &reader, const BlockTrace &trace) {
    BlockInfo &block = reader.block;
    block.original_len = reader.context.out_len;
    block.fallback = trace.fallback;
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        const bool undone = trace.fallback && stage > STAGE_LZP;
        block.trailer[stage] = trace.trailer[stage];
        block.len_after[stage] = undone ? trace.coded_len[STAGE_LZP] : trace.coded_len[stage];
    }
}

} // namespace

const char *const kStageNames[STAGE_COUNT] = {"EOL", "FLT32", "DELTA", "LZP",
                                              "BWT", "ST",    "RLE",   "DCE"};

ArchiveFile::~ArchiveFile() {
    if (file != nullptr) std::fclose(file);
}

bool open_archive(ArchiveFile &archive, const char *name, std::string &why) {
    std::error_code error;
    archive.name = name;
    if (fs::is_regular_file(name, error)) archive.file = std::fopen(name, "rb");
    if (archive.file == nullptr) {
        why = fs::exists(name, error) ? "can't be read, or is not a regular file" : "not found";
        return false;
    }
    archive.size = fs::file_size(name, error);
    if (error) why = error.message();
    return !error;
}

bool read_header(ArchiveFile &archive, Settings &settings, std::uint32_t &block_size,
                 std::string &why) {
    std::uint8_t bytes[kFirstRecord];
    std::uint8_t flags;
    if (!read_at(archive, 0, bytes, sizeof bytes)) {
        why = "shorter than an archive's header";
    } else if (std::memcmp(bytes, kMagic, kMagicBytes) != 0) {
        why = "does not begin as an archive";
    } else if (!get_header(bytes + kMagicBytes, flags, block_size)) {
        why = "header: the check byte does not match";
    } else {
        set_flags(settings, flags);
        const bool both_sorts = settings.bwt_off == 0 && settings.st_off == 0;
        if (block_size >= kMinBlockSize && block_size <= kMaxBlockSize && !both_sorts) return true;
        why = "header: no such block size or stages";
    }
    return false;
}

BlockReader::~BlockReader() {
    free_decompress(context);
}

bool open_blocks(BlockReader &reader, std::string &why) {
    crc32_init();
    if (!read_header(reader.archive, reader.context.settings, reader.block_size, why)) return false;
    reader.position = kFirstRecord;
    why = "not enough memory";
    return alloc_decompress(reader.context, reader.block_size) != 0;
}

Step next_block(BlockReader &reader, std::string &why) {
    ArchiveFile &archive = reader.archive;
    CoderContext &context = reader.context;
    if (reader.position == archive.size) {
        show_progress(archive, archive.size);
        return Step::kEnd;
    }
    show_progress(archive, reader.position);
    ++reader.block.number;
    reader.block.offset = reader.position;

    std::uint8_t head[kRecordHeadBytes];
    std::uint32_t length;
    BlockTrace trace{};
    if (!read_at(archive, reader.position, head, kRecordHeadBytes)) {
        why = "the record head is cut short";
    } else if (!get_record_head(head, length)) {
        why = "the check byte of the record head does not match";
    } else if (length == 0) {
        why = "an end mark with more bytes behind it";
        if (reader.position + kRecordHeadBytes == archive.size) {
            show_progress(archive, archive.size);
            return Step::kEnd;
        }
    } else if (length > context.capacity || length < kMinRecordData) {
        why = "no block has a record of " + std::to_string(length) + " bytes";
    } else if (!read_at(archive, reader.position + kRecordHeadBytes, context.buf_in, length)) {
        why = "the block is cut short";
    } else {
        context.in_len = length;
        if (decompress_block(context, &trace)) {
            reader.block.coded_len = kRecordHeadBytes + length;
            reader.position += reader.block.coded_len;
            describe_block(reader, trace);
            return Step::kBlock;
        }
        why = !trace.crc_holds ? std::string("the block CRC does not match")
                               : std::string("the CRC matches, but the ") +
                                     kStageNames[trace.reached] + " stage can't be undone";
    }
    show_progress(archive, archive.size);
    return Step::kDamage;
}

Restorer::~Restorer() {
    free_decompress(bwt_);
    free_decompress(st_);
}

bool Restorer::prepare() {
    bwt_.settings.st_off = 1;
    st_.settings.bwt_off = 1;
    return alloc_decompress(bwt_, kMaxBlockSize) != 0 && alloc_decompress(st_, kMaxBlockSize) != 0;
}

const std::uint8_t *Restorer::restore(ArchiveFile &archive, std::uint64_t begin, std::uint64_t end,
                                      std::uint32_t &length) {
    for (CoderContext *context : {&bwt_, &st_}) {
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
    return fseeko(archive.file, static_cast<off_t>(offset), SEEK_SET) == 0 &&
           std::fread(bytes, 1, count, archive.file) == count;
}

void show_progress(const ArchiveFile &archive, std::uint64_t offset) {
    using Clock = std::chrono::steady_clock;
    static const bool terminal = isatty(STDERR_FILENO) == 1;
    static Clock::time_point next = Clock::now() + std::chrono::seconds(1);
    static bool shown = false;
    if (!terminal || (offset != archive.size && Clock::now() < next)) return;
    if (offset != archive.size) {
        std::fprintf(stderr, "\r%s: %3.0f%%", archive.name.c_str(),
                     100 * static_cast<double>(offset) / static_cast<double>(archive.size));
        next = Clock::now() + std::chrono::milliseconds(250);
        shown = true;
    } else if (shown) {
        std::fprintf(stderr, "\r\33[K");
        shown = false;
    }
    std::fflush(stderr);
}
