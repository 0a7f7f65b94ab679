#include "filters/lzp.h"

#include "pipeline/stage.h"

#include <algorithm>

namespace {

constexpr std::uint32_t kMinBlock = 5;
constexpr std::uint32_t kMinMatch = 64;
constexpr std::uint32_t kLengthBase = kMinMatch - 1; // what a length code's M counts from
constexpr std::uint32_t kMaxLengthByte = 254;
constexpr std::uint32_t kTrailerBytes = 2;
// The shortest applied block: its first byte before the trailer.
constexpr std::uint32_t kMinCoded = 1 + kTrailerBytes;

// Takes the prediction for the context (its last byte lowest) and leaves `position`,
// which is above 0, in its place.
std::uint32_t predict(std::uint32_t *table, std::uint32_t context, std::uint32_t position) {
    std::uint32_t &entry = table[((context >> 15) ^ context ^ (context >> 3)) % kLzpTableEntries];
    const std::uint32_t predicted = entry;
    entry = position;
    return predicted;
}

// The context behind the byte at p; p is 3 at least.
std::uint32_t context_at(const std::uint8_t *block, std::uint32_t p) {
    return static_cast<std::uint32_t>(block[p - 3]) << 24 |
           static_cast<std::uint32_t>(block[p - 2]) << 16 |
           static_cast<std::uint32_t>(block[p - 1]) << 8 | block[p];
}

std::uint8_t rarest_byte(const std::uint8_t *block, std::uint32_t n) {
    std::uint32_t counts[256] = {};
    for (std::uint32_t p = 0; p < n; ++p)
        ++counts[block[p]];
    return static_cast<std::uint8_t>(std::min_element(counts, counts + 256) - counts);
}

// The length of the match of the bytes at p and at `predicted`, before p; less than
// kMinMatch stands for none. The last two bytes that a match must have are compared
// first: most candidates fail there.
std::uint32_t match_length(const std::uint8_t *block, std::uint32_t n, std::uint32_t p,
                           std::uint32_t predicted) {
    if (n - p < kMinMatch) return 0;
    const std::uint8_t *const here = block + p;
    const std::uint8_t *const there = block + predicted;
    if (here[kMinMatch - 2] != there[kMinMatch - 2] || here[kMinMatch - 1] != there[kMinMatch - 1])
        return 0;
    return static_cast<std::uint32_t>(std::mismatch(here, block + n, there).first - here);
}

// Writes the code; returns its length, or n when it would have n bytes or more. At most
// n + 1 bytes are written.
std::uint32_t write_code(std::uint32_t *table, const std::uint8_t *in, std::uint32_t n,
                         std::uint8_t escape, std::uint8_t *out) {
    std::fill(table, table + kLzpTableEntries, 0);
    std::uint32_t end = 0;
    out[end++] = in[0];
    std::uint32_t context = in[0];
    for (std::uint32_t p = 1; p < n; ++p) {
        const std::uint8_t previous = in[p - 1];
        const std::uint32_t predicted = predict(table, context, p);
        const std::uint32_t length = predicted == 0 ? 0 : match_length(in, n, p, predicted);
        if (length >= kMinMatch) {
            out[end++] = escape;
            std::uint32_t rest = length - kLengthBase;
            for (; rest > kMaxLengthByte; rest -= kMaxLengthByte) {
                out[end++] = static_cast<std::uint8_t>(previous + 1);
                if (end >= n) return n;
            }
            out[end++] = static_cast<std::uint8_t>(previous + 1 + rest);
            p += length - 1;
            context = context_at(in, p);
        } else {
            out[end++] = in[p];
            if (in[p] == escape && predicted != 0) out[end++] = previous;
            context = context << 8 | in[p];
        }
        if (end >= n) return n;
    }
    return end;
}

} // namespace

void lzp_encode(std::uint32_t *table, std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                std::uint32_t &out_len, std::uint8_t lzp_off) {
    if (lzp_off != 0 || n < kMinBlock) {
        pass_on(in, n, out, out_len);
        return;
    }
    const std::uint8_t escape = rarest_byte(in, n);
    const std::uint32_t end = write_code(table, in, n, escape, out);
    if (end >= n) {
        pass_on(in, n, out, out_len);
        return;
    }
    out[end] = escape;
    out[end + 1] = 1;
    out_len = end + kTrailerBytes;
}

bool lzp_decode(std::uint32_t *table, std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                std::uint32_t &out_len, std::uint32_t capacity) {
    if (n == 0) return false;
    if (in[n - 1] == 0) {
        drop_trailer(in, n, out, out_len);
        return true;
    }
    if (n < kMinCoded) return false;
    const std::uint8_t escape = in[n - 2];
    const std::uint32_t code_len = n - kTrailerBytes;

    std::fill(table, table + kLzpTableEntries, 0);
    std::uint32_t end = 0;
    out[end++] = in[0];
    std::uint32_t context = in[0];
    for (std::uint32_t i = 1; i < code_len; ++i) {
        if (end == capacity) return false;
        const std::uint8_t previous = out[end - 1];
        const std::uint32_t predicted = predict(table, context, end); // below `end`
        if (predicted == 0 || in[i] != escape) {
            out[end++] = in[i];
            context = context << 8 | in[i];
            continue;
        }
        // `value` stays below 2^32: 254 for each of less than 2^24 bytes.
        std::uint32_t value = 0;
        const std::uint8_t more = static_cast<std::uint8_t>(previous + 1);
        for (++i; i < code_len && in[i] == more; ++i)
            value += kMaxLengthByte;
        if (i >= code_len) return false;
        value += static_cast<std::uint8_t>(in[i] - previous);
        if (value == 0) {
            out[end++] = escape;
            context = context << 8 | escape;
            continue;
        }
        const std::uint32_t length = value - 1 + kLengthBase;
        if (length > capacity - end) return false;
        for (std::uint32_t k = 0; k < length; ++k, ++end)
            out[end] = out[predicted + k];
        context = context_at(out, end - 1);
    }
    out_len = end;
    return true;
}
