// The coder against a plain one, and its parts on the cases that data rarely meets.
#include "dce/frequency_models.h"
#include "plain_stages.h"
#include "stage_call.h"

#include <gtest/gtest.h>
#include <numeric>

using namespace velk;

namespace {

void expect_coded(const Bytes &block, const std::string &name) {
    ASSERT_EQ(kDce.forward(block), plain_dce_encode(block)) << name << ", " << hex(block);
}

TEST(Dce, SameBytesAsThePlainCoder) {
    for (const auto &[name, bytes] : all_kinds(6000)) {
        expect_coded(bytes, name);
        expect_coded(kBwt.forward(bytes), name + ", sorted");
    }
    Random random(3);
    for (int i = 0; i < 400; ++i)
        expect_coded(random_block(random, 900), "random");
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
void expect_halved_above_the_limit(Model model, std::uint32_t before, std::uint32_t increment) {
    count(model, 3);
    EXPECT_EQ(total(model), 65535u);
    count(model, 3);
    std::vector<std::uint32_t> expected(kSymbols, 1);
    expected[3] = (before + 2 * increment + 1) / 2;
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

} // namespace
