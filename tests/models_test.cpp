// The frequency models and what reads the coded bytes, at limits that data rarely meets, and
// lists of values that no block has.
#include "base/byte_order.h"
#include "dce/range_coder.h"
#include "dce/raw_bits.h"
#include "dce/symbol_stats.h"
#include "stage_call.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace velk;

namespace {

// Of every symbol one count, but of symbol 3.
FreqModel flat_model(std::uint32_t count_3 = 1) {
    FreqModel model;
    for (std::uint32_t x = 0; x < kSymbols; ++x)
        model.cumulative[x] = static_cast<std::uint16_t>(x + (x < 3 ? 1 : count_3));
    return model;
}

// One count leads the model to its limit, exactly; the next one over it.
TEST(Models, HalvedRoundingUpAboveTheLimit) {
    const std::uint32_t high = 65535 - 31, high_bit = high - kBitIncrement;
    const FreqModel halved = flat_model((high + kDistanceIncrement + 1) / 2);
    for (const bool first : {true, false}) { // the other model is not halved with it
        FreqModel model = flat_model(high - kDistanceIncrement), other = flat_model();
        for (const std::uint32_t right : {65535u, total(halved)}) {
            count(first ? model : other, first ? other : model, 3);
            EXPECT_EQ(total(model), right);
        }
        EXPECT_TRUE(std::equal(model.cumulative, model.cumulative + 32, halved.cumulative));
        EXPECT_EQ(total(other), 32u + 2 * kDistanceIncrement);
    }
    const auto bit_model = [](std::uint64_t count_3) {
        return BitModel{0x0003000300020001u + (count_3 << 48)};
    };
    BitModel bit = bit_model(high_bit);
    count(bit, 3);
    EXPECT_EQ(total(bit), 65535u);
    count(bit, 3);
    EXPECT_EQ(bit.cumulative, bit_model((high + kBitIncrement + 1) / 2).cumulative);
}

TEST(Models, CodesThatNoEncoderWrites) {
    const std::uint8_t bytes[16] = {};
    EXPECT_TRUE(failed(RangeDecoder{bytes, 4}));
    EXPECT_FALSE(failed(RangeDecoder{bytes, 5}));
    for (const bool beyond : {false, true}) {
        BitModel model{0x0004000300020001u};
        const std::uint32_t end = 4 * (1u << 24) / 32; // of the four counts
        RangeDecoder decoder{bytes, 9, 5, 1u << 24, end - !beyond};
        EXPECT_EQ(decode_doubled(decoder, model), 3u);
        EXPECT_EQ(failed(decoder), beyond);
        FreqModel primary = flat_model(), secondary = flat_model();
        RangeDecoder of_pairs{bytes, 9, 5, (1u << 24) + 63, (1u << 24) - !beyond};
        EXPECT_EQ(decode_pair(of_pairs, primary, secondary, [] {}), 31u);
        EXPECT_EQ(failed(of_pairs), beyond);
    }
    RawBitReader reader{bytes, 1};
    get(reader, 8);
    EXPECT_FALSE(past_front(reader));
    get(reader, 1);
    EXPECT_TRUE(past_front(reader));
}

struct Value {
    std::uint32_t v;
    std::uint8_t byte; // whose statistics serve it
    std::uint32_t run_length = kNoRun;
};

// The block that the DCE would make of these values.
Bytes coded(const std::vector<Value> &values) {
    std::vector<std::uint32_t> area(kModelAreaBytes / 4);
    Models &models = init_models(area.data());
    std::vector<SymbolStats> stats(256);
    Bytes bytes(8 * values.size());
    RangeEncoder range{bytes.data()};
    RawBitWriter raw{bytes.data(), length_of(bytes)};
    std::uint32_t before = 0;
    for (const auto &[v, byte, run_length] : values) {
        const bool is_long = v >= kFirstLongValue;
        const LongValue parts = is_long ? split(v) : LongValue{};
        ContextModels &m = models.context[distance_context(stats[byte], run_length)];
        encode_pair(range, m.primary, m.secondary[secondary_index(before)],
                    is_long ? kFirstLongValue + parts.raw_bits : v);
        if (is_long) encode_doubled(range, models.bit[parts.raw_bits], parts.top);
        put(raw, parts.raw, parts.raw_bits);
        update_stats(stats[byte], v, run_length);
        before = v;
    }
    flush(range);
    finish(raw);
    bytes.erase(bytes.begin() + range.output_cursor, bytes.begin() + raw.back_cursor);
    Bytes trailer(5, 1);
    put_u32(trailer.data(), static_cast<std::uint32_t>(values.size()));
    return join({bytes, trailer});
}

// A header list, of gaps between the first positions that are all the same, and runs.
TEST(InverseDce, ListsOfValues) {
    const struct {
        std::uint32_t byte_values, n, first, gap;
        std::vector<Value> runs; // each the last one of its byte, where its value is 0
        bool restored;
    } cases[] = {
        {1, 1, 0, 0, {{0, 7}}, true},
        {1, 400, 0, 0, {{0, 7, 400}}, true},
        {1, 401, 0, 0, {{0, 7, 401}}, false}, // more than the capacity
        {1, 0, 0, 0, {}, false},
        {1, UINT32_MAX, 0, 0, {}, false},
        {1, 1, 1, 0, {{0, 7}}, false},         // not from the start
        {1, 1, 0, 0, {{0, 7}, {0, 7}}, false}, // runs behind the end
        {1, 1, 0, 0, {{1, 7}}, false},         // a run of the same byte there
        {2, 2, 0, 1, {{0, 7}, {0, 7}}, true},
        {2, 2, 0, 2, {{0, 7}, {0, 7}}, false}, // a byte first behind the end
        {2, 2, 0, 0, {{0, 7}, {0, 7}}, false}, // two bytes in one place
        {0, 1, 0, 0, {{0, 7}}, false},
        {256, 256, 0, 1, std::vector<Value>(256, {0, 7}), true},
        {257, 257, 0, 1, std::vector<Value>(257, {0, 7}), false},
    };
    for (const auto &c : cases) {
        std::vector<Value> values = {{c.byte_values, 0}, {c.n + 1, 0}, {7, 0}, {c.first, 0}};
        for (std::uint32_t i = 1; i < c.byte_values; ++i)
            values.insert(values.end(), {{7, 0}, {c.gap, 1}});
        values.insert(values.end(), c.runs.begin(), c.runs.end());
        const auto block = kDce.inverse(coded(values), 400);
        EXPECT_EQ(block.has_value(), c.restored) << &c - cases;
        EXPECT_TRUE(!block || *block == Bytes(c.n, 7)) << &c - cases;
    }
}

} // namespace
