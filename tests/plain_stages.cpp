#include "plain_stages.h"

#include <algorithm>
#include <array>
#include <bit>
#include <numeric>
#include <set>

void plain_inverse_bwt(const std::uint8_t *last_column, std::uint32_t n,
                       std::uint32_t primary_index, std::uint32_t *rows, std::uint8_t *block) {
    std::uint32_t counts[256] = {}, first[256] = {};
    for (std::uint32_t row = 0; row < n; ++row)
        rows[row] = counts[last_column[row]]++ << 8 | last_column[row];
    for (unsigned v = 1; v < 256; ++v)
        first[v] = first[v - 1] + counts[v - 1];
    std::uint32_t row = primary_index - 1;
    for (std::uint32_t p = n; p > 0; --p) {
        block[p] = static_cast<std::uint8_t>(rows[row]);
        row = (rows[row] >> 8) + first[rows[row] & 255];
    }
    block[0] = block[n]; // the walk begins with the block's first byte
}

namespace {

// Counter 0 is the total of the others, which count symbols 0 to 31.
using Model = std::array<std::uint32_t, 33>;

constexpr std::uint16_t kStored[] = {
#include "dce/builtin_counts.inc"
};
constexpr std::uint32_t kModels = 150; // of a set

std::uint32_t bits_of(std::uint32_t x) {
    return static_cast<std::uint32_t>(std::bit_width(x));
}

std::uint32_t bucket(std::uint32_t x) {
    return x <= 4 ? x : 4 + bits_of(x - 4);
}

Model &halved_if_large(Model &model) {
    if (model[0] <= 65535) return model;
    for (std::uint32_t &count : model)
        count -= count / 2;
    model[0] = std::accumulate(model.begin() + 1, model.end(), 0u);
    return model;
}

// A code that is one long number, each symbol an addition to its end.
struct RangeEncoder {
    Bytes digits = Bytes(5);
    std::uint64_t range = 0xFFFFFFFF;

    void encode(std::uint32_t cum, std::uint32_t freq, std::uint32_t total) {
        const std::uint64_t r = range / total;
        std::uint64_t amount = cum * r;
        for (std::size_t k = digits.size(); amount != 0; amount >>= 8) {
            amount += digits[--k];
            digits[k] = static_cast<std::uint8_t>(amount);
        }
        for (range = freq * r; range < 1u << 24; range *= 256)
            digits.push_back(0);
    }
};

void count(Model &model, std::uint32_t symbol, std::uint32_t amount) {
    model[1 + symbol] += amount;
    model[0] += amount;
}

// What the coder remembers, and the models that it chooses by it.
struct State {
    struct Stats {
        std::uint32_t slow, last, small;
        std::int32_t fast;
    };
    std::vector<Model> models = std::vector<Model>(14 * kModels);
    std::uint32_t previous = 0;
    Stats stats[256] = {};

    State() {
        for (std::size_t i = 0; i < models.size(); ++i) {
            for (std::size_t k = 0; k < 33; ++k)
                models[i][k] = i < kModels ? kStored[33 * i + k] + 1u : k == 0 ? 32 : 1;
        }
    }

    // The primary and the secondary model for the value behind a run of byte s, neither
    // above the limit.
    std::pair<Model *, Model *> choose(std::uint32_t s, std::uint32_t run) {
        const Stats &of = stats[s];
        const std::uint32_t fast = static_cast<std::uint32_t>(of.fast);
        std::uint32_t context = (bucket(of.slow) + 15 * bucket(fast)) >> 4;
        if (of.small >= 2) context += of.small >= 17 ? 29 : 30;
        if (of.last < 20) context += 30;
        if (run >= 3) context += 30;
        const std::uint32_t d = previous - 2;
        const std::uint32_t set = previous <= 2 ? previous : bits_of(d % 256) + bits_of(d >> 8);
        return {&halved_if_large(models[context]),
                &halved_if_large(models[context + kModels * (set + 1)])};
    }

    Model &bit_model(std::uint32_t e) { return halved_if_large(models[120 + e]); }

    void remember(std::uint32_t s, std::uint32_t v, std::uint32_t run) {
        Stats &of = stats[s];
        const std::int32_t value = static_cast<std::int32_t>(v);
        const std::int32_t t = 4 * value + 2 * of.fast - static_cast<int>(std::min(run - 1, 5u));
        of.last = v;
        of.fast = t < 0 ? 0 : value < of.fast ? t / 3 : t / 4;
        of.slow = (15 * of.slow + 3 * v) >> 4;
        previous = v & 4095;
        if (v < 3) of.small = std::min(of.small + 1, 255u);
        if (v >= 8) of.small >>= 1;
    }
};

} // namespace

Bytes plain_dce_encode(const Bytes &block) {
    State state;
    RangeEncoder encoder;
    std::vector<bool> raw;
    std::uint32_t value_count = 0;
    // The symbol's share of the summed counts.
    const auto code = [&](const Model &p, const Model &q, std::uint32_t symbol) {
        std::uint32_t cum = 0;
        for (std::uint32_t i = 1; i <= symbol; ++i)
            cum += p[i] + q[i];
        encoder.encode(cum, p[1 + symbol] + q[1 + symbol], p[0] + q[0]);
    };
    const auto value = [&](std::size_t number, std::uint32_t s, std::size_t run_length) {
        const auto v = static_cast<std::uint32_t>(number);
        const auto run = static_cast<std::uint32_t>(run_length);
        const auto [p, q] = state.choose(s, run);
        const std::uint32_t e = v < 8 ? 0 : bits_of(v - 4) - 3, symbol = v < 8 ? v : 8 + e;
        code(*p, *q, symbol);
        count(*p, symbol, 24);
        count(*q, symbol, 24);
        if (v >= 8) {
            const std::uint32_t two = (v - 4) >> e & 3;
            Model &m = state.bit_model(e);
            code(m, m, two);
            count(m, two, 14);
            for (std::uint32_t i = 0; i < e; ++i)
                raw.push_back((v - 4) >> i & 1);
        }
        state.remember(s, v, run);
        ++value_count;
    };

    const auto begin = block.begin(), end = block.end();
    value(std::set(begin, end).size(), 0, 1);
    value(block.size() + 1, 0, 1);
    auto first_before = begin;
    for (auto p = begin; p != end; ++p) {
        if (std::find(begin, p, *p) != p) continue;
        value(*p, 0, 1);
        value(static_cast<std::size_t>(p - first_before), p == begin ? 0 : 1, 1);
        first_before = p;
    }
    for (auto p = begin, run_end = p; p != end; p = run_end) {
        run_end = std::find_if(p, end, [&](std::uint8_t b) { return b != *p; });
        const auto next = std::find(run_end, end, *p);
        const std::size_t passed = static_cast<std::size_t>(next - run_end);
        value(next == end ? 0 : passed + 1 - std::set(run_end, next).size(), *p,
              static_cast<std::size_t>(run_end - p));
    }

    raw.resize((raw.size() + 31) / 32 * 32);
    Bytes raw_bytes(raw.size() / 8);
    for (std::size_t i = 0; i < raw.size(); ++i)
        raw_bytes[raw_bytes.size() - 1 - i / 8] |= static_cast<std::uint8_t>(raw[i] << i % 8);
    if (encoder.digits.size() + 4 + raw_bytes.size() > block.size()) return join({block, {0}});
    Bytes trailer;
    for (int shift = 0; shift < 32; shift += 8)
        trailer.push_back(static_cast<std::uint8_t>(value_count >> shift));
    return join({encoder.digits, raw_bytes, trailer, {1}});
}
