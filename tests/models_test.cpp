// The frequency models and what reads the coded bytes, at limits that data rarely meets, and
// lists of values that no block has.
#include "base/byte_order.h"
#include "dce/range_coder.h"
#include "dce/raw_bits.h"
#include "dce/symbol_stats.h"
#include "stage_call.h"

#include <gtest/gtest.h>
#include <numeric>
#include <vector>

using namespace velk;

namespace {

std::vector<std::uint32_t> counts_of(const FreqModel &model) {
    std::vector<std::uint32_t> counts(model.cumulative, model.cumulative + kSymbols);
    std::adjacent_difference(counts.begin(), counts.end(), counts.begin());
    return counts;
}

std::vector<std::uint32_t> counts_of(const BitModel &model) {
    std::vector<std::uint32_t> counts(kSymbols, 1);
    for (std::uint32_t x = 0; x < kBitSymbols; ++x)
        counts[x] = count_up_to(model, x) - count_below(model, x);
    return counts;
}

FreqModel flat_model() {
    FreqModel model;
    std::iota(model.cumulative, model.cumulative + kSymbols, std::uint16_t{1});
    return model;
}

// One count leads the model to its limit, exactly; the next one over it.
template<typename Model, typename Count>
void expect_halved_above_the_limit(Model &model, std::uint32_t before, std::uint32_t increment,
                                   Count count_3) {
    count_3();
    EXPECT_EQ(total(model), 65535u);
    count_3();
    std::vector<std::uint32_t> expected(kSymbols, 1);
    expected[3] = (before + 2 * increment + 1) / 2;
    EXPECT_EQ(counts_of(model), expected);
    EXPECT_EQ(total(model), expected[3] + 31);
}

TEST(Models, HalvedRoundingUpAboveTheLimit) {
    FreqModel nearly_full = flat_model();
    for (std::uint32_t x = 3; x < kSymbols; ++x)
        nearly_full.cumulative[x] = static_cast<std::uint16_t>(x + 65535 - 24 - 31);
    for (const bool first : {true, false}) { // the other model is not halved with it
        FreqModel model = nearly_full, other = flat_model();
        expect_halved_above_the_limit(model, 65535 - 24 - 31, 24, [&] {
            count(first ? model : other, first ? other : model, 3);
        });
        EXPECT_EQ(total(other), 32u + 2 * 24);
    }
    const std::uint64_t high = 65535 - 14 - 31;
    BitModel bit{0x0003000300020001u + (high << 48)};
    expect_halved_above_the_limit(bit, high, 14, [&] { count(bit, 3); });
}

TEST(Models, CodesThatNoEncoderWrites) {
    const std::uint8_t bytes[16] = {};
    EXPECT_TRUE(failed(start_decoder(bytes, 4)));
    EXPECT_FALSE(failed(start_decoder(bytes, 5)));
    for (const bool beyond : {false, true}) {
        BitModel model{0x0004000300020001u};
        const std::uint32_t end = 4 * (1u << 24) / 32; // of the four counts
        RangeDecoder decoder{end - !beyond, 1u << 24, 5, 9, bytes, false};
        EXPECT_EQ(decode_doubled(decoder, model), 3u);
        EXPECT_EQ(failed(decoder), beyond);
        FreqModel primary = flat_model(), secondary = flat_model();
        RangeDecoder of_pairs{(1u << 24) - !beyond, (1u << 24) + 63, 5, 9, bytes, false};
        EXPECT_EQ(decode_pair(of_pairs, primary, secondary, [] {}), 31u);
        EXPECT_EQ(failed(of_pairs), beyond);
    }
    RawBitReader reader = start_raw_reader(bytes, 1);
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
    RangeEncoder range = start_encoder(bytes.data());
    RawBitWriter raw = start_raw_writer(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
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
