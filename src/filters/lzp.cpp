#include "filters/lzp.h"

#include "base/block_size.h"
#include "base/byte_order.h"
#include "base/bytes.h"
#include "pipeline/stage.h"

#include <algorithm>
#include <cstring>

namespace velk {
namespace {

constexpr std::uint32_t kMinBlock = 5;
constexpr std::uint32_t kMinMatch = 64;
constexpr std::uint32_t kLengthBase = kMinMatch - 1; // what a length code's M counts from
constexpr std::uint32_t kMaxLengthByte = 254;
// The shortest applied block: its first byte before the trailer.
constexpr std::uint32_t kMinCoded = 1 + kLzpTrailerBytes;

std::uint32_t hash(std::uint32_t context) {
    return ((context >> 15) ^ context ^ (context >> 3)) % kLzpTableEntries;
}

// Takes the prediction for the context (its last byte lowest) and leaves `position`,
// which is above 0, in its place.
std::uint32_t predict(std::uint32_t *table, std::uint32_t context, std::uint32_t position) {
    std::uint32_t &entry = table[hash(context)];
    const std::uint32_t predicted = entry;
    entry = position;
    return predicted;
}

// The context of the byte at p. Zeros stand before the block.
std::uint32_t context_at(const std::uint8_t *block, std::uint32_t p) {
    if (p >= 4) return get_u32_be(block + p - 4);
    std::uint32_t context = 0;
    for (std::uint32_t k = 0; k < p; ++k)
        context = context << 8 | block[k];
    return context;
}

// Enters the positions from p, above 0, to `end` - 1 as the predictions of their contexts. Four
// at a step: their hashes come from the same eight bytes. (2.4 times as fast.)
void enter(std::uint32_t *table, const std::uint8_t *block, std::uint32_t p, std::uint32_t end) {
    while (p < end) {
        if (p < 4 || end - p < 4) {
            table[hash(context_at(block, p))] = p;
            ++p;
            continue;
        }
        const std::uint64_t bytes = get_u64_be(block + p - 4);
        static_assert(std::uint64_t{kLzpTableEntries} << 15 <= 1ull << 32); // of 32 bits
        const std::uint64_t hashes = bytes ^ bytes >> 3 ^ bytes >> 15;
#pragma GCC unroll 4
        for (std::uint32_t k = 0; k < 4; ++k)
            table[(hashes >> (32 - 8 * k)) % kLzpTableEntries] = p + k;
        p += 4;
    }
}

std::uint8_t rarest_byte(const std::uint8_t *block, std::uint32_t n) {
    const auto counts = count_bytes(block, n);
    return static_cast<std::uint8_t>(std::min_element(counts.begin(), counts.end()) -
                                     counts.begin());
}

// The length of the match of the bytes at p and at `predicted`, before p.
std::uint32_t match_length(const std::uint8_t *block, std::uint32_t n, std::uint32_t p,
                           std::uint32_t predicted) {
    const std::uint32_t limit = n - p;
    const std::uint8_t *const here = block + p;
    const std::uint8_t *const there = block + predicted;
    std::uint32_t length = 0;
    while (limit - length >= 8 && get_u64(here + length) == get_u64(there + length))
        length += 8;
    while (length < limit && here[length] == there[length])
        ++length;
    return length;
}

// Writes the code; returns its length, or n when it would have n bytes or more. At most
// n + 1 bytes are written.
//
// Of a prediction, the last eight bytes that a match must have are compared first: about
// one in 50 passes. With two bytes, one in 10, it took 1.3 times as long.
std::uint32_t write_code(std::uint32_t *table, const std::uint8_t *in, std::uint32_t n,
                         std::uint8_t escape, std::uint8_t *out) {
    constexpr std::uint32_t kTestedFirst = kMinMatch - 8;
    std::fill(table, table + kLzpTableEntries, 0);
    std::uint32_t end = 0;
    out[end++] = in[0];
    std::uint32_t context = in[0];
    const std::uint32_t matches_end = n < kMinMatch ? 0 : n - kMinMatch + 1; // none begins there
    for (std::uint32_t p = 1; p < n; ++p) {
        const std::uint32_t predicted = predict(table, context, p);
        if (p < matches_end &&
            get_u64(in + p + kTestedFirst) == get_u64(in + predicted + kTestedFirst)) [[unlikely]] {
            const std::uint32_t length = predicted == 0 ? 0 : match_length(in, n, p, predicted);
            if (length >= kMinMatch) {
                const std::uint8_t previous = in[p - 1];
                out[end++] = escape;
                std::uint32_t rest = length - kLengthBase;
                for (; rest > kMaxLengthByte; rest -= kMaxLengthByte) {
                    out[end++] = static_cast<std::uint8_t>(previous + 1);
                    if (end >= n) return n;
                }
                out[end++] = static_cast<std::uint8_t>(previous + 1 + rest);
                if (end >= n) return n;
                p += length - 1;
                context = context_at(in, p + 1);
                continue;
            }
        }
        const std::uint8_t byte = in[p];
        out[end++] = byte;
        if (byte == escape && predicted != 0) [[unlikely]]
            out[end++] = in[p - 1];
        if (end >= n) return n;
        context = context << 8 | byte;
    }
    return end;
}

// Reads the code that begins with the escape in[i], of a match or (length 0) of the escape byte
// itself, and leaves i at its last byte. Returns false when it is cut short.
bool read_length(const std::uint8_t *in, std::uint32_t code_len, std::uint8_t previous,
                 std::uint32_t &i, std::uint32_t &length) {
    static_assert(kMaxBlockSize + kBlockSlack < UINT32_MAX / kMaxLengthByte);
    std::uint32_t value = 0; // at most kMaxLengthByte and some for each byte of the code
    const std::uint8_t more = static_cast<std::uint8_t>(previous + 1);
    for (++i; i < code_len && in[i] == more; ++i)
        value += kMaxLengthByte;
    if (i >= code_len) return false;
    value += static_cast<std::uint8_t>(in[i] - previous);
    length = value == 0 ? 0 : value - 1 + kLengthBase;
    return true;
}

// Copies `length` bytes from `from`, which is before `end`, to `end`. A match may reach into its
// own copy: each step then has more to copy.
void repeat(std::uint8_t *out, std::uint32_t from, std::uint32_t end, std::uint32_t length) {
    while (length > 0) {
        const std::uint32_t bytes = std::min(length, end - from);
        std::memcpy(out + end, out + from, bytes);
        end += bytes;
        length -= bytes;
    }
}

} // namespace

void lzp_encode(std::uint32_t *table, std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                std::uint32_t &out_len, std::uint8_t lzp_off) {
    if (lzp_off != 0 || n < kMinBlock) return pass_on(in, n, out, out_len);
    const std::uint8_t escape = rarest_byte(in, n);
    const std::uint32_t end = write_code(table, in, n, escape, out);
    if (end >= n) return pass_on(in, n, out, out_len);
    out[end] = escape;
    out[end + 1] = 1;
    out_len = end + kLzpTrailerBytes;
}

bool lzp_decode(std::uint32_t *table, std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                std::uint32_t &out_len, std::uint32_t capacity) {
    if (undo_pass_on(in, len, out, out_len)) return true;
    if (len < kMinCoded) return false;
    const std::uint8_t escape = in[len - 2];
    const std::uint32_t code_len = len - kLzpTrailerBytes;

    std::fill(table, table + kLzpTableEntries, 0);
    out[0] = in[0];
    std::uint32_t end = 1;
    for (std::uint32_t i = 1; i < code_len; ++i) {
        const std::uint32_t plain = find_byte(in, i, code_len, escape) - i;
        if (plain > capacity - end) return false;
        std::memcpy(out + end, in + i, plain);
        i += plain;
        end += plain;
        if (i == code_len) break;
        if (end == capacity) return false;

        enter(table, out, end - plain, end);
        const std::uint32_t predicted = predict(table, context_at(out, end), end); // below `end`
        std::uint32_t length = 0;
        if (predicted != 0 && !read_length(in, code_len, out[end - 1], i, length)) return false;
        if (length > capacity - end) return false;
        if (length == 0) {
            out[end++] = escape;
        } else {
            repeat(out, predicted, end, length);
            end += length;
        }
    }
    out_len = end;
    return true;
}

} // namespace velk
