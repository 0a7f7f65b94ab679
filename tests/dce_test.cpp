// The coder against a naive one, and its parts on the cases that data rarely meets.
#include "dce/range_coder.h"
#include "dce/symbol_stats.h"
#include "naive_dce.h"
#include "stage_call.h"

#include <gtest/gtest.h>
#include <numeric>

namespace {

void expect_coded(const Bytes &block, const std::string &name) {
    Bytes expected = code_naively(block).coded;
    if (expected.size() > block.size() + 1) expected = join({block, {0}});
    ASSERT_EQ(kDce.forward(block), expected) << name << ", " << hex(block);
}

TEST(Dce, ValuesOfSixBytes) {
    const std::vector<std::uint32_t> expected = {2, 7, 97, 0, 98, 1, 1, 3, 0, 0};
    EXPECT_EQ(code_naively(to_bytes("abaaab")).values, expected);
}

TEST(Dce, SameBytesAsTheNaiveCoder) {
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

// Long chains of 0xFF and the carries that turn them over do not come up in small
// real blocks: drive the coder to its interval's edges.
TEST(RangeCoder, CarriesThroughDelayedBytes) {
    for (std::uint64_t seed = 0; seed < 300; ++seed) {
        Random random(seed);
        Bytes output(4000);
        RangeEncoder encoder = start_encoder(output.data());
        std::vector<std::uint8_t> digits(5, 0); // the sum, without any delay
        std::uint64_t range = 0xFFFFFFFF;
        std::uint32_t longest = 0;
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
            longest = std::max(longest, encoder.pending);
        }
        flush(encoder);
        output.resize(encoder.output_cursor);
        ASSERT_EQ(output, digits) << "seed " << seed << ", longest delay " << longest;
        ASSERT_EQ(output[0], 0);
    }
}

TEST(Models, RescaleHalvesRoundingUpAboveTheLimit) {
    FreqModel model{};
    for (auto &count : model.count)
        count = 1;
    model.count[3] = 65535 - 31;
    model.total = 65535;
    rescale(model);
    EXPECT_EQ(model.total, 65535u) << "at the limit";
    increment(model, 3, 1);
    rescale(model);
    EXPECT_EQ(model.count[3], 65505u - 65505u / 2);
    EXPECT_EQ(model.count[0], 1u);
    EXPECT_EQ(model.total, std::accumulate(model.count, model.count + kSymbols, 0u));
}

TEST(Models, BuiltinCountsKeepTheirRules) {
    ModelSet set;
    init_model_set(set, 1);
    const auto is_flat_context = [](std::uint32_t c) {
        return c <= 7 || (c >= 25 && c <= 29) || (c >= 55 && c <= 58) || (c >= 84 && c <= 88) ||
               (c >= 113 && c <= 119) || c >= 139;
    };
    for (std::uint32_t c = 0; c < kContexts; ++c) {
        const FreqModel &model = set.context[c];
        std::uint32_t top = 0; // the last symbol with a count above 1
        for (std::uint32_t i = 0; i < kSymbols; ++i) {
            ASSERT_GE(model.count[i], 1u) << c;
            if (model.count[i] > 1) top = i;
        }
        EXPECT_EQ(model.total, std::accumulate(model.count, model.count + kSymbols, 0u)) << c;
        EXPECT_LE(model.total, 64088u) << c;
        if (is_flat_context(c)) {
            EXPECT_EQ(model.total, kSymbols) << c;
        } else if (c < kFirstBitContext) {
            EXPECT_GE(top, 10u) << c;
            EXPECT_LE(top, 27u) << c;
        } else {
            EXPECT_LE(top, 3u) << c;
        }
    }
    const auto row = [&](std::uint32_t c) {
        const auto &count = set.context[c].count;
        return std::vector<std::uint32_t>(count, count + kSymbols);
    };
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
