// Random access: where the records lie, and the block decoded last.
#include "api/coder.h"
#include "api/options.h"
#include "archive/format.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

using namespace velk;

struct velk_reader {
    velk_read_at *read_at;
    void *user;
    CoderContext context;
    std::uint32_t block_size;
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

velk_status read_fully(const velk_reader &reader, std::uint64_t offset, std::uint8_t *buffer,
                       std::uint32_t size, std::uint32_t &got) {
    for (got = 0; got < size;) {
        const std::int64_t part =
            reader.read_at(reader.user, offset + got, buffer + got, size - got);
        if (part < 0 || part > size - got) return VELK_ERROR_READ;
        if (part == 0) break;
        got += static_cast<std::uint32_t>(part);
    }
    return VELK_OK;
}

// Appends the offset at which the next record begins.
bool add_start(velk_reader &reader, std::uint64_t count, std::uint64_t start) {
    if (count == reader.room) {
        const std::uint64_t room = std::max(2 * reader.room, kFirstRoom);
        const std::uint64_t bytes = room * sizeof start;
        if (bytes > reader.index_limit || bytes > SIZE_MAX) return false;
        void *const larger = std::realloc(reader.starts, static_cast<std::size_t>(bytes));
        if (larger == nullptr) return false;
        reader.starts = static_cast<std::uint64_t *>(larger);
        reader.room = room;
    }
    reader.starts[count] = start;
    return true;
}

// The heads lead from one record to the next. Each is read with the byte before it, which
// tells a last record that is whole from one that is cut short.
velk_status walk(velk_reader &reader) {
    std::uint64_t start = VELK_HEADER_SIZE;
    for (reader.blocks = 0;; ++reader.blocks) {
        if (!add_start(reader, reader.blocks, start)) return VELK_ERROR_MEMORY;
        std::uint8_t bytes[1 + kRecordHeadBytes];
        std::uint32_t got, length;
        const velk_status status = read_fully(reader, start - 1, bytes, sizeof bytes, got);
        if (status != VELK_OK) return status;
        if (got == 1) break;
        if (got != sizeof bytes) return VELK_ERROR_DAMAGED;
        const ArchiveStatus head = parse_record_head(bytes + 1, reader.context.capacity, length);
        if (head == ArchiveStatus::kEndMark) break;
        if (head != ArchiveStatus::kGood) return VELK_ERROR_DAMAGED;
        start += kRecordHeadBytes + length;
    }
    reader.kept = reader.blocks;
    reader.size = reader.blocks == 0 ? 0 : kUnknown;
    return VELK_OK;
}

velk_status open_archive(velk_reader &reader, std::uint64_t memory_limit) {
    std::uint8_t header[VELK_HEADER_SIZE];
    std::uint32_t got;
    velk_status status = read_fully(reader, 0, header, sizeof header, got);
    if (status != VELK_OK) return status;
    status = status_of(parse_start(header, got, reader.context.settings, reader.block_size));
    if (status != VELK_OK) return status;
    std::uint32_t bytes;
    status = alloc_within(kRestorer, reader.context, reader.block_size, memory_limit, bytes);
    if (status != VELK_OK) return status;
    reader.index_limit = memory_limit - bytes;
    return walk(reader);
}

// Has block `number` in `context.buf_out`.
velk_status load(velk_reader &reader, std::uint64_t number) {
    if (reader.kept == number) return VELK_OK;
    reader.kept = reader.blocks;
    CoderContext &context = reader.context;
    const std::uint64_t data = reader.starts[number] + kRecordHeadBytes;
    context.in_len = static_cast<std::uint32_t>(reader.starts[number + 1] - data);
    std::uint32_t got;
    const velk_status status = read_fully(reader, data, context.buf_in, context.in_len, got);
    if (status != VELK_OK) return status;
    if (got != context.in_len || !kRestorer.code(context, 0)) return VELK_ERROR_DAMAGED;
    const bool last = number + 1 == reader.blocks;
    const bool in_place =
        context.out_len == reader.block_size || (last && context.out_len < reader.block_size);
    if (!in_place) return VELK_ERROR_FORMAT;
    reader.kept = number;
    if (last) reader.size = number * reader.block_size + context.out_len;
    return VELK_OK;
}

} // namespace

velk_status velk_reader_open(velk_reader **reader, const velk_options *options,
                             velk_read_at *read_at, void *user) {
    if (reader == nullptr) return VELK_ERROR_ARGUMENT;
    *reader = nullptr;
    Plan plan;
    if (read_at == nullptr || !make_plan(options, plan)) return VELK_ERROR_ARGUMENT;
    velk_reader *const opened = static_cast<velk_reader *>(std::calloc(1, sizeof(velk_reader)));
    if (opened == nullptr) return VELK_ERROR_MEMORY;
    opened->read_at = read_at;
    opened->user = user;
    const velk_status status = open_archive(*opened, plan.memory_limit);
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
    while (*read_size < size && offset / reader->block_size < reader->blocks) {
        const velk_status status = load(*reader, offset / reader->block_size);
        if (status != VELK_OK) return status;
        const std::uint32_t at = static_cast<std::uint32_t>(offset % reader->block_size);
        if (at >= reader->context.out_len) break;
        const std::size_t part =
            std::min<std::size_t>(size - *read_size, reader->context.out_len - at);
        std::memcpy(bytes + *read_size, reader->context.buf_out + at, part);
        *read_size += part;
        offset += part;
    }
    return VELK_OK;
}
