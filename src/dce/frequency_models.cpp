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

constexpr std::uint32_t builtin_count(std::uint32_t context, std::uint32_t x) {
    return kBuiltinCounts[context * (1 + kSymbols) + 1 + x] + 1u;
}

constexpr bool only_bit_symbols_counted() {
    for (std::uint32_t c = kFirstBitContext; c < kContexts; ++c) {
        for (std::uint32_t x = kBitSymbols; x < kSymbols; ++x) {
            if (builtin_count(c, x) != 1) return false;
        }
    }
    return true;
}
static_assert(only_bit_symbols_counted(), "a bit model has no place for other counts");

FreqModel flat_model() {
    FreqModel model{};
    for (std::uint32_t x = 0; x < kSymbols; ++x)
        model.cumulative[x] = static_cast<std::uint16_t>(x + 1);
    return model;
}

FreqModel builtin_model(std::uint32_t context) {
    FreqModel model{};
    std::uint32_t sum = 0;
    for (std::uint32_t x = 0; x < kSymbols; ++x) {
        sum += builtin_count(context, x);
        model.cumulative[x] = static_cast<std::uint16_t>(sum);
    }
    return model;
}

} // namespace

Models &init_models(std::uint32_t *model_area) {
    void *aligned = model_area;
    std::size_t bytes = kModelAreaBytes;
    std::align(alignof(Models), sizeof(Models), aligned, bytes);
    Models &models = *new (aligned) Models;

    const FreqModel flat = flat_model();
    for (std::uint32_t c = 0; c < std::size(models.context); ++c) {
        // Those behind the distance contexts only have to hold valid counts.
        models.context[c].primary = c < kFirstBitContext ? builtin_model(c) : flat;
        std::fill(std::begin(models.context[c].secondary), std::end(models.context[c].secondary),
                  flat);
    }
    for (std::uint32_t c = kFirstBitContext; c < kContexts; ++c) {
        BitModel &bit = models.bit[c - kFirstBitContext];
        bit.cumulative = 0;
        for (std::uint32_t x = 0; x < kBitSymbols; ++x)
            bit.cumulative += builtin_count(c, x) * 0x0001000100010001u << 16 * x;
    }
    return models;
}

void count_and_halve(FreqModel &model, std::uint32_t x) {
    std::uint32_t below = 0, sum = 0;
    for (std::uint32_t i = 0; i < kSymbols; ++i) {
        const std::uint32_t count = model.cumulative[i] - below + (i == x ? kDistanceIncrement : 0);
        below = model.cumulative[i];
        sum += count - count / 2;
        model.cumulative[i] = static_cast<std::uint16_t>(sum);
    }
}

void count_and_halve(BitModel &model, std::uint32_t x) {
    std::uint64_t halved = 0;
    for (std::uint32_t i = 0; i < kBitSymbols; ++i) {
        const std::uint32_t count =
            count_up_to(model, i) - count_below(model, i) + (i == x ? kBitIncrement : 0);
        halved += (count - count / 2) * 0x0001000100010001u << 16 * i;
    }
    model.cumulative = halved;
}

} // namespace velk
