#include "sorting/rle.h"

#include "base/byte_order.h"
#include "base/runs.h"
#include "pipeline/stage.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>

namespace velk {
namespace {

// A block is declined when it has more than one interrupted run in so many bytes.
constexpr std::uint32_t kMinBytesPerInterruption = 13;
// Run lengths are below 2^24.
constexpr std::uint32_t kMaxLengthBits = 23;
// Most runs are no longer; they are written at once (1.1 times as fast).
constexpr std::uint32_t kShortRun = 32;
// 1 in each byte, and in byte i bit 7 - i.
constexpr std::uint64_t kLows = 0x0101010101010101, kHighToLow = 0x0102040810204080;

// 1 in every byte that is not 0.
std::uint64_t not_zero(std::uint64_t bytes) {
    constexpr std::uint64_t kLow = 0x7F7F7F7F7F7F7F7F;
    return ((((bytes & kLow) + kLow) | bytes) & ~kLow) >> 7;
}

// Writes heads forwards from out[0] and bits backwards from out[n - 1]. Returns false
// when the stage declines.
bool write_runs(const std::uint8_t *in, std::uint32_t n, std::uint8_t *out, std::uint32_t &heads,
                std::uint32_t &bits) {
    // By byte value, the last position of its last run. None yet is -1: a run that starts at
    // position 1 therefore always counts as interrupted, which is part of the format.
    std::int32_t last_end[256];
    std::fill(std::begin(last_end), std::end(last_end), -1);
    std::uint32_t interrupted = 0;
    heads = 0;
    bits = 0;
    const auto write_run = [&](std::uint32_t start, std::uint32_t end) {
        const std::uint8_t v = in[start];
        interrupted += static_cast<std::int32_t>(start) - last_end[v] == 2;
        last_end[v] = static_cast<std::int32_t>(end) - 1;

        const std::uint32_t more = end - start - 1;
        const auto copies = static_cast<std::uint32_t>(std::bit_width(more)) + 1;
        const std::uint32_t length_bits = std::max(copies, 2u) - 2;
        if (copies <= 8 && heads + bits + 16 <= n) [[likely]] {
            // Eight of each, 16 bytes in all: the next ones overwrite what is too much, and no
            // branch depends on how many they are (1.2 times as fast).
            std::memset(out + heads, v, 8);
            const std::uint64_t ones = not_zero(more * kLows & kHighToLow); // bit i in byte 7 - i
            put_u64(out + (n - bits - 8), ones);
        } else {
            if (copies + length_bits > n - bits - heads) return false;
            std::memset(out + heads, v, copies);
            for (std::uint32_t i = 0; i < length_bits; ++i)
                out[n - bits - 1 - i] = more >> i & 1;
        }
        heads += copies;
        bits += length_bits;
        return true;
    };
    return visit_runs(in, n, write_run) && interrupted * kMinBytesPerInterruption <= n;
}

// The length of a run from its `count` bits, the lowest at bit_end[-1]; `limit` is how many
// bytes are there before bit_end.
std::uint32_t read_length(const std::uint8_t *bit_end, std::uint32_t limit, std::uint32_t count) {
    std::uint32_t length = 1u << count;
    if (count <= 8 && limit >= 8) {
        const std::uint64_t ones = not_zero(get_u64(bit_end - 8));
        const std::uint64_t bits = ones * 0x8040201008040201 >> 56; // byte i to bit 7 - i
        return length + (static_cast<std::uint32_t>(bits) & (length - 1)) + 1;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        if (*--bit_end != 0) length |= 1u << i;
    }
    return length + 1;
}

} // namespace

void rle_forward(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                 std::uint8_t rle_off) {
    std::uint32_t heads;
    std::uint32_t bits;
    if (rle_off != 0 || !write_runs(in, n, out, heads, bits)) {
        pass_on(in, n, out, out_len);
        return;
    }
    std::memmove(out + heads, out + (n - bits), bits);
    put_u32(out + heads + bits, heads);
    out[heads + bits + 4] = 1;
    out_len = heads + bits + kRleTrailerBytes;
}

bool rle_inverse(std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out, std::uint32_t &out_len,
                 std::uint32_t capacity) {
    if (undo_pass_on(in, len, out, out_len)) return true;
    if (len < kRleTrailerBytes) return false;
    const std::uint32_t heads = get_u32(in + (len - kRleTrailerBytes));
    std::uint32_t bit_end = len - kRleTrailerBytes; // bits are taken from before it
    if (heads > bit_end) return false;

    std::uint32_t n = 0;
    const auto write_run = [&](std::uint32_t start, std::uint32_t end) {
        const std::uint32_t copies = end - start;
        std::uint32_t run = copies;
        if (copies >= 3) {
            const std::uint32_t length_bits = copies - 2;
            if (length_bits > kMaxLengthBits || length_bits > bit_end - heads) return false;
            run = read_length(in + bit_end, bit_end, length_bits);
            bit_end -= length_bits;
        }
        if (run > capacity - n) return false;
        if (run <= kShortRun && capacity - n >= kShortRun) {
            std::memset(out + n, in[start], kShortRun); // what is too much is overwritten
        } else {
            std::memset(out + n, in[start], run);
        }
        n += run;
        return true;
    };
    if (!visit_runs(in, heads, write_run)) return false;
    out_len = n;
    return true;
}

} // namespace velk
