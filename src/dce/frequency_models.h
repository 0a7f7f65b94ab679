// The adaptive frequency models of the DCE stage.
//
//   model area:  | set 0, primary | set 1 | ... | set 16 |          336,600 bytes
//   a set:       | context 0 | context 1 | ... | context 149 |
//   a context:   | total | count of symbol 0 | ... | count of symbol 31 |
//
// Contexts 0..119, distance contexts: a distance symbol is coded with the same
// context of the primary and one secondary set, their counts summed. Contexts
// 120..149, bit contexts: two bits are coded with the primary set alone.
//
// Always: a total is the sum of its 32 counts, and no count is 0. When a symbol is
// coded its models' totals are at most kRescaleLimit.
#pragma once

#include <cstdint>

constexpr std::uint32_t kSymbols = 32;
constexpr std::uint32_t kContexts = 150;
constexpr std::uint32_t kFirstBitContext = 120;
constexpr std::uint32_t kModelSets = 17;

// A total above it is halved before the next symbol: the sum of two totals stays
// below 2^17, which leaves the range coder at least 7 bits a count.
constexpr std::uint32_t kRescaleLimit = 65535;
constexpr std::uint32_t kDistanceIncrement = 24;
constexpr std::uint32_t kBitIncrement = 14;

struct FreqModel {
    std::uint32_t total;
    std::uint32_t count[kSymbols];
};

struct ModelSet {
    FreqModel context[kContexts];
};

constexpr std::uint32_t kModelAreaBytes = kModelSets * sizeof(ModelSet);
static_assert(kModelAreaBytes == 336600);

// Fills a set with the built-in counts, or (use_builtin = 0) every count with 1.
void init_model_set(ModelSet &set, int use_builtin);
void load_builtin_counts(ModelSet &set);

// Sets up all kModelSets sets for a block: the first from the built-in counts, the
// others flat.
void init_models(ModelSet *models);

// Halves every count, rounded up, if the total is above kRescaleLimit. Once is
// enough: a total grows by one increment between two calls.
inline void rescale(FreqModel &model) {
    if (model.total <= kRescaleLimit) return;
    model.total = 0;
    for (std::uint32_t &count : model.count) {
        count -= count / 2;
        model.total += count;
    }
}

inline void increment(FreqModel &model, std::uint32_t symbol, std::uint32_t amount) {
    model.count[symbol] += amount;
    model.total += amount;
}
