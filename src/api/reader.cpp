// Random access: where the records lie, and the block decoded last.
#include "api/coder.h"
#include "api/read_fully.h"
#include "archive/archive_io.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

using namespace velk;

struct velk_reader {
    velk_read_at *read_at;
    void *user;
    velk_damage *damage; // what the caller is told; may be null
    CoderContext context;
    std::uint64_t index_limit; // bytes for `starts`
    std::uint64_t *starts;     // offset of each record, and the last one's end
    std::uint64_t room;        // entries that `starts` has room for
    std::uint64_t blocks;
    std::uint64_t kept; // the block in `context.buf_out`; `blocks`: none
    std::uint64_t size; // bytes of the original; kUnknown before the last block was decoded
};

namespace {

constexpr std::uint64_t kFirstRoom = 8; // entries
constexpr std::uint64_t kUnknown = VELK_SIZE_UNKNOWN;

bool read_placed(void *user, std::uint64_t offset, void *bytes, std::uint32_t count,
                 std::uint32_t &got) {
    const velk_reader &reader = *static_cast<const velk_reader *>(user);
    return read_fully(bytes, count, got, [&](std::uint8_t *to, std::uint32_t size) {
        return reader.read_at(reader.user, offset + got, to, size);
    });
}

// The status, with the place of the damage if it is one.
velk_status tell(const velk_reader &reader, velk_status status, std::uint64_t block,
                 std::uint64_t offset) {
    if (status == VELK_ERROR_DAMAGED && reader.damage != nullptr) *reader.damage = {block, offset};
    return status;
}

// Appends the offset at which the next record begins.
bool add_start(velk_reader &reader, std::uint64_t count, std::uint64_t start) {
    if (count == reader.room) {
        const std::uint64_t room = std::max(2 * reader.room, kFirstRoom);
        const std::uint64_t bytes = room * sizeof start; // 2^64 of them would take longer to read
        if (bytes > reader.index_limit || bytes > SIZE_MAX) return false;
        void *const larger = std::realloc(reader.starts, static_cast<std::size_t>(bytes));
        if (larger == nullptr) return false;
        reader.starts = static_cast<std::uint64_t *>(larger);
        reader.room = room;
    }
    reader.starts[count] = start;
    return true;
}

velk_status find_records(velk_reader &reader) {
    RecordWalk walk;
    ArchiveStatus status;
    std::uint64_t blocks = 0;
    do {
        if (!add_start(reader, blocks, walk.next)) return VELK_ERROR_MEMORY;
        status = next_record({&reader, read_placed}, reader.context.capacity, walk);
    } while (status == ArchiveStatus::kGood && ++blocks != 0);
    reader.blocks = reader.kept = blocks;
    reader.size = blocks == 0 ? 0 : kUnknown;
    return tell(reader, status_of(status), blocks, reader.starts[blocks]);
}

velk_status open_archive(velk_reader &reader, const CheckedOptions &options) {
    std::uint8_t start[VELK_HEADER_SIZE];
    std::uint32_t got, memory_bytes;
    if (!read_placed(&reader, 0, start, sizeof start, got)) return VELK_ERROR_READ;
    const velk_status status = open_restorer(reader.context, options, start, got, memory_bytes);
    if (status != VELK_OK) return tell(reader, status, 0, 0);
    reader.index_limit = options.memory_limit - memory_bytes;
    return find_records(reader);
}

// Has block `number` in `context.buf_out`.
velk_status load(velk_reader &reader, std::uint64_t number) {
    if (reader.kept == number) return VELK_OK;
    reader.kept = reader.blocks;
    CoderContext &context = reader.context;
    const std::uint64_t data = reader.starts[number] + kRecordHeadBytes;
    context.in_len = static_cast<std::uint32_t>(reader.starts[number + 1] - data);
    std::uint32_t got;
    if (!read_placed(&reader, data, context.buf_in, context.in_len, got)) return VELK_ERROR_READ;
    if (got != context.in_len || !kRestorer.code(context, 0))
        return tell(reader, VELK_ERROR_DAMAGED, number, reader.starts[number]);
    const std::uint32_t block_size = block_size_of(context);
    const bool last = number + 1 == reader.blocks;
    if (context.out_len > block_size || (!last && context.out_len < block_size))
        return VELK_ERROR_FORMAT;
    reader.kept = number;
    if (last) reader.size = number * block_size + context.out_len;
    return VELK_OK;
}

} // namespace

velk_status velk_reader_open(velk_reader **reader, const velk_options *options,
                             velk_read_at *read_at, void *user, velk_damage *damage) {
    if (reader == nullptr) return VELK_ERROR_ARGUMENT;
    *reader = nullptr;
    CheckedOptions checked;
    if (read_at == nullptr || !check_options(options, checked)) return VELK_ERROR_ARGUMENT;
    velk_reader *const opened = static_cast<velk_reader *>(std::calloc(1, sizeof(velk_reader)));
    if (opened == nullptr) return VELK_ERROR_MEMORY;
    opened->read_at = read_at;
    opened->user = user;
    opened->damage = damage;
    const velk_status status = open_archive(*opened, checked);
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
    std::free(reader->starts);
    std::free(reader);
}

std::uint32_t velk_reader_block_size(const velk_reader *reader) {
    return reader == nullptr ? 0 : block_size_of(reader->context);
}

velk_status velk_reader_size(velk_reader *reader, std::uint64_t *size) {
    if (reader == nullptr || size == nullptr) return VELK_ERROR_ARGUMENT;
    *size = 0;
    const velk_status status =
        reader->size == kUnknown ? load(*reader, reader->blocks - 1) : VELK_OK;
    if (status == VELK_OK) *size = reader->size;
    return status;
}

velk_status velk_reader_read(velk_reader *reader, std::uint64_t offset, void *buffer,
                             std::size_t size, std::size_t *read_size) {
    if (read_size == nullptr) return VELK_ERROR_ARGUMENT;
    *read_size = 0;
    if (reader == nullptr || (buffer == nullptr && size != 0)) return VELK_ERROR_ARGUMENT;
    std::uint8_t *const bytes = static_cast<std::uint8_t *>(buffer);
    const std::uint32_t block_size = block_size_of(reader->context);
    while (*read_size < size && offset / block_size < reader->blocks) {
        const velk_status status = load(*reader, offset / block_size);
        if (status != VELK_OK) return status;
        const std::uint32_t at = static_cast<std::uint32_t>(offset % block_size);
        if (at >= reader->context.out_len) break;
        const std::size_t part =
            std::min<std::size_t>(size - *read_size, reader->context.out_len - at);
        std::memcpy(bytes + *read_size, reader->context.buf_out + at, part);
        *read_size += part;
        offset += part;
    }
    return VELK_OK;
}
