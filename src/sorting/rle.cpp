#include "sorting/rle.h"

#include "pipeline/byte_order.h"
#include "pipeline/stage.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace velk {
namespace {

// A block is declined when it has more than one interrupted run in so many bytes.
constexpr std::uint32_t kMinBytesPerInterruption = 13;
// Run lengths are below 2^24.
constexpr std::uint32_t kMaxLengthBits = 23;
// Most runs are no longer; they are written at once (1.1 times as fast).
constexpr std::uint32_t kShortRun = 16;

// The first position from `p` on, at most `end`, whose byte is not `v`.
std::uint32_t run_end(const std::uint8_t *block, std::uint32_t p, std::uint32_t end,
                      std::uint8_t v) {
    while (p < end && block[p] == v)
        ++p;
    return p;
}

// Writes heads forwards from out[0] and bits backwards from out[n - 1]. Returns false
// when the stage declines; up to 3 bytes behind out[n - 1] are then written, too.
bool write_runs(const std::uint8_t *in, std::uint32_t n, std::uint8_t *out, std::uint32_t &heads,
                std::uint32_t &bits) {
    // By byte value, the last position of its last run. None yet is -1: a run that starts at
    // position 1 therefore always counts as interrupted, which is part of the format.
    std::int32_t last_end[256];
    std::fill(std::begin(last_end), std::end(last_end), -1);
    std::uint32_t interrupted = 0;
    heads = 0;
    bits = 0;
    for (std::uint32_t start = 0; start < n;) {
        const std::uint8_t v = in[start];
        const std::uint32_t end = run_end(in, start + 1, n, v);
        if (static_cast<std::int32_t>(start) - last_end[v] == 2) ++interrupted;
        last_end[v] = static_cast<std::int32_t>(end) - 1;

        out[heads++] = v;
        if (end - start >= 2) out[heads++] = v;
        for (std::uint32_t x = end - start - 1; x > 1; x /= 2) {
            out[heads++] = v;
            ++bits;
            out[n - bits] = x % 2; // bits < n: at least three heads came before
            if (heads + bits > n) return false;
        }
        if (heads + bits > n) return false;
        start = end;
    }
    return interrupted * kMinBytesPerInterruption <= n;
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
    if (len == 0) return false;
    if (in[len - 1] == 0) {
        drop_trailer(in, len, out, out_len);
        return true;
    }
    if (len < kRleTrailerBytes) return false;
    const std::uint32_t heads = get_u32(in + (len - kRleTrailerBytes));
    std::uint32_t bit_end = len - kRleTrailerBytes; // bits are taken from before it
    if (heads > bit_end) return false;

    std::uint32_t n = 0;
    for (std::uint32_t start = 0; start < heads;) {
        const std::uint8_t v = in[start];
        const std::uint32_t end = run_end(in, start + 1, heads, v);
        const std::uint32_t copies = end - start;
        std::uint32_t run = copies;
        if (copies >= 3) {
            const std::uint32_t length_bits = copies - 2;
            if (length_bits > kMaxLengthBits || length_bits > bit_end - heads) return false;
            run = 1u << length_bits;
            for (std::uint32_t i = 0; i < length_bits; ++i) {
                if (in[--bit_end] != 0) run |= 1u << i;
            }
            ++run;
        }
        if (run > capacity - n) return false;
        if (run <= kShortRun && capacity - n >= kShortRun) {
            std::memset(out + n, v, kShortRun); // what is too much is overwritten
        } else {
            std::memset(out + n, v, run);
        }
        n += run;
        start = end;
    }
    out_len = n;
    return true;
}

} // namespace velk
