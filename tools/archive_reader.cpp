#include "archive_reader.h"

#include "archive/format.h"
#include "archive/memory.h"
#include "cli/file_names.h"
#include "pipeline/byte_order.h"
#include "pipeline/crc32.h"
#include "terminal.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kCrcBytes = 4;
constexpr std::uint32_t kMinRecordData = 1 + kCrcBytes;
constexpr std::uint32_t kMaxRecordData = kMaxBlockSize + kBlockSlack;
constexpr std::uint64_t kFirstRecord = kMagicBytes + kHeaderBytes;

// Both forms of a block have one of these values before the CRC. Asking for it spares
// the check of 84 in 85 false heads.
bool is_last_byte(std::uint8_t byte) {
    return byte <= 2;
}

// Reads a record head that lies in the archive with all its data, or, with `cut`,
// whatever length it tells.
bool head_at(ArchiveFile &archive, std::uint64_t offset, std::uint32_t &length, bool cut = false) {
    std::uint8_t head[kRecordHeadBytes];
    return read_at(archive, offset, head, kRecordHeadBytes) && get_record_head(head, length) &&
           length >= kMinRecordData && length <= kMaxRecordData &&
           (cut || offset + kRecordHeadBytes + length <= archive.size);
}

// Whether `length` bytes from `offset` on end with a CRC that fits the rest.
bool block_at(ArchiveFile &archive, std::uint64_t offset, std::uint32_t length,
              std::uint8_t *buffer) {
    const std::uint32_t covered = length - kCrcBytes;
    return read_at(archive, offset + covered - 1, buffer, 1) && is_last_byte(buffer[0]) &&
           read_at(archive, offset, buffer, length) &&
           get_u32(buffer + covered) == crc32_block(buffer, covered);
}

bool record_at(ArchiveFile &archive, std::uint64_t offset, std::uint32_t &length,
               std::uint8_t *buffer) {
    return head_at(archive, offset, length) &&
           block_at(archive, offset + kRecordHeadBytes, length, buffer);
}

// Follows heads from `offset` on. Returns where they lead, an intact record or the
// archive's end, or 0. Counts them.
std::uint64_t follow_heads(ArchiveFile &archive, std::uint64_t offset, std::uint32_t &heads,
                           std::uint8_t *buffer) {
    std::uint32_t length;
    for (heads = 0; head_at(archive, offset, length); ++heads) {
        if (heads != 0 && block_at(archive, offset + kRecordHeadBytes, length, buffer))
            return offset;
        offset += kRecordHeadBytes + length;
    }
    if (heads != 0 && offset == archive.size) return offset;
    if (head_at(archive, offset, length, true)) ++heads;
    return 0;
}

// The first intact record from `offset` on; the archive's size if there is none.
std::uint64_t find_record(ArchiveFile &archive, std::uint64_t offset, std::uint8_t *buffer) {
    std::vector<std::uint8_t> window(1u << 16);
    while (offset + kRecordHeadBytes + kMinRecordData <= archive.size) {
        const std::uint32_t count = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(window.size(), archive.size - offset));
        const std::uint32_t heads = count - kRecordHeadBytes + 1;
        // Of a part that can't be read the zeros are no head.
        if (!read_at(archive, offset, window.data(), count))
            std::fill(window.begin(), window.end(), 0);
        for (std::uint32_t i = 0; i < heads; ++i) {
            std::uint32_t length;
            if (get_record_head(window.data() + i, length) &&
                record_at(archive, offset + i, length, buffer)) {
                return offset + i;
            }
        }
        show_progress(archive, offset);
        offset += heads;
    }
    return archive.size;
}

// Looks for a block that ends at `end` behind a damaged head of a few bytes at `begin`.
// Returns where its data begin, or 0.
std::uint64_t find_block_by_end(ArchiveFile &archive, std::uint64_t begin, std::uint64_t end,
                                std::uint8_t *buffer) {
    constexpr std::uint32_t kMaxDamagedHead = 4 * kRecordHeadBytes;
    for (std::uint32_t head = 0; head <= kMaxDamagedHead; ++head) {
        if (begin + head + kMinRecordData > end) break;
        const std::uint64_t length = end - begin - head;
        if (length <= kMaxRecordData &&
            block_at(archive, begin + head, static_cast<std::uint32_t>(length), buffer)) {
            return begin + head;
        }
    }
    return 0;
}

bool is_end_mark(ArchiveFile &archive, std::uint64_t offset) {
    std::uint8_t head[kRecordHeadBytes];
    std::uint32_t length;
    return read_at(archive, offset, head, kRecordHeadBytes) && get_record_head(head, length) &&
           length == 0;
}

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
    const fs::path path = path_of(name);
    if (fs::is_regular_file(path, error)) archive.file = std::fopen(name, "rb");
    if (archive.file == nullptr) {
        why = fs::exists(path, error) ? "can't be read, or is not a regular file" : "not found";
        return false;
    }
    archive.size = fs::file_size(path, error);
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

bool open_blocks(BlockReader &reader, const char *name, std::string &why) {
    crc32_init();
    if (!open_archive(reader.archive, name, why) ||
        !read_header(reader.archive, reader.context.settings, reader.block_size, why)) {
        return false;
    }
    reader.position = kFirstRecord;
    why = "not enough memory";
    return alloc_decompress(reader.context, reader.block_size) != 0;
}

Step next_record(BlockReader &reader, std::string &why) {
    ArchiveFile &archive = reader.archive;
    if (reader.position == archive.size) {
        show_progress(archive, archive.size);
        return Step::kEnd;
    }
    show_progress(archive, reader.position);
    ++reader.block.number;
    reader.block.offset = reader.position;

    std::uint8_t head[kRecordHeadBytes];
    std::uint32_t length;
    if (!read_at(archive, reader.position, head, kRecordHeadBytes)) {
        why = "the record head is cut short";
    } else if (!get_record_head(head, length)) {
        why = "the check byte of the record head does not match";
    } else if (length == 0) {
        why = "an end mark with more bytes behind it";
        if (reader.position + kRecordHeadBytes == archive.size) {
            --reader.block.number; // it is no block
            show_progress(archive, archive.size);
            return Step::kEnd;
        }
    } else if (length > reader.context.capacity || length < kMinRecordData) {
        why = "no block has a record of " + std::to_string(length) + " bytes";
    } else if (length > archive.size - reader.position - kRecordHeadBytes) {
        why = "the block is cut short";
    } else {
        reader.block.coded_len = kRecordHeadBytes + length;
        reader.position += reader.block.coded_len;
        return Step::kBlock;
    }
    show_progress(archive, archive.size);
    return Step::kDamage;
}

Step next_block(BlockReader &reader, std::string &why) {
    ArchiveFile &archive = reader.archive;
    CoderContext &context = reader.context;
    const Step step = next_record(reader, why);
    if (step != Step::kBlock) return step;

    BlockTrace trace{};
    context.in_len = reader.block.coded_len - kRecordHeadBytes;
    if (!read_at(archive, reader.block.offset + kRecordHeadBytes, context.buf_in, context.in_len)) {
        why = "the block can't be read";
    } else if (decompress_block(context, &trace)) {
        describe_block(reader, trace);
        return Step::kBlock;
    } else {
        why = !trace.crc_holds ? std::string("the block CRC does not match")
                               : std::string("the CRC matches, but the ") +
                                     kStageNames[trace.reached] + " stage can't be undone";
    }
    show_progress(archive, archive.size);
    return Step::kDamage;
}

std::vector<Extent> survey(ArchiveFile &archive, bool header_holds, std::uint8_t *buffer) {
    std::vector<Extent> extents;
    std::uint32_t length;
    std::uint64_t position = std::min(kFirstRecord, archive.size);
    // Of a lost header bytes may be missing, too.
    for (std::uint64_t p = 0; !header_holds && p < position; ++p) {
        if (record_at(archive, p, length, buffer)) position = p;
    }
    while (position < archive.size) {
        show_progress(archive, position);
        if (record_at(archive, position, length, buffer)) {
            const std::uint64_t data = position + kRecordHeadBytes;
            extents.push_back({position, data + length, ExtentKind::kIntact, data, 1});
        } else if (is_end_mark(archive, position) && position + kRecordHeadBytes == archive.size) {
            break;
        } else {
            std::uint32_t heads;
            std::uint64_t data = 0;
            std::uint64_t end = follow_heads(archive, position, heads, buffer);
            if (end == 0) {
                end = find_record(archive, position + 1, buffer);
                data = find_block_by_end(archive, position, end, buffer);
            }
            const ExtentKind kind = data == 0 ? ExtentKind::kLost : ExtentKind::kHeadLost;
            extents.push_back({position, end, kind, data, heads});
        }
        position = extents.back().end;
    }
    show_progress(archive, archive.size);
    return extents;
}

bool read_at(ArchiveFile &archive, std::uint64_t offset, void *bytes, std::uint32_t count) {
    if (offset > archive.size || count > archive.size - offset) return false;
    return fseeko(archive.file, static_cast<off_t>(offset), SEEK_SET) == 0 &&
           std::fread(bytes, 1, count, archive.file) == count;
}

void show_progress(const ArchiveFile &archive, std::uint64_t offset) {
    using Clock = std::chrono::steady_clock;
    static const bool terminal = is_watched();
    static Clock::time_point next = Clock::now() + std::chrono::seconds(1);
    static bool shown = false;
    if (!terminal || (offset != archive.size && Clock::now() < next)) return;
    if (offset != archive.size) {
        std::fprintf(stderr, "\r%s: %3.0f%%", archive.name.c_str(),
                     100 * static_cast<double>(offset) / static_cast<double>(archive.size));
        next = Clock::now() + std::chrono::milliseconds(250);
        shown = true;
    } else if (shown) {
        // Not every console knows a code that clears the line.
        std::fprintf(stderr, "\r%*s\r", static_cast<int>(archive.name.size() + 6), "");
        shown = false;
    }
    std::fflush(stderr);
}
