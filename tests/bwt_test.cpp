// The sorts against each other; that their order stays as it is, tests/golden shows.
#include "base/byte_order.h"
#include "deep_partition.h"
#include "sorting/bwt.h"
#include "sorting/rotation_sort.h"
#include "stage_call.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>

using namespace velk;

namespace {

bool sort_plainly(const SortArrays &arrays, std::uint8_t *block, std::uint32_t n,
                  [[maybe_unused]] std::uint8_t *scratch) {
    return sort_by_tripling(arrays, block, n);
}

// The rows of the sorted rotations, by one of the sorts; none where it gives up.
template<typename Sort>
std::vector<std::uint32_t> sorted_rows(const Bytes &block, Sort sort) {
    const std::uint32_t n = length_of(block);
    const std::uint32_t capacity = n + kForwardSlack;
    static std::vector<std::uint32_t> scratch(kSortScratchBytes / 4, 7);
    std::vector<std::uint32_t> region(capacity), rows(n),
        bits(n / 8 + kBwtMoreBitWords, 0xAAAAAAAAu);
    std::uint8_t *const first = reinterpret_cast<std::uint8_t *>(region.data());
    std::copy(block.begin(), block.end(), first);
    const SortArrays arrays = {region.data(), rows.data(), bits.data(), scratch.data()};
    if (!sort(arrays, first, n, first + capacity)) rows.clear();
    EXPECT_TRUE(std::equal(block.begin(), block.end(), first)) << "the block is lost";
    return rows;
}

bool is_periodic(const Bytes &block) {
    const std::uint8_t *const begin = block.data(), *const end = begin + block.size();
    for (std::size_t p = 1; p < block.size(); ++p) {
        if (block.size() % p == 0 && std::equal(begin + p, end, begin)) return true;
    }
    return false;
}

// What the plain sort gives up, hardly over its limit: the period is sorted in its place, of any
// length.
TEST(Bwt, PeriodsThatTakeTooManySteps) {
    const Bytes bad_pivots = join({deep_partition(400112), {1, 0, 0, 0}});
    EXPECT_TRUE(sorted_rows(bad_pivots, sort_plainly).empty());
    EXPECT_EQ(kBwt.inverse(kBwt.forward(bad_pivots), 400200), bad_pivots);

    Random random(13);
    for (int i = 0; i < 200; ++i) {
        const Bytes word = random_block(random, i % 2 == 0 ? 20 : 500);
        const std::uint32_t times = 1 + random.below(40);
        const Bytes block = repeated(word, times);
        const auto by_period = [](auto... arguments) {
            sort_by_period(arguments...);
            return true;
        };
        // Equal rotations in the order of the block, with the same byte before them.
        const auto rows = sorted_rows(block, by_period), right = sorted_rows(block, sort_plainly);
        for (std::size_t r = 0; r < rows.size(); ++r) {
            ASSERT_EQ(preceding_byte(rows[r]), preceding_byte(right[r]))
                << testing::PrintToString(block);
            ASSERT_TRUE(r % times == 0 || rows[r - 1] < rows[r]) << testing::PrintToString(block);
        }
    }
}

// Blocks put together from a few phrases, and runs of them, cut anywhere: rotations agree for
// long. Some LMS positions, many or all are tied, and some of those that repeat are left out.
TEST(Bwt, InductionAgreesWithTripling) {
    Random random(9);
    const auto below = [&random](std::size_t n) {
        return random.below(static_cast<std::uint32_t>(n));
    };
    for (int i = 0; i < 2000; ++i) {
        std::vector<Bytes> phrases;
        for (std::uint32_t k = 1 + random.below(5); k > 0; --k) {
            const std::uint32_t length = 1 + random.below(1u << random.below(9));
            phrases.push_back(random.below(9) == 0
                                  ? fibonacci(2 + length * length / 8)
                                  : random_bytes(length, 2 + random.below(1u << random.below(8)),
                                                 random.below(1u << 30)));
            Bytes &phrase = phrases.back(); // with one LMS position, most often, or many
            if (random.below(2) == 0) std::sort(phrase.begin(), phrase.end());
        }
        Bytes block;
        for (std::uint32_t k = 1 + random.below(1u << random.below(10)); k > 0; --k) {
            const std::uint32_t times = random.below(3) == 0 ? 1 + random.below(20) : 1;
            const Bytes more = repeated(phrases[below(phrases.size())], times);
            block.insert(block.end(), more.begin(), more.end());
            if (block.size() > 60000) break;
            if (random.below(40) == 0) block.push_back(static_cast<std::uint8_t>(random.below(3)));
        }
        std::rotate(block.begin(), block.end() - below(block.size()), block.end());
        const auto rows = sorted_rows(block, sort_by_induction);
        ASSERT_EQ(rows.empty(), block.size() < 16 || is_periodic(block))
            << testing::PrintToString(block);
        ASSERT_TRUE(rows.empty() || rows == sorted_rows(block, sort_plainly))
            << testing::PrintToString(block);
    }
}

// Two LMS positions that are tied, though in the order of those behind them nearly all LMS
// positions of the block lie between: two of five bytes are one.
TEST(Bwt, TiesThatEndFarApart) {
    Bytes rise(60), most;
    std::iota(rise.begin(), rise.end(), 10);
    Random random(14);
    while (most.size() < 200000) {
        most.insert(most.end(), {1, 2});
        if (random.below(2) == 0) most.push_back(2);
    }
    most.push_back(255);
    const Bytes block =
        join({rise, repeated({1, 2}, 50), most, rise, repeated({1, 2, 2}, 50), most});
    EXPECT_EQ(sorted_rows(block, sort_by_induction), sorted_rows(block, sort_plainly));
}

} // namespace
