#include "plain_coder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace {

constexpr std::uint16_t kStored[] = {
#include "dce/builtin_counts.inc"
};

// Counter 0 is the total of the others, which count symbols 0 to 31.
using Model = std::uint32_t[33];

void start_models(Model *models) {
    for (std::uint32_t i = 0; i < kPlainCounters; ++i) {
        models[i / 33][i % 33] = i < 150 * 33 ? kStored[i] + 1u : i % 33 == 0 ? 32 : 1;
    }
}

void halve_if_large(Model &model) {
    if (model[0] <= 65535) return;
    model[0] = 0;
    for (int i = 1; i <= 32; ++i) {
        model[i] -= model[i] / 2;
        model[0] += model[i];
    }
}

void count(Model &model, std::uint32_t symbol, std::uint32_t amount) {
    model[1 + symbol] += amount;
    model[0] += amount;
}

// What both directions remember, and the choice of models.
struct Coder {
    struct Stats {
        std::uint32_t slow, last, small;
        std::int32_t fast;
    };

    Model *models;
    std::uint32_t previous = 0;
    Stats stats[256] = {};

    explicit Coder(Model *m) : models(m) {}
    static std::uint32_t bucket(std::uint32_t x) {
        return x <= 4 ? x : 4 + static_cast<std::uint32_t>(std::bit_width(x - 4));
    }
    // The primary model; the secondary one is `set` * 150 behind it.
    Model &choose(std::uint32_t s, std::uint32_t run, std::uint32_t &set) const {
        const Stats &of = stats[s];
        std::uint32_t context =
            (bucket(of.slow) + 15 * bucket(static_cast<std::uint32_t>(of.fast))) >> 4;
        if (of.small >= 2) context += of.small >= 17 ? 29 : 30;
        if (of.last < 20) context += 30;
        if (run >= 3) context += 30;
        const std::uint32_t d = previous - 2;
        set = 1 + (previous <= 2 ? previous
                                 : static_cast<std::uint32_t>(std::bit_width(d % 256) +
                                                              std::bit_width(d >> 8)));
        return models[context];
    }
    void remember(std::uint32_t s, std::uint32_t v, std::uint32_t run) {
        Stats &of = stats[s];
        const std::int32_t value = static_cast<std::int32_t>(v);
        const std::int32_t term = static_cast<std::int32_t>(std::min(run - 1, 5u));
        const std::int32_t t = 4 * value + 2 * of.fast - term;
        of.last = v;
        of.fast = t < 0 ? 0 : value < of.fast ? t / 3 : t / 4;
        of.slow = (15 * of.slow + 3 * v) >> 4;
        previous = v & 4095;
        if (v < 3) {
            if (of.small < 255) ++of.small;
        } else if (v >= 8) {
            of.small >>= 1;
        }
    }
};

struct Encoder : Coder {
    std::uint8_t *out;
    std::uint32_t back; // raw words are stored below it
    std::uint32_t low = 0, range = 0xFFFFFFFF, carry = 0, cache = 0, held = 0, written = 0;
    std::uint32_t acc = 0, used = 0;
    std::uint32_t value_count = 0;

    Encoder(Model *m, std::uint8_t *output, std::uint32_t n) : Coder(m), out(output), back(n) {}

    void shift_low() {
        if (low < 0xFF000000u || carry != 0) {
            out[written++] = static_cast<std::uint8_t>(cache + carry);
            for (; held > 0; --held)
                out[written++] = static_cast<std::uint8_t>(0xFF + carry);
            cache = low >> 24;
        } else {
            ++held;
        }
        low <<= 8;
        carry = 0;
    }
    void code(std::uint32_t cum, std::uint32_t freq, std::uint32_t total) {
        const std::uint32_t r = range / total;
        const std::uint32_t t = cum * r;
        if (low > 0xFFFFFFFFu - t) carry = 1;
        low += t;
        for (range = freq * r; range < 1u << 24; range <<= 8)
            shift_low();
    }
    void store_word() {
        if (back < 4) return;
        back -= 4;
        for (std::uint32_t i = 0; i < 4; ++i)
            out[back + i] = static_cast<std::uint8_t>(acc >> (24 - 8 * i));
    }
    void put(std::uint32_t v, std::uint32_t k) {
        acc |= v << used;
        used += k;
        if (used < 32) return;
        store_word();
        used -= 32;
        acc = v >> (k - used);
    }
    bool has_room() const { return std::uint64_t{written} + held + 4 <= back; }

    bool value(std::uint32_t v, std::uint32_t s, std::uint32_t run) {
        ++value_count;
        std::uint32_t set, e = 0, symbol = v;
        Model &p = choose(s, run, set);
        Model &q = (&p)[150 * set];
        remember(s, v, run);
        if (v >= 8) {
            e = static_cast<std::uint32_t>(std::bit_width(v - 4)) - 3;
            symbol = 8 + e;
        }
        halve_if_large(p);
        halve_if_large(q);
        std::uint32_t cum = 0;
        for (std::uint32_t i = 1; i <= symbol; ++i)
            cum += p[i] + q[i];
        code(cum, p[1 + symbol] + q[1 + symbol], p[0] + q[0]);
        count(p, symbol, 24);
        count(q, symbol, 24);
        if (v >= 8) {
            const std::uint32_t two = (v - 4) >> e & 3;
            Model &m = models[120 + e];
            halve_if_large(m);
            cum = 0;
            for (std::uint32_t i = 1; i <= two; ++i)
                cum += 2 * m[i];
            code(cum, 2 * m[1 + two], 2 * m[0]);
            count(m, two, 14);
            put((v - 4) & ((1u << e) - 1), e);
        }
        return has_room();
    }
};

struct Decoder : Coder {
    const std::uint8_t *in;
    std::uint32_t end, code = 0, range = 0xFFFFFFFF, cursor = 1;
    std::uint32_t back, byte = 0, available = 0;
    bool failed = false;

    Decoder(Model *m, const std::uint8_t *input, std::uint32_t length)
        : Coder(m), in(input), end(length), back(length) {
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
        std::uint32_t set;
        Model &p = choose(s, run, set);
        Model &q = (&p)[150 * set];
        halve_if_large(p);
        halve_if_large(q);
        std::uint32_t v = symbol(p, q);
        count(p, v, 24);
        count(q, v, 24);
        if (v >= 8) {
            const std::uint32_t e = v - 8;
            Model &m = models[120 + e];
            halve_if_large(m);
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

bool encode_block(Encoder &encoder, const std::uint8_t *in, std::uint32_t n,
                  std::uint32_t *next_pos) {
    Pending pending;
    std::uint32_t last[256];
    std::fill(last, last + 256, n);
    for (std::uint32_t p = 0; p < n; ++p) {
        std::uint32_t &previous = last[in[p]];
        (previous == n ? pending.position[pending.count++] : next_pos[previous]) = p;
        previous = p;
    }
    for (const std::uint32_t p : last) {
        if (p != n) next_pos[p] = 0;
    }
    pending.position[pending.count] = n;

    bool fits = encoder.value(pending.count, 0, 1) && encoder.value(n + 1, 0, 1);
    for (std::uint32_t k = 0; fits && k < pending.count; ++k) {
        const std::uint32_t first = pending.position[k];
        fits = encoder.value(in[first], 0, 1) &&
               encoder.value(k == 0 ? 0 : first - pending.position[k - 1], k == 0 ? 0 : 1, 1);
    }
    for (std::uint32_t p = 0, end; fits && p < n; p = end) {
        for (end = p + 1; end < n && in[end] == in[p];)
            ++end;
        const std::uint32_t t = next_pos[end - 1];
        std::uint32_t v = 0;
        if (t == 0) {
            pending.remove_head();
        } else {
            std::uint32_t known = 0;
            while (pending.position[known + 1] < t)
                ++known;
            v = t - (end - 1) - known;
            pending.replace_head(t);
        }
        fits = encoder.value(v, in[p], end - p);
    }
    for (int i = 0; fits && i < 5; ++i)
        encoder.shift_low();
    if (encoder.used > 0) encoder.store_word();
    return fits && encoder.has_room();
}

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

void plain_coder_encode(std::uint32_t *next_pos, std::uint32_t *models, std::uint8_t *&in,
                        std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len) {
    Model *const model = reinterpret_cast<Model *>(models);
    start_models(model);
    Encoder encoder(model, out, n);
    if (n == 0 || !encode_block(encoder, in, n, next_pos)) {
        std::swap(in, out);
        out[n] = 0;
        out_len = n + 1;
        return;
    }
    std::memmove(out + encoder.written, out + encoder.back, n - encoder.back);
    out_len = encoder.written + n - encoder.back;
    for (int shift = 0; shift < 32; shift += 8)
        out[out_len++] = static_cast<std::uint8_t>(encoder.value_count >> shift);
    out[out_len++] = 1;
}

bool plain_coder_decode(std::uint32_t *models, std::uint8_t *&in, std::uint32_t len,
                        std::uint8_t *&out, std::uint32_t &out_len, std::uint32_t capacity) {
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
    Model *const model = reinterpret_cast<Model *>(models);
    start_models(model);
    Decoder decoder(model, in, len - 5);
    return decode_block(decoder, value_count, out, capacity, out_len);
}
