#include "row_fitting.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace velk {
namespace {

// The table's largest total.
constexpr double kMaxTotal = 64088;
// In a distance context the last symbol with a count above 1 lies from kMinTop to
// kMaxTop; a bit context has four symbols.
constexpr std::uint32_t kMinTop = 10;
constexpr std::uint32_t kMaxTop = 27;
constexpr std::uint32_t kBitSymbols = 4;

// Events of a stream that are looked at. By the 2700th the strongest row is outweighed.
constexpr std::size_t kStreamLimit = 4096;

struct GivenRow {
    std::uint32_t context;
    Row count;
};

constexpr GivenRow kGivenRows[] = {
    {8, {1,  14444, 6848, 5270, 3664, 3009, 2674, 1904, 5732, 5242, 4401, 1832, 474, 94, 34, 17,
         56, 34,    1,    12,   23,   12,   23,   1,    1,    34,   1,    1,    1,   1,  1,  1}},
    {45, {78,   10126, 4037, 2842, 2060, 1630, 1171, 1340, 3045, 4266, 4382,
          4158, 4707,  4554, 4079, 4275, 3517, 2011, 956,  510,  124,  155,
          34,   1,     23,   1,    1,    1,    1,    1,    1,    1}},
    {120, {17072, 13856, 12932, 11539, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
           1,     1,     1,     1,     1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}},
    {125, {12976, 9773, 7145, 5682, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
           1,     1,    1,    1,    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}},
    {138, {727, 397, 23, 67, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
           1,   1,   1,  1,  1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}},
};

// Symbols of the context whose counts may be above 1.
std::uint32_t free_symbols(std::uint32_t context) {
    return context < kFirstBitContext ? kMaxTop + 1 : kBitSymbols;
}

// The nearest row within the rules.
Row legal_row(std::uint32_t context, const std::array<double, kSymbols> &counts) {
    Row row;
    row.fill(1);
    const std::uint32_t symbols = free_symbols(context);
    const double sum = std::accumulate(counts.begin(), counts.begin() + symbols, 0.0);
    // Each count may gain 1 from rounding.
    const double scale = std::min(1.0, (kMaxTotal - kSymbols) / sum);
    for (std::uint32_t x = 0; x < symbols; ++x)
        row[x] = std::max(1u, static_cast<std::uint32_t>(std::lround(counts[x] * scale)));
    const auto is_above_1 = [](std::uint32_t count) { return count > 1; };
    if (context < kFirstBitContext && std::none_of(&row[kMinTop], &row[kMaxTop] + 1, is_above_1))
        row[kMinTop] = 2;
    return row;
}

} // namespace

bool is_flat_context(std::uint32_t context) {
    constexpr std::pair<std::uint32_t, std::uint32_t> kFlatRanges[] = {
        {0, 7}, {25, 29}, {55, 58}, {84, 88}, {113, 119}, {139, 149}};
    return std::any_of(std::begin(kFlatRanges), std::end(kFlatRanges), [&](const auto &range) {
        return range.first <= context && context <= range.second;
    });
}

bool is_given_context(std::uint32_t context) {
    return std::any_of(std::begin(kGivenRows), std::end(kGivenRows),
                       [&](const GivenRow &given) { return given.context == context; });
}

Table start_table() {
    Table table;
    for (Row &row : table)
        row.fill(1);
    for (const GivenRow &given : kGivenRows)
        table[given.context] = given.count;
    return table;
}

Row frequency_row(const EventLog &log, std::uint32_t context, double total) {
    std::array<double, kSymbols> counts{};
    for (const Stream &stream : log.context[context].streams) {
        const std::size_t end = std::min(stream.end, stream.begin + kStreamLimit);
        for (std::size_t i = stream.begin; i < end; ++i)
            counts[log.context[context].events[i] % kSymbols] += log.weight[stream.block];
    }
    const double sum = std::accumulate(counts.begin(), counts.end(), 0.0);
    for (double &count : counts)
        count *= sum > 0 ? total / sum : 0;
    return legal_row(context, counts);
}

Row fit_strength(const EventLog &log, std::uint32_t context) {
    Row best{};
    double best_bits = HUGE_VAL;
    for (double total = 32; total < kMaxTotal * 1.4; total *= 1.4) {
        const Row row = frequency_row(log, context, total);
        const double bits = coded_bits(log, context, row, kStreamLimit);
        if (bits >= best_bits) continue;
        best = row;
        best_bits = bits;
    }
    return best;
}

// Resilient propagation (M. Riedmiller, H. Braun, "A direct adaptive method for faster
// backpropagation learning", 1993) on the logarithms of the counts: only the sign of a
// slope is used, and each count has a step of its own.
Row fit_shape(const EventLog &log, std::uint32_t context, Row row) {
    constexpr int kRounds = 40;
    constexpr double kFirstStep = 0.2, kMinStep = 0.01, kMaxStep = 0.7;
    constexpr double kFaster = 1.2, kSlower = 0.5;
    std::array<double, kSymbols> counts, steps, slope, last_slope{};
    std::copy(row.begin(), row.end(), counts.begin());
    steps.fill(kFirstStep);
    double best_bits = HUGE_VAL;
    for (int round = 0; round < kRounds; ++round) {
        const Row candidate = legal_row(context, counts);
        const double bits = coded_bits(log, context, candidate, kStreamLimit, &slope);
        if (bits < best_bits) {
            row = candidate;
            best_bits = bits;
        }
        for (std::size_t x = 0; x < kSymbols; ++x) {
            const double turn = slope[x] * last_slope[x];
            if (turn > 0) steps[x] = std::min(steps[x] * kFaster, kMaxStep);
            if (turn < 0) steps[x] = std::max(steps[x] * kSlower, kMinStep);
            last_slope[x] = slope[x];
            counts[x] = std::max(1.0, counts[x] * std::exp(slope[x] > 0 ? -steps[x] : steps[x]));
        }
    }
    return row;
}

} // namespace velk
