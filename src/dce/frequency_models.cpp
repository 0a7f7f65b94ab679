#include "dce/frequency_models.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <new>

namespace velk {
namespace {

// Each number 1 below what it stands for.
constexpr std::uint16_t kBuiltinCounts[] = {
#include "dce/builtin_counts.inc"
};
static_assert(sizeof kBuiltinCounts / sizeof *kBuiltinCounts == kContexts * (1 + kSymbols));

// By symbol, of one context.
constexpr auto builtin_counts(std::uint32_t context) {
    return [=](std::uint32_t x) { return kBuiltinCounts[context * (1 + kSymbols) + 1 + x] + 1u; };
}

constexpr bool only_bit_symbols_counted() {
    for (std::uint32_t c = kFirstBitContext; c < kContexts; ++c) {
        for (std::uint32_t x = kBitSymbols; x < kSymbols; ++x) {
            if (builtin_counts(c)(x) != 1) return false;
        }
    }
    return true;
}
static_assert(only_bit_symbols_counted(), "a bit model has no place for other counts");

template<typename CountOf>
FreqModel make_model(CountOf count_of) {
    FreqModel model{};
    std::uint32_t sum = 0;
    for (std::uint32_t x = 0; x < kSymbols; ++x) {
        sum += count_of(x);
        model.cumulative[x] = static_cast<std::uint16_t>(sum);
    }
    return model;
}

template<typename CountOf>
BitModel make_bit_model(CountOf count_of) {
    BitModel model{};
    for (std::uint32_t x = 0; x < kBitSymbols; ++x)
        model.cumulative += from_symbol(x, count_of(x));
    return model;
}

constexpr std::uint32_t halved(std::uint32_t count) {
    return count - count / 2;
}

} // namespace

Models &init_models(std::uint32_t *model_area) {
    void *aligned = model_area;
    std::size_t bytes = kModelAreaBytes;
    std::align(alignof(Models), sizeof(Models), aligned, bytes);
    Models &models = *new (aligned) Models;

    const FreqModel flat = make_model([](std::uint32_t) { return 1u; });
    std::fill(std::begin(models.distance), std::end(models.distance), flat);
    for (std::uint32_t c = 0; c < kFirstBitContext; ++c)
        model_at(models, c * kContextBytes) = make_model(builtin_counts(c));
    for (std::uint32_t c = kFirstBitContext; c < kContexts; ++c)
        models.bit[c - kFirstBitContext] = make_bit_model(builtin_counts(c));
    return models;
}

void count_and_halve(FreqModel &model, std::uint32_t x) {
    model = make_model([&](std::uint32_t i) {
        const std::uint32_t below = i == 0 ? 0 : model.cumulative[i - 1];
        return halved(model.cumulative[i] - below + (i == x ? kDistanceIncrement : 0));
    });
}

void count_and_halve(BitModel &model, std::uint32_t x) {
    model = make_bit_model([=](std::uint32_t i) {
        return halved(count_up_to(model, i) - count_below(model, i) + (i == x ? kBitIncrement : 0));
    });
}

} // namespace velk
