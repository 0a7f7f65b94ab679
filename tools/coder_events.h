// What the models of the DCE stage see of blocks, sorted by context, and the size that
// a start of the models gives.
//
// Models of different contexts never touch each other: within a block the events of one
// context, a stream, tell all that its row of the built-in table is worth.
#pragma once

#include "dce/frequency_models.h"

#include <array>
#include <cstdint>
#include <vector>

namespace velk {

// A symbol coded in a context: secondary index * kSymbols + symbol. Bit contexts have
// no secondary set; their index is 0.
using Event = std::uint16_t;

struct Stream {
    std::size_t begin, end; // into the context's events
    std::size_t block;      // number of the block in the log
};

struct ContextEvents {
    std::vector<Event> events;
    std::vector<Stream> streams;
};

struct EventLog {
    std::array<ContextEvents, kContexts> context;
    std::vector<double> weight; // of a bit, for each block
};

// The counts that a primary model starts with, all at least 1.
using Row = std::array<std::uint32_t, kSymbols>;
using Table = std::array<Row, kContexts>;

// Bits of a coded block in parts. The header list is apart from the symbols and raw
// bits of the runs; what ends the streams, and the DCE tail, is in none.
struct CodedBits {
    double header, distances, two_bits, raw;
    double all() const { return header + distances + two_bits + raw; }
};

// Adds a block of n bytes, the input of the DCE stage, with this weight.
void add_block(EventLog &log, const std::uint8_t *block, std::uint32_t n, double weight);

// What the block comes to when the primary models start as `table`.
CodedBits coded_bits(const Table &table, const std::uint8_t *block, std::uint32_t n);

// The weighted bits of a context's events when its primary model starts as `row`. Only
// the first `limit` events of each stream count: what follows hardly depends on it.
// If `slope` is given, it gets what a count more of each symbol would add to them.
double coded_bits(const EventLog &log, std::uint32_t context, const Row &row, std::size_t limit,
                  std::array<double, kSymbols> *slope = nullptr);

} // namespace velk
