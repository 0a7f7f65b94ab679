// The frequency models and what reads the coded bytes, at limits that data rarely meets.
#include "dce/range_coder.h"
#include "dce/raw_bits.h"

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

} // namespace
