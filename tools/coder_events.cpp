#include "coder_events.h"

#include "dce/distance_values.h"

#include <cmath>
#include <numbers>
#include <numeric>

namespace velk {
namespace {

// Counts updated as the coder updates them, whatever layout it keeps them in.
struct Counter {
    std::uint32_t total;
    Row count;
};

Counter start(const Row &row) {
    return {std::accumulate(row.begin(), row.end(), 0u), row};
}

// What a secondary model starts as. A bit context has none, which zeros stand for.
Counter start_secondary(bool bit_context) {
    Row row;
    row.fill(bit_context ? 0 : 1);
    return start(row);
}

// Returns whether the counts were halved.
bool add(Counter &counter, std::uint32_t symbol, std::uint32_t amount) {
    counter.count[symbol] += amount;
    counter.total += amount;
    if (counter.total <= kRescaleLimit) return false;
    for (std::uint32_t &count : counter.count)
        count -= count / 2;
    counter.total = std::accumulate(counter.count.begin(), counter.count.end(), 0u);
    return true;
}

// A sum of log2(total / count) that takes a logarithm only now and then.
class Logarithm {
public:
    void add(double total, double count) {
        totals_ *= total;
        counts_ *= count;
        if (++factors_ == kFactors) {
            sum_ = value();
            totals_ = counts_ = 1;
            factors_ = 0;
        }
    }
    double value() const { return sum_ + std::log2(totals_ / counts_); }

private:
    // Totals stay below 2^17: a product of this many below 2^1020.
    static constexpr int kFactors = 60;
    double sum_ = 0, totals_ = 1, counts_ = 1;
    int factors_ = 0;
};

// Calls visit(context, event, raw, in_header) for every symbol of the block; `raw` bits
// follow it.
template<typename Visit>
void for_each_event(const std::uint8_t *block, std::uint32_t n, Visit visit) {
    std::vector<std::uint32_t> next_pos(n);
    SymbolStats stats[256] = {};
    std::uint32_t prev_value = 0;
    std::uint32_t values = 0;
    std::uint32_t header_values = 1;
    const auto code = [&](std::uint32_t v, std::uint32_t s, std::uint32_t run_length) {
        if (values == 0) header_values = 2 * v + 2;
        const bool in_header = values++ < header_values;
        const std::uint32_t context = distance_context(stats[s], run_length);
        const std::uint32_t set = secondary_index(prev_value) * kSymbols;
        update_stats(stats[s], v, run_length);
        prev_value = v;
        if (v < kFirstLongValue) {
            visit(context, static_cast<Event>(set + v), 0u, in_header);
            return true;
        }
        const std::uint32_t x = v - 4;
        const std::uint32_t e = bit_length(x) - 3;
        visit(context, static_cast<Event>(set + kFirstLongValue + e), 0u, in_header);
        visit(kFirstBitContext + e, static_cast<Event>((x >> e) & 3), e, in_header);
        return true;
    };
    for_each_value(block, n, next_pos.data(), code);
}

} // namespace

void add_block(EventLog &log, const std::uint8_t *block, std::uint32_t n, double weight) {
    std::array<std::size_t, kContexts> before;
    for (std::size_t c = 0; c < kContexts; ++c)
        before[c] = log.context[c].events.size();
    for_each_event(block, n, [&](std::uint32_t context, Event event, std::uint32_t, bool) {
        log.context[context].events.push_back(event);
    });
    for (std::size_t c = 0; c < kContexts; ++c) {
        ContextEvents &context = log.context[c];
        if (context.events.size() > before[c])
            context.streams.push_back({before[c], context.events.size(), log.weight.size()});
    }
    log.weight.push_back(weight);
}

CodedBits coded_bits(const Table &table, const std::uint8_t *block, std::uint32_t n) {
    std::vector<Counter> primary, secondary;
    for (std::size_t c = 0; c < kContexts; ++c) {
        primary.push_back(start(table[c]));
        secondary.resize(secondary.size() + kSecondarySets, start_secondary(c >= kFirstBitContext));
    }
    CodedBits bits{};
    for_each_event(block, n, [&](std::uint32_t c, Event event, std::uint32_t raw, bool in_header) {
        Counter &p = primary[c];
        Counter &s = secondary[c * kSecondarySets + event / kSymbols];
        const std::uint32_t x = event % kSymbols;
        const double cost = std::log2(double(p.total + s.total) / (p.count[x] + s.count[x]));
        const bool two_bits = c >= kFirstBitContext;
        (in_header ? bits.header : two_bits ? bits.two_bits : bits.distances) += cost;
        (in_header ? bits.header : bits.raw) += raw;
        add(p, x, two_bits ? kBitIncrement : kDistanceIncrement);
        if (!two_bits) add(s, x, kDistanceIncrement);
    });
    return bits;
}

double coded_bits(const EventLog &log, std::uint32_t context, const Row &row, std::size_t limit,
                  std::array<double, kSymbols> *slope) {
    const std::vector<Event> &events = log.context[context].events;
    const bool bit_context = context >= kFirstBitContext;
    const Counter primary_start = start(row);
    const Counter secondary_start = start_secondary(bit_context);
    const std::uint32_t amount = bit_context ? kBitIncrement : kDistanceIncrement;
    double bits = 0;
    std::array<double, kSymbols> slopes{};
    for (const Stream &stream : log.context[context].streams) {
        Counter p = primary_start;
        std::array<Counter, kSecondarySets> secondary;
        std::uint32_t started = 0; // bit i: secondary[i] is set up
        Logarithm stream_bits;
        double total_slope = 0;
        // What is left of one count of the start after the halvings.
        double weight = log.weight[stream.block];
        const std::size_t end = stream.begin + std::min(stream.end - stream.begin, limit);
        for (std::size_t i = stream.begin; i < end; ++i) {
            const std::uint32_t set = events[i] / kSymbols;
            const std::uint32_t x = events[i] % kSymbols;
            Counter &s = secondary[set];
            if ((started >> set & 1) == 0) {
                s = secondary_start;
                started |= 1u << set;
            }
            const double total = p.total + s.total;
            const double count = p.count[x] + s.count[x];
            stream_bits.add(total, count);
            if (slope != nullptr) {
                total_slope += weight / total;
                slopes[x] -= weight / count;
            }
            if (add(p, x, amount)) weight /= 2;
            if (!bit_context) add(s, x, amount);
        }
        bits += log.weight[stream.block] * stream_bits.value();
        for (double &symbol_slope : slopes)
            symbol_slope += total_slope;
    }
    if (slope != nullptr) {
        *slope = slopes;
        for (double &symbol_slope : *slope)
            symbol_slope *= std::numbers::log2e;
    }
    return bits;
}

} // namespace velk
