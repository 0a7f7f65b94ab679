// The coder against a plain one, and its parts on the cases that data rarely meets.
#include "dce/distance_values.h"
#include "dce/range_coder.h"
#include "stage_call.h"

#include <gtest/gtest.h>
#include <numeric>

namespace {

void expect_coded(const Bytes &block, const std::string &name) {
    ASSERT_EQ(kDce.forward(block), kPlainDce.forward(block)) << name << ", " << hex(block);
}

TEST(Dce, ValuesOfSixBytes) {
    const Bytes block = to_bytes("abaaab");
    std::vector<std::uint32_t> runs(block.size()), values;
    for_each_value(block.data(), 6, runs.data(), [&](std::uint32_t v, std::uint32_t, RunContext) {
        values.push_back(v);
        return true;
    });
    EXPECT_EQ(values, (std::vector<std::uint32_t>{2, 7, 97, 0, 98, 1, 1, 3, 0, 0}));
}

TEST(Dce, SameBytesAsThePlainCoder) {
    for (const auto &[name, bytes] : all_kinds(3000)) {
        expect_coded(bytes, name);
        expect_coded(kBwt.forward(bytes), name + ", sorted");
    }
    Random random(3);
    for (int i = 0; i < 400; ++i) {
        const std::uint32_t alphabet = 1 + random.below(1u << random.below(9));
        const Bytes block = random_bytes(1 + random.below(900), alphabet, random.below(1u << 30));
        expect_coded(block, "small alphabet");
    }
}

// Enough values in a few contexts that every kind of model is halved several times.
TEST(Dce, SameBytesAfterManyRescalings) {
    Bytes block = random_bytes(30000, 3, 4);
    for (std::size_t i = 0; i < block.size(); i += 97)
        block[i] = static_cast<std::uint8_t>(i);
    expect_coded(block, "three values and rare others");
}

// A block comes out coded only if that is no longer than the block and a trailer.
TEST(Dce, DeclinesAtTheLastByte) {
    unsigned coded = 0, declined = 0;
    for (std::size_t n = 1; n < 60; ++n) {
        const Bytes block = join({Bytes(n / 2, 'a'), random_bytes(n - n / 2, 2, n)});
        expect_coded(block, "near the limit");
        ++(kDce.forward(block).back() == 1 ? coded : declined);
    }
    EXPECT_GT(coded, 5u);
    EXPECT_GT(declined, 5u);
}

// Carries through long chains of 0xFF do not come up in small real blocks: drive the
// coder to its interval's edges.
TEST(RangeCoder, CarriesThroughManyBytes) {
    for (std::uint64_t seed = 0; seed < 300; ++seed) {
        Random random(seed);
        Bytes output(4000);
        RangeEncoder encoder = start_encoder(output.data());
        std::vector<std::uint8_t> digits(5, 0); // the sum, by hand
        std::uint64_t range = 0xFFFFFFFF;
        for (int i = 0; i < 600; ++i) {
            // Mostly the very last count of the total: `low` stays just below a carry.
            const std::uint32_t total = 2 + random.below(131069);
            const std::uint32_t cum = random.below(200) == 0 ? 0 : total - 1;
            const std::uint64_t r = range / total;
            std::uint64_t amount = cum * r;
            for (std::size_t k = digits.size(); amount != 0; amount >>= 8) {
                amount += digits[--k];
                digits[k] = static_cast<std::uint8_t>(amount);
            }
            range = r;
            for (; range < 1u << 24; range *= 256)
                digits.push_back(0);
            encode_range(encoder, cum, 1, total);
        }
        flush(encoder);
        output.resize(encoder.output_cursor);
        ASSERT_EQ(output, digits) << "seed " << seed;
        ASSERT_EQ(output[0], 0);
    }
}

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

// One count leads the model to its limit, exactly; the next one over it.
template<typename Model>
void expect_halved_above_the_limit(Model model, std::uint64_t before, std::uint64_t increment) {
    count(model, 3);
    EXPECT_EQ(total(model), 65535u);
    count(model, 3);
    const std::uint64_t after = before + 2 * increment;
    std::vector<std::uint32_t> expected(kSymbols, 1);
    expected[3] = static_cast<std::uint32_t>(after - after / 2);
    EXPECT_EQ(counts_of(model), expected);
    EXPECT_EQ(total(model), expected[3] + 31);
}

TEST(Models, HalvedRoundingUpAboveTheLimit) {
    FreqModel model;
    for (std::uint32_t x = 0; x < kSymbols; ++x)
        model.cumulative[x] = static_cast<std::uint16_t>(x < 3 ? x + 1 : x + 65535 - 24 - 31);
    expect_halved_above_the_limit(model, 65535 - 24 - 31, 24);
    const std::uint64_t high = 65535 - 14 - 31;
    expect_halved_above_the_limit(BitModel{0x0003000300020001u + (high << 48)}, high, 14);
}

TEST(Models, BuiltinCountsKeepTheirRules) {
    std::vector<std::uint32_t> area(kModelAreaBytes / 4);
    const Models &models = init_models(area.data());
    const auto row = [&](std::uint32_t c) {
        return c < kFirstBitContext ? counts_of(models.primary.context[c])
                                    : counts_of(models.bit[c - kFirstBitContext]);
    };
    const auto is_flat_context = [](std::uint32_t c) {
        return c <= 7 || (c >= 25 && c <= 29) || (c >= 55 && c <= 58) || (c >= 84 && c <= 88) ||
               (c >= 113 && c <= 119) || c >= 139;
    };
    for (std::uint32_t c = 0; c < kContexts; ++c) {
        const std::vector<std::uint32_t> counts = row(c);
        std::uint32_t top = 0; // the last symbol with a count above 1
        for (std::uint32_t i = 0; i < kSymbols; ++i) {
            ASSERT_GE(counts[i], 1u) << c;
            if (counts[i] > 1) top = i;
        }
        EXPECT_LE(std::accumulate(counts.begin(), counts.end(), 0u), 64088u) << c;
        if (is_flat_context(c)) {
            EXPECT_EQ(counts, std::vector<std::uint32_t>(kSymbols, 1)) << c;
        } else if (c < kFirstBitContext) {
            EXPECT_GE(top, 10u) << c;
            EXPECT_LE(top, 27u) << c;
        }
    }
    const auto filled = [](std::vector<std::uint32_t> counts) {
        counts.resize(kSymbols, 1);
        return counts;
    };
    EXPECT_EQ(row(8),
              filled({1,  14444, 6848, 5270, 3664, 3009, 2674, 1904, 5732, 5242, 4401, 1832, 474,
                      94, 34,    17,   56,   34,   1,    12,   23,   12,   23,   1,    1,    34}));
    EXPECT_EQ(row(45),
              filled({78,   10126, 4037, 2842, 2060, 1630, 1171, 1340, 3045, 4266, 4382, 4158, 4707,
                      4554, 4079,  4275, 3517, 2011, 956,  510,  124,  155,  34,   1,    23}));
    EXPECT_EQ(row(120), filled({17072, 13856, 12932, 11539}));
    EXPECT_EQ(row(125), filled({12976, 9773, 7145, 5682}));
    EXPECT_EQ(row(138), filled({727, 397, 23, 67}));
}

TEST(Contexts, EdgesOfBucketsAndSets) {
    const std::pair<std::uint32_t, std::uint32_t> buckets[] = {{0, 0},  {4, 4},  {5, 5},  {6, 6},
                                                               {7, 6},  {8, 7},  {11, 7}, {12, 8},
                                                               {19, 8}, {20, 9}, {35, 9}};
    for (const auto &[x, bucket] : buckets)
        EXPECT_EQ(log_bucket(x), bucket) << x;
    const std::pair<std::uint32_t, std::uint32_t> sets[] = {{0, 0},   {2, 2},   {3, 1},
                                                            {257, 8}, {258, 1}, {4095, 12}};
    for (const auto &[prev_value, index] : sets) {
        EXPECT_EQ(secondary_index(prev_value), index) << prev_value;
    }
}

} // namespace
