#include "plain_dce_decode.h"

#include "plain_stages.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

using Model = PlainDceState::Model;

struct Decoder : PlainDceState {
    const std::uint8_t *in;
    std::uint32_t end, code = 0, range = 0xFFFFFFFF, cursor = 1;
    std::uint32_t back, byte = 0, available = 0;
    bool failed = false;

    Decoder(const std::uint8_t *input, std::uint32_t length)
        : in(input), end(length), back(length) {
        for (int i = 0; i < 4; ++i)
            code = code << 8 | next_byte();
    }
    std::uint32_t next_byte() {
        if (cursor < end) return in[cursor++];
        failed = true;
        return 0;
    }
    // Summed counts of p and q.
    std::uint32_t symbol(const Model &p, const Model &q) {
        const std::uint32_t r = range / (p[0] + q[0]);
        const std::uint32_t target = code / r;
        std::uint32_t cum = 0;
        for (std::uint32_t x = 0; x < 32; ++x) {
            const std::uint32_t freq = p[1 + x] + q[1 + x];
            if (target < cum + freq) {
                code -= cum * r;
                for (range = freq * r; range < 1u << 24; range <<= 8)
                    code = code << 8 | next_byte();
                return x;
            }
            cum += freq;
        }
        failed = true;
        return 0;
    }
    std::uint32_t get(std::uint32_t k) {
        std::uint32_t v = 0;
        for (std::uint32_t got = 0; got < k;) {
            if (available == 0) {
                if (back == 0) {
                    failed = true;
                    return 0;
                }
                byte = in[--back];
                available = 8;
            }
            const std::uint32_t taken = std::min(k - got, available);
            v |= (byte & ((1u << taken) - 1)) << got;
            byte >>= taken;
            available -= taken;
            got += taken;
        }
        return v;
    }
    std::uint32_t value(std::uint32_t s, std::uint32_t run) {
        const auto [p, q] = choose(s, run);
        std::uint32_t v = symbol(*p, *q);
        count(*p, v, 24);
        count(*q, v, 24);
        if (v >= 8) {
            const std::uint32_t e = v - 8;
            Model &m = bit_model(e);
            const std::uint32_t two = symbol(m, m);
            failed |= two > 3;
            count(m, two, 14);
            v = 4 + ((4 + two) << e) + get(e);
        }
        remember(s, v, run);
        return v;
    }
};

// Positions known to hold a byte, ascending, the block's end behind them. The head is
// the start of the current run.
struct Pending {
    std::uint32_t position[257], count = 0;

    void remove_head() {
        for (std::uint32_t i = 0; i < count; ++i)
            position[i] = position[i + 1];
        --count;
    }
    void replace_head(std::uint32_t t) {
        std::uint32_t i = 0;
        for (; position[i + 1] < t; ++i)
            position[i] = position[i + 1];
        position[i] = t;
    }
};

bool decode_block(Decoder &decoder, std::uint32_t runs, std::uint8_t *out, std::uint32_t capacity,
                  std::uint32_t &length) {
    Pending pending;
    const std::uint32_t byte_values = decoder.value(0, 1);
    const std::uint32_t n = decoder.value(0, 1) - 1;
    if (byte_values < 1 || byte_values > 256 || n < 1 || n > capacity) return false;
    std::uint32_t first = 0;
    for (std::uint32_t k = 0; k < byte_values; ++k) {
        const std::uint32_t byte = decoder.value(0, 1);
        const std::uint32_t gap = decoder.value(k == 0 ? 0 : 1, 1);
        if ((gap == 0) != (k == 0) || gap >= n - first) return false;
        first += gap;
        out[first] = static_cast<std::uint8_t>(byte);
        pending.position[pending.count++] = first;
    }
    pending.position[pending.count] = n;

    length = 0;
    const std::uint32_t header = 2 * byte_values + 2;
    for (runs -= std::min(runs, header); runs > 0; --runs) {
        if (pending.count == 0 || decoder.failed) return false;
        const std::uint32_t p = pending.position[0];
        const std::uint8_t s = out[p];
        length = pending.position[1];
        std::memset(out + p, s, length - p);
        const std::uint32_t v = decoder.value(s, length - p);
        if (v == 0) {
            pending.remove_head();
            continue;
        }
        std::uint32_t t = length - 1 + v;
        for (std::uint32_t i = 1; i < pending.count && pending.position[i] <= t; ++i)
            ++t;
        if (t >= n) return false;
        pending.replace_head(t);
        out[t] = s;
    }
    return !decoder.failed;
}

} // namespace

bool plain_dce_decode(std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                      std::uint32_t &out_len, std::uint32_t capacity) {
    if (len == 0) return false;
    out_len = len - 1;
    if (in[len - 1] == 0) {
        std::swap(in, out);
        return true;
    }
    if (len < 5) return false;
    std::uint32_t value_count = 0;
    for (std::uint32_t i = 2; i <= 5; ++i)
        value_count = value_count << 8 | in[len - i];
    Decoder decoder(in, len - 5);
    return decode_block(decoder, value_count, out, capacity, out_len);
}
