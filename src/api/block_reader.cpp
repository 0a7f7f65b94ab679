#include "api/block_reader.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <cstring>

namespace velk {
namespace {

bool cuts(const CheckedOptions &options, std::uint64_t input_size) {
    return cuts_blocks(options) && input_size >= 2 * kMinBlockSize;
}

// Of an input of unknown size a byte more than a block, at least: whether it has that decides
// on the header.
std::uint32_t choose_room(const CheckedOptions &options, std::uint64_t input_size) {
    const std::uint32_t block_limit = choose_block_limit(options, input_size);
    const std::uint32_t window =
        options.tries ? 2 * block_limit : block_limit + (input_size == VELK_SIZE_UNKNOWN);
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(window, input_size));
}

// Bytes of the block that begins `at` bytes behind the window's start.
std::uint32_t find_length(BlockReader &reader, std::uint32_t at) {
    const std::uint32_t there = reader.end - reader.start - at;
    const std::uint32_t most = std::min(there, reader.block_limit);
    if (reader.cutter == nullptr || most == 0) return most;
    return find_cut(*reader.cutter, reader.bytes + reader.start + at, most);
}

} // namespace

std::uint64_t reader_bytes(const CheckedOptions &options, std::uint64_t input_size) {
    return choose_room(options, input_size) +
           (cuts(options, input_size) ? std::uint64_t{sizeof(BlockCutter)} : 0);
}

bool open_reader(BlockReader &reader, const CheckedOptions &options, std::uint64_t input_size) {
    reader = {};
    reader.left = input_size;
    reader.room = reader.wanted = choose_room(options, input_size);
    reader.block_limit = choose_block_limit(options, input_size);
    reader.gives_groups = options.tries;
    reader.bytes = static_cast<std::uint8_t *>(std::malloc(std::max(reader.room, 1u)));
    if (cuts(options, input_size)) {
        reader.cutter = static_cast<BlockCutter *>(std::calloc(1, sizeof(BlockCutter)));
        if (reader.cutter != nullptr)
            start_cutter(*reader.cutter, choose_block_limit(options, VELK_SIZE_UNKNOWN));
        if (reader.cutter == nullptr) close_reader(reader);
    }
    return reader.bytes != nullptr;
}

void close_reader(BlockReader &reader) {
    std::free(reader.bytes);
    std::free(reader.cutter);
    reader.bytes = nullptr;
    reader.cutter = nullptr;
}

std::uint8_t *next_input(BlockReader &reader, std::uint32_t &wanted) {
    const std::uint32_t there = reader.end - reader.start;
    const bool enough = there >= reader.wanted || reader.flushes;
    wanted = enough ? 0
                    : static_cast<std::uint32_t>(
                          std::min<std::uint64_t>(reader.wanted - there, reader.left));
    if (wanted > reader.room - reader.end) {
        std::memmove(reader.bytes, reader.bytes + reader.start, there);
        reader.start = 0;
        reader.end = there;
    }
    return reader.bytes + reader.end;
}

bool take_input(BlockReader &reader, std::uint32_t count) {
    reader.end += count;
    if (reader.left != VELK_SIZE_UNKNOWN) {
        reader.left -= count;
        return count != 0;
    }
    if (count == 0) reader.left = 0;
    return true;
}

bool flush_input(BlockReader &reader) {
    return reader.flushes = reader.start != reader.end;
}

const std::uint8_t *give_blocks(BlockReader &reader, BlockGroup &blocks) {
    const std::uint8_t *const given = reader.bytes + reader.start;
    blocks.length = blocks.count = 0;
    std::uint32_t length = reader.next_length != 0 ? reader.next_length : find_length(reader, 0);
    do {
        assert(blocks.count < kMaxGroup); // all but the input's last have kMinBlockSize, at least
        blocks.entries[blocks.count++].block_len = length;
        blocks.length += length;
        length = reader.gives_groups ? find_length(reader, blocks.length) : 0;
    } while (length != 0 && length <= reader.block_limit - blocks.length);
    if (blocks.length == 0) blocks.count = 0;
    reader.next_length = length;
    reader.start += blocks.length;
    if (reader.start == reader.end) reader.flushes = false;
    if (!reader.gives_groups) reader.wanted = reader.block_limit; // once the header is settled
    return given;
}

} // namespace velk
