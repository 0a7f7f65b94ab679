// The adaptive frequency models of the DCE stage.
//
//   Models:     | context 0 | context 1 | ... | context 122 | bit models |
//   a context:  | primary | secondary 0 | ... | secondary 12 |
//
// Contexts 0..119, distance contexts: a distance symbol is coded with the primary and
// one secondary model of its context, their counts summed. Contexts 120..149, bit
// contexts: two bits are coded with a bit model alone.
//
// A model holds cumulative counts: number i is how often symbols 0 to i were seen, the
// last one is the total. So a symbol's share is two reads, and a row of 32 numbers of
// 16 bits is one cache line. No count is 0, and no total above kRescaleLimit.
#pragma once

#include "base/vectors.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace velk {

constexpr std::uint32_t kSymbols = 32;
constexpr std::uint32_t kContexts = 150;
constexpr std::uint32_t kFirstBitContext = 120;
constexpr std::uint32_t kBitSymbols = 4;
constexpr std::uint32_t kSecondarySets = 13;

// An increment that takes a total above it halves the counts.
constexpr std::uint32_t kRescaleLimit = 65535;
constexpr std::uint32_t kDistanceIncrement = 24;
constexpr std::uint32_t kBitIncrement = 14;

struct alignas(64) FreqModel {
    std::uint16_t cumulative[kSymbols];
};

// Symbols 0 to 3 of a bit context: cumulative count i in bits 16 i and up. The other
// 28 are never coded, and their counts stay 1.
struct BitModel {
    std::uint64_t cumulative;
};
constexpr std::uint32_t kUncodedCounts = kSymbols - kBitSymbols;

// `count` in each cumulative count from number x on.
constexpr std::uint64_t from_symbol(std::uint32_t x, std::uint32_t count) {
    return count * 0x0001000100010001u << 16 * x;
}

// A distance context's models, the primary one first. They are told by where they are, in bytes
// from the first context's: a value waits for the place of its models. (With numbers in place of
// bytes the DCE takes 4 % longer.)
constexpr std::uint32_t kModelBytes = sizeof(FreqModel);
constexpr std::uint32_t kContextBytes = (1 + kSecondarySets) * kModelBytes;

struct Models {
    // Intact blocks lead to contexts below kFirstBitContext, damaged ones to at most 122.
    FreqModel distance[(kFirstBitContext + 3) * (1 + kSecondarySets)];
    BitModel bit[kContexts - kFirstBitContext];
};

// More than Models needs: the printed memory figure is fixed.
constexpr std::uint32_t kModelAreaBytes = 336600;
static_assert(sizeof(Models) + alignof(Models) <= kModelAreaBytes);

// The models in a model area of kModelAreaBytes, set up for a block: the primary set
// and the bit models from the built-in counts, all others with every count 1.
Models &init_models(std::uint32_t *model_area);

// The model of a distance context that is at `place`, in bytes. Of the last context, 122, all are
// there.
inline FreqModel &model_at(Models &models, std::uint32_t place) {
    return *reinterpret_cast<FreqModel *>(reinterpret_cast<std::byte *>(models.distance) + place);
}

// Halves the counts, rounded up, after symbol x has been counted.
void count_and_halve(FreqModel &model, std::uint32_t x);
void count_and_halve(BitModel &model, std::uint32_t x);

inline std::uint32_t total(const FreqModel &model) {
    return model.cumulative[kSymbols - 1];
}

// From number kSymbols - x on, what symbol x adds to each cumulative count.
inline constexpr auto kIncrements = [] {
    std::array<std::uint16_t, 2 * kSymbols> increments{};
    std::fill(increments.begin() + kSymbols, increments.end(), kDistanceIncrement);
    return increments;
}();

// Counts symbol x in both models.
inline void count(FreqModel &primary, FreqModel &secondary, std::uint32_t x) {
    constexpr std::uint32_t kVectors = kSymbols / kLanesOf<CountLanes>;
    CountLanes increments[kVectors];
#pragma GCC unroll 4
    for (std::uint32_t i = 0; i < kVectors; ++i)
        increments[i] = load<CountLanes>(&kIncrements[kSymbols - x + kLanesOf<CountLanes> * i]);
    const auto add = [&](FreqModel &model) {
        if (total(model) > kRescaleLimit - kDistanceIncrement) [[unlikely]] {
            count_and_halve(model, x);
            return;
        }
#pragma GCC unroll 4
        for (std::uint32_t i = 0; i < kVectors; ++i) {
            void *const lanes = __builtin_assume_aligned(
                model.cumulative + kLanesOf<CountLanes> * i, sizeof(CountLanes));
            store(lanes, load<CountLanes>(lanes) + increments[i]);
        }
    };
    add(primary);
    add(secondary);
}

inline std::uint32_t total(BitModel model) {
    return static_cast<std::uint32_t>(model.cumulative >> 48) + kUncodedCounts;
}

inline std::uint32_t count_up_to(BitModel model, std::uint32_t x) {
    return model.cumulative >> 16 * x & 0xFFFF;
}

inline std::uint32_t count_below(BitModel model, std::uint32_t x) {
    return model.cumulative << 16 >> 16 * x & 0xFFFF;
}

inline void count(BitModel &model, std::uint32_t x) {
    if (total(model) > kRescaleLimit - kBitIncrement) [[unlikely]] {
        count_and_halve(model, x);
        return;
    }
    model.cumulative += from_symbol(x, kBitIncrement);
}

} // namespace velk
