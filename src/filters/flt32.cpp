#include "filters/flt32.h"

#include "base/byte_order.h"
#include "base/bytes.h"
#include "base/vectors.h"
#include "pipeline/stage.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace velk {
namespace {

constexpr std::uint8_t kCall = 0xE8;
constexpr std::uint32_t kOperandBytes = 4;

// Calls visit(p) for the position of each call.
template<typename Visit>
void for_each_call(const std::uint8_t *block, std::uint32_t n, Visit visit) {
    for (std::uint32_t p = 0; (p = find_byte(block, p, n, kCall)) + kOperandBytes < n;
         p += 1 + kOperandBytes)
        visit(p);
}

// Copies n bytes, with convert(operand, position in the file) in place of every call's operand.
template<typename Convert>
void copy_converted(const std::uint8_t *in, std::uint32_t n, std::uint8_t *out, std::uint32_t base,
                    Convert convert) {
    std::memcpy(out, in, n);
    for_each_call(in, n, [=](std::uint32_t p) {
        put_u32(out + p + 1, convert(get_u32(in + p + 1), base + p));
    });
}

// Whether there are more spaces than zeros, not counting those in operands.
bool is_text(const std::uint8_t *block, std::uint32_t n) {
    std::uint32_t counts[2] = {}; // of spaces, of zeros
    std::uint32_t p = count_in_lanes(0, n, counts, [=](std::uint32_t at, ByteLanes *lanes) {
        lanes[0] -= load<ByteLanes>(block + at) == ' ';
        lanes[1] -= load<ByteLanes>(block + at) == 0;
    });
    const auto add = [&](std::uint8_t byte, std::uint32_t times) {
        counts[0] += byte == ' ' ? times : 0;
        counts[1] += byte == 0 ? times : 0;
    };
    for (; p < n; ++p)
        add(block[p], 1);
    for_each_call(block, n, [&](std::uint32_t call) {
        for (std::uint32_t i = 1; i <= kOperandBytes; ++i)
            add(block[call + i], 0u - 1);
    });
    return counts[0] > counts[1];
}

} // namespace

CallStatistics find_calls(const std::uint8_t *block, std::uint32_t n) {
    constexpr std::uint32_t kLikelyBits = 24, kMaxReachBits = 29;
    std::uint32_t all = 0;
    std::uint32_t calls[33] = {}; // by the bits of how far from the start they go
    std::uint32_t inside = 0;     // of those that stay in the block
    for_each_call(block, n, [&](std::uint32_t p) {
        const std::uint32_t target = get_u32(block + p + 1) + p;
        ++calls[std::bit_width(std::min(target, 0 - target))];
        inside += target < n;
        ++all;
    });
    CallStatistics found = {};
    std::uint32_t sum = 0, within_reach = 0;
    for (std::uint32_t bits = 0; bits <= kMaxReachBits; ++bits) {
        sum += calls[bits];
        if (bits == kLikelyBits) found.is_code = sum > n / 400 && !is_text(block, n);
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
    if (is_text(in, n)) return pass_on(in, n, out, out_len);
    copy_converted(in, n, out, base, [=](std::uint32_t operand, std::uint32_t position) {
        const std::uint32_t target = operand + position;
        if (target < range) return target;
        return target < range + position ? operand - range : operand;
    });
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
    copy_converted(in, block_len, out, base, [=](std::uint32_t stored, std::uint32_t position) {
        if (stored < range) return stored - position;
        const bool wraps = stored + position < position;
        return wraps ? stored + range : stored;
    });
    out_len = block_len;
    return true;
}

} // namespace velk
