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

// Takes the prediction out of an entry and leaves `position`, which is above 0, in its place.
std::uint32_t predict(std::uint32_t *table, std::uint64_t entry, std::uint32_t position) {
    const std::uint32_t predicted = table[entry];
    table[entry] = position;
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

// Enters the positions from p, above 0, to `end` - 1 as the predictions of their contexts, up to
// the first for which stop(position, the prediction until then) holds; returns that one, or `end`.
// Four at a step: their hashes come from the same eight bytes. (2.4 times as fast.)
template<typename Stop>
std::uint32_t enter(std::uint32_t *table, const std::uint8_t *block, std::uint32_t p,
                    std::uint32_t end, Stop stop) {
    static_assert(std::uint64_t{kLzpTableEntries} << 15 <= 1ull << 32); // bits of the hashes
    while (p < end) {
        for (; p >= 4 && p + 4 <= end; p += 4) {
            const std::uint64_t bytes = get_u64_be(block + p - 4);
            const std::uint64_t hashes = bytes ^ bytes >> 3 ^ bytes >> 15;
#pragma GCC unroll 4
            for (std::uint32_t k = 0; k < 4; ++k) {
                const std::uint64_t entry = (hashes >> (32 - 8 * k)) % kLzpTableEntries;
                if (stop(p + k, predict(table, entry, p + k))) [[unlikely]]
                    return p + k;
            }
        }
        if (p == end || stop(p, predict(table, hash(context_at(block, p)), p))) break;
        ++p;
    }
    return p;
}

std::uint8_t rarest_byte(const std::uint8_t *block, std::uint32_t n) {
    const std::uint32_t free = find_free_byte(block, n);
    if (free != 256) return static_cast<std::uint8_t>(free);
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
// What needs no code is written at once when a match or a doubled escape byte follows. (1.5 times
// as fast as byte by byte.) Of a prediction, the last eight bytes that a match must have are
// compared first: about one in 50 passes. With two bytes, one in 10, it took 1.3 times as long.
std::uint32_t write_code(std::uint32_t *table, const std::uint8_t *in, std::uint32_t n,
                         std::uint8_t escape, std::uint8_t *out) {
    constexpr std::uint32_t kTestedFirst = kMinMatch - 8;
    std::fill(table, table + kLzpTableEntries, 0);
    const std::uint32_t matches_end = n < kMinMatch ? 0 : n - kMinMatch + 1; // none begins there

    std::uint32_t end = 0;     // of the code
    std::uint32_t written = 0; // bytes of the block that it stands for
    const auto write_up_to = [&](std::uint32_t p) {
        if (end + (p - written) >= n) return false;
        std::memcpy(out + end, in + written, p - written);
        end += p - written;
        written = p;
        return true;
    };

    std::uint32_t next_escape = find_byte(in, 1, n, escape);
    for (std::uint32_t p = 1;;) {
        std::uint32_t predicted = 0;
        const std::uint32_t stop = std::min(next_escape, matches_end);
        p = enter(table, in, p, stop, [&](std::uint32_t at, std::uint32_t prediction) {
            predicted = prediction;
            return get_u64(in + at + kTestedFirst) == get_u64(in + prediction + kTestedFirst) &&
                   std::memcmp(in + at, in + prediction, kTestedFirst) == 0;
        });
        if (p >= stop) {
            p = enter(table, in, p, next_escape, [](auto...) { return false; });
            if (p == n) break;
            predicted = predict(table, hash(context_at(in, p)), p);
        }
        const bool may_match = predicted != 0 && p < matches_end;
        const std::uint32_t length = may_match ? match_length(in, n, p, predicted) : 0;
        if (length >= kMinMatch) {
            if (!write_up_to(p)) return n;
            const std::uint8_t previous = in[p - 1];
            out[end++] = escape;
            std::uint32_t rest = length - kLengthBase;
            for (; rest > kMaxLengthByte; rest -= kMaxLengthByte) {
                out[end++] = static_cast<std::uint8_t>(previous + 1);
                if (end >= n) return n;
            }
            out[end++] = static_cast<std::uint8_t>(previous + 1 + rest);
            p += length;
            written = p;
        } else {
            if (p == next_escape && predicted != 0) {
                if (!write_up_to(p + 1)) return n;
                out[end++] = in[p - 1];
            }
            ++p;
        }
        if (p > next_escape) next_escape = find_byte(in, p, n, escape);
    }
    return write_up_to(n) ? end : n;
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

        enter(table, out, end - plain, end, [](auto...) { return false; });
        const std::uint32_t predicted = predict(table, hash(context_at(out, end)), end); // < `end`
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
