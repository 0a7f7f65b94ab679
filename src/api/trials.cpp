#include "api/trials.h"

#include "api/block_cut.h"
#include "archive/format.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <cstring>

namespace velk {
namespace {

struct Trials {
    CoderContext &context;
    const std::uint8_t *data;
    std::uint8_t *results;
    std::uint64_t work; // bytes that may still be coded
};

// Where the result of the block goes that begins at `start`: it has room there up to the next.
std::uint8_t *place(const Trials &t, std::uint32_t start) {
    return t.results + results_room(start) - kBlockSlack;
}

// Codes the block, into `buf_out`; false when there has been work enough.
bool code_block(Trials &t, std::uint32_t start, IndexEntry &entry) {
    if (entry.block_len > t.work) return false;
    t.work -= entry.block_len;
    return code_data(kCompressor, t.context, t.data + start, entry.block_len, entry);
}

void keep_result(const Trials &t, std::uint8_t *to, const IndexEntry &entry) {
    std::memcpy(to, t.context.buf_out, entry.data_len);
}

// Bytes of the archive.
std::uint32_t cost(const IndexEntry &entry) {
    return kRecordHeadBytes + entry.data_len + kEntryBytes;
}

IndexEntry entry_of(std::uint32_t block_len) {
    return {0, block_len, 0};
}

// log2(x) in 1/64, for x from 1 on: of the leading bit and the six bits below it.
std::uint32_t log2_of(std::uint32_t x) {
    static constexpr auto kMantissa = [] {
        std::array<std::uint8_t, 64> table{};
        // log2(1 + i / 64) bit by bit: squares that reach 2 give a bit.
        for (std::uint32_t i = 0; i < 64; ++i) {
            std::uint64_t y = (std::uint64_t{64} + i) << 24; // 1 is 2^30
            for (std::uint32_t bit = 64; bit >>= 1;) {
                y = y * y >> 30;
                if (y >> 31 == 0) continue;
                table[i] |= static_cast<std::uint8_t>(bit);
                y >>= 1;
            }
        }
        return table;
    }();
    const auto bits = static_cast<std::uint32_t>(std::bit_width(x)) - 1;
    const std::uint32_t six = bits >= 6 ? x >> (bits - 6) : x << (6 - bits);
    return bits * 64 + kMantissa[six % 64];
}

// Where the block changes most: of the places at multiples of kPieceBytes, with kMinBlockSize on
// both sides, the one where its two parts take the fewest bits: each byte coded by how often it
// stood beside the last one, from the outer ends on. 0 if there is no such place. counts: room for
// 2^16 + 2^8. (Halves in place of these parts: 1 % larger on a tar of all kinds, 5 ns a byte less.)
std::uint32_t find_change(const std::uint8_t *data, std::uint32_t n, std::uint32_t *counts) {
    static_assert((1 << 16) + (1 << 8) <= kMinBlockSize); // entries of the index array
    std::uint64_t bits[kMaxPieces];                       // of the bytes before each piece
    std::uint32_t *const totals = counts + (1 << 16);
    std::uint64_t sum = 0;
    std::fill_n(counts, (1 << 16) + (1 << 8), 0);
    const auto add = [&](std::uint8_t context, std::uint8_t byte) {
        sum += log2_of(totals[context]++ + 64) - log2_of(counts[context << 8 | byte]++ + 1);
    };
    for (std::uint32_t p = 1; p < n; ++p) {
        if (p % kPieceBytes == 0) bits[p / kPieceBytes] = sum;
        add(data[p - 1], data[p]);
    }
    std::fill_n(counts, (1 << 16) + (1 << 8), 0);
    sum = 0;
    std::uint32_t best = 0;
    std::uint64_t fewest = UINT64_MAX;
    for (std::uint32_t p = n - 1; p > kMinBlockSize; --p) {
        add(data[p], data[p - 1]);
        if (p % kPieceBytes != 1 || n - p + 1 < kMinBlockSize) continue;
        if (bits[(p - 1) / kPieceBytes] + sum >= fewest) continue;
        fewest = bits[(p - 1) / kPieceBytes] + sum;
        best = p - 1;
    }
    return best;
}

// Puts one block in place of numbers i, which begins at `start`, and i + 1, if it is smaller.
bool join(Trials &t, BlockGroup &blocks, std::uint32_t i, std::uint32_t start) {
    IndexEntry *const pair = blocks.entries + i;
    IndexEntry both = entry_of(pair[0].block_len + pair[1].block_len);
    if (!code_block(t, start, both) || cost(both) >= cost(pair[0]) + cost(pair[1])) return false;
    keep_result(t, place(t, start), both);
    pair[0] = both;
    std::copy(pair + 2, blocks.entries + blocks.count--, pair + 1);
    return true;
}

// Puts `count` blocks in place of number i, which begins at `start`: of `length` bytes each, at
// least kMinBlockSize, but the last, which has the rest. False, with nothing changed, where they
// are not smaller. tried: room for their results.
bool split(Trials &t, BlockGroup &blocks, std::uint32_t i, std::uint32_t start,
           std::uint32_t length, std::uint32_t count, std::uint8_t *tried) {
    assert(blocks.count + count - 1 <= kMaxGroup);
    IndexEntry *const whole = blocks.entries + i;
    const std::uint32_t end = start + whole->block_len;
    IndexEntry parts[kMaxGroup];
    std::uint32_t sum = 0, at = start;
    std::uint8_t *result = tried;
    for (std::uint32_t j = 0; j < count; at += parts[j++].block_len) {
        parts[j] = entry_of(j + 1 < count ? length : end - at);
        if (!code_block(t, at, parts[j])) return false;
        sum += cost(parts[j]);
        if (sum >= cost(*whole)) return false;
        keep_result(t, result, parts[j]);
        result += parts[j].data_len;
    }
    at = start;
    result = tried;
    for (std::uint32_t j = 0; j < count; at += parts[j++].block_len) {
        std::memcpy(place(t, at), result, parts[j].data_len);
        result += parts[j].data_len;
    }
    IndexEntry *const last = blocks.entries + blocks.count;
    std::copy_backward(whole + 1, last, last + (count - 1));
    std::copy_n(parts, count, whole);
    blocks.count += count - 1;
    return true;
}

// Whether the smallest blocks are smaller than large ones, as of sorted words, by a sample of the
// block; not of a block that it would be a large part of.
bool wants_small_blocks(Trials &t, std::uint32_t start, std::uint32_t length) {
    constexpr std::uint32_t kSampleBytes = 4 * kMinBlockSize;
    if (length < 4 * kSampleBytes) return false;
    start += (length - kSampleBytes) / 2;
    IndexEntry whole = entry_of(kSampleBytes);
    std::uint32_t sum = 0;
    bool coded = code_block(t, start, whole);
    for (std::uint32_t i = 0; i < 4; ++i, start += kMinBlockSize) {
        IndexEntry part = entry_of(kMinBlockSize);
        coded = coded && code_block(t, start, part);
        sum += cost(part);
    }
    return coded && sum < cost(whole);
}

} // namespace

void try_blocks(CoderContext &context, std::uint8_t *results, const std::uint8_t *data,
                BlockGroup &blocks) {
    IndexEntry *const entries = blocks.entries;
    const std::uint64_t work = std::uint64_t{blocks.length} * 13 / 4;
    Trials t = {context, data, results, work};
    std::uint32_t start = 0;
    for (std::uint32_t i = 0; i < blocks.count; start += entries[i++].block_len) {
        static_cast<void>(code_block(t, start, entries[i]));
        keep_result(t, place(t, start), entries[i]);
    }
    start = 0;
    std::uint8_t *const tried = results + results_room(blocks.length);
    for (std::uint32_t i = 0; i < blocks.count; ++i) {
        const std::uint32_t length = entries[i].block_len, end = start + length;
        if (wants_small_blocks(t, start, length) &&
            split(t, blocks, i, start, kMinBlockSize, length / kMinBlockSize, tried))
            i += length / kMinBlockSize - 1;
        start = end;
    }
    start = 0;
    for (std::uint32_t i = 0; i < blocks.count;) {
        const std::uint32_t change = find_change(data + start, entries[i].block_len, context.work2);
        if (change == 0 || !split(t, blocks, i, start, change, 2, tried))
            start += entries[i++].block_len;
    }
    start = 0;
    for (std::uint32_t i = 0; i + 1 < blocks.count;) {
        if (!join(t, blocks, i, start)) start += entries[i++].block_len;
    }
    start = blocks.length = 0;
    for (std::uint32_t i = 0; i < blocks.count; start += entries[i++].block_len) {
        std::memmove(results + blocks.length, place(t, start), entries[i].data_len);
        blocks.length += entries[i].data_len;
    }
}

const std::uint8_t *code_blocks(const Coder &coder, CoderContext &context, std::uint8_t *trials,
                                const std::uint8_t *data, BlockGroup &blocks) {
    if (trials != nullptr) {
        try_blocks(context, trials, data, blocks);
        return trials;
    }
    if (!code_data(coder, context, data, blocks.length, blocks.entries[0])) return nullptr;
    blocks.length = context.out_len;
    return context.buf_out;
}

} // namespace velk
