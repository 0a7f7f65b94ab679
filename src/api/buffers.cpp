// Memory to memory: streams whose two ends are buffers.
#include "api/options.h"
#include "archive/archive_io.h"
#include "base/block_size.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

using namespace velk;

namespace {

struct Buffers {
    const std::uint8_t *in;
    std::size_t in_left;
    std::uint8_t *out;
    std::size_t room; // left in `out`
};

std::int64_t read_buffer(void *user, void *buffer, std::size_t size) {
    Buffers &b = *static_cast<Buffers *>(user);
    const std::size_t part = std::min(size, b.in_left);
    if (part != 0) std::memcpy(buffer, b.in, part);
    b.in += part;
    b.in_left -= part;
    return static_cast<std::int64_t>(part);
}

std::int64_t write_buffer(void *user, const void *buffer, std::size_t size) {
    Buffers &b = *static_cast<Buffers *>(user);
    const std::size_t part = std::min(size, b.room);
    if (part != 0) std::memcpy(b.out, buffer, part);
    b.out += part;
    b.room -= part;
    return static_cast<std::int64_t>(part);
}

// Of what has not been read from the front.
bool read_placed(void *user, std::uint64_t offset, void *bytes, std::uint32_t count,
                 std::uint32_t &got) {
    const Buffers &b = *static_cast<const Buffers *>(user);
    const std::uint64_t left = offset < b.in_left ? b.in_left - offset : 0;
    got = static_cast<std::uint32_t>(std::min<std::uint64_t>(count, left));
    if (got != 0) std::memcpy(bytes, b.in + offset, got);
    return true;
}

// Calls run(stream) with the buffers as its ends.
template<typename Run>
velk_status run_on_buffers(const void *in, std::size_t in_size, void *out, std::size_t capacity,
                           std::size_t *out_size, Run run) {
    if (out_size == nullptr) return VELK_ERROR_ARGUMENT;
    *out_size = 0;
    if ((in == nullptr && in_size != 0) || (out == nullptr && capacity != 0))
        return VELK_ERROR_ARGUMENT;
    Buffers buffers = {static_cast<const std::uint8_t *>(in), in_size,
                       static_cast<std::uint8_t *>(out), capacity};
    const velk_stream stream = {&buffers, read_buffer, write_buffer, nullptr, {}};
    const velk_status status = run(stream);
    *out_size = capacity - buffers.room;
    return status == VELK_ERROR_WRITE ? VELK_ERROR_SPACE : status;
}

} // namespace

velk_status velk_compress(const velk_options *options, const void *in, std::size_t in_size,
                          void *out, std::size_t capacity, std::size_t *out_size) {
    return run_on_buffers(in, in_size, out, capacity, out_size, [=](const velk_stream &stream) {
        return velk_compress_stream(options, &stream, in_size);
    });
}

velk_status velk_decompress(const velk_options *options, const void *archive, std::size_t size,
                            void *out, std::size_t capacity, std::size_t *out_size) {
    return run_on_buffers(archive, size, out, capacity, out_size, [=](const velk_stream &stream) {
        return velk_decompress_stream(options, &stream);
    });
}

velk_status velk_decompress_bound(const void *archive, std::size_t size, std::uint64_t *bound) {
    if (bound == nullptr) return VELK_ERROR_ARGUMENT;
    *bound = 0;
    if (archive == nullptr && size != 0) return VELK_ERROR_ARGUMENT;
    Settings settings{};
    std::uint32_t block_size;
    const auto *const bytes = static_cast<const std::uint8_t *>(archive);
    ArchiveStatus status = parse_start(bytes, size, settings, block_size);
    if (status != ArchiveStatus::kGood) return status_of(status);
    Buffers buffers = {bytes, size, nullptr, 0};
    RecordWalk walk;
    const std::uint32_t capacity = block_size + kBlockSlack;
    std::uint64_t sum = 0;
    while ((status = next_record({&buffers, read_placed}, capacity, walk)) == ArchiveStatus::kGood)
        sum += capacity; // a record for 10 bytes at least: less than 2^64
    if (status_of(status) == VELK_OK) *bound = sum;
    return status_of(status);
}
