#include "filters/flt32.h"

#include "base/byte_order.h"
#include "base/bytes.h"
#include "pipeline/stage.h"

#include <algorithm>
#include <bit>

namespace velk {
namespace {

constexpr std::uint8_t kCall = 0xE8;
constexpr std::uint32_t kOperandBytes = 4;

// Copies n bytes, with convert(operand, position in the file) in place of every call's
// operand. other(byte) sees every byte outside an operand.
template<typename Convert, typename Other>
void copy_converted(const std::uint8_t *in, std::uint32_t n, std::uint8_t *out, std::uint32_t base,
                    Convert convert, Other other) {
    for (std::uint32_t p = 0; p < n; ++p) {
        const std::uint8_t byte = in[p];
        out[p] = byte;
        other(byte);
        if (byte == kCall && n - p > kOperandBytes) {
            put_u32(out + p + 1, convert(get_u32(in + p + 1), base + p));
            p += kOperandBytes;
        }
    }
}

bool is_text(std::uint32_t zeros, std::uint32_t spaces) {
    return spaces > zeros;
}

} // namespace

CallStatistics find_calls(const std::uint8_t *block, std::uint32_t n) {
    constexpr std::uint32_t kLikelyBits = 24, kMaxReachBits = 29;
    std::uint32_t zeros = 0, spaces = 0; // in operands
    std::uint32_t all = 0;
    std::uint32_t calls[33] = {}; // by the bits of how far from the start they go
    std::uint32_t inside = 0;     // of those that stay in the block
    for (std::uint32_t p = 0; (p = find_byte(block, p, n, kCall)) + kOperandBytes < n;
         p += 1 + kOperandBytes) {
        for (std::uint32_t i = 1; i <= kOperandBytes; ++i) {
            zeros += block[p + i] == 0;
            spaces += block[p + i] == ' ';
        }
        const std::uint32_t target = get_u32(block + p + 1) + p;
        ++calls[std::bit_width(std::min(target, 0 - target))];
        inside += target < n;
        ++all;
    }
    CallStatistics found = {};
    std::uint32_t sum = 0, within_reach = 0;
    for (std::uint32_t bits = 0; bits <= kMaxReachBits; ++bits) {
        sum += calls[bits];
        if (bits == kLikelyBits && sum > n / 400) {
            const auto counts = count_bytes(block, n);
            found.is_code = !is_text(counts[0] - zeros, counts[' '] - spaces);
        }
        // Is this more than one in 50, and than twice of what random operands would give?
        if (calls[bits] <= sum / 50 || calls[bits] <= all >> (31 - bits)) continue;
        found.reach = 1u << bits;
        within_reach = sum;
    }
    if (inside >= within_reach - within_reach / 50) found.reach = 0;
    return found;
}

void flt32_encode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                  std::uint32_t file_size, std::uint8_t flt32_off) {
    const bool part_of_file = file_size > n;
    const std::uint32_t base = part_of_file ? file_size : 0;
    const std::uint64_t wide_range = part_of_file ? 2 * std::uint64_t{file_size} : n;
    if (flt32_off != 0 || base + wide_range + n > 0xFFFFFFFFu) return pass_on(in, n, out, out_len);
    const std::uint32_t range = static_cast<std::uint32_t>(wide_range);
    std::uint32_t zeros = 0;
    std::uint32_t spaces = 0;
    copy_converted(
        in, n, out, base,
        [=](std::uint32_t operand, std::uint32_t position) {
            const std::uint32_t target = operand + position;
            if (target < range) return target;
            return target < range + position ? operand - range : operand;
        },
        [&](std::uint8_t byte) {
            zeros += byte == 0;
            spaces += byte == ' ';
        });
    if (is_text(zeros, spaces)) return pass_on(in, n, out, out_len);
    put_u32(out + n, base);
    put_u32(out + n + 4, range);
    out[n + 8] = 1;
    out_len = n + kFlt32TrailerBytes;
}

bool flt32_decode(std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out, std::uint32_t &out_len,
                  std::uint32_t capacity) {
    if (undo_pass_on(in, len, out, out_len)) return true;
    if (len <= kFlt32TrailerBytes || len > capacity) return false;
    const std::uint32_t block_len = len - kFlt32TrailerBytes;
    const std::uint32_t base = get_u32(in + block_len);
    const std::uint32_t range = get_u32(in + block_len + 4);
    copy_converted(
        in, block_len, out, base,
        [=](std::uint32_t stored, std::uint32_t position) {
            if (stored < range) return stored - position;
            const bool wraps = stored + position < position;
            return wraps ? stored + range : stored;
        },
        [](std::uint8_t) {});
    out_len = block_len;
    return true;
}

} // namespace velk
