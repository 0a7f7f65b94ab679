// The sorts against a judge that doubles ranks with the library's sort, and each other.
#include "deep_partition.h"
#include "pipeline/byte_order.h"
#include "plain_stages.h"
#include "sorting/bwt.h"
#include "sorting/rotation_sort.h"
#include "stage_call.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>

using namespace velk;

namespace {

struct Sorted {
    Bytes last_column;
    std::uint32_t primary_low, primary_high; // rows, from 1, that rotation 1 may take
};

Sorted sort_naively(const Bytes &block) {
    const std::uint32_t n = static_cast<std::uint32_t>(block.size());
    std::vector<std::uint32_t> rows(n), rank(block.begin(), block.end()), next(n);
    std::iota(rows.begin(), rows.end(), 0);
    for (std::uint32_t h = 1;; h *= 2) {
        const auto key = [&](std::uint32_t p) { return std::pair(rank[p], rank[(p + h) % n]); };
        std::sort(rows.begin(), rows.end(),
                  [&](std::uint32_t a, std::uint32_t b) { return key(a) < key(b); });
        std::uint32_t groups = 0;
        for (std::uint32_t r = 0; r < n; ++r) {
            const bool begins = r == 0 || key(rows[r]) != key(rows[r - 1]);
            groups += begins;
            next[rows[r]] = begins ? r + 1 : next[rows[r - 1]]; // the group's first row
        }
        rank.swap(next);
        if (groups == n || h >= n) break;
    }
    Sorted sorted{{}, rank[1 % n], rank[1 % n]};
    for (const std::uint32_t p : rows)
        sorted.last_column.push_back(block[(p + n - 1) % n]);
    while (sorted.primary_high < n && rank[rows[sorted.primary_high]] == sorted.primary_low) {
        ++sorted.primary_high;
    }
    return sorted;
}

void expect_sorted(const Bytes &block, const std::string &name) {
    const Bytes output = kBwt.forward(block);
    const Sorted sorted = sort_naively(block);
    const std::size_t n = block.size();
    ASSERT_EQ(output.size(), n + 5);
    ASSERT_TRUE(std::equal(output.begin(), output.end() - 5, sorted.last_column.begin()))
        << name << ", " << hex(block);
    const std::uint32_t primary_index = get_u32(output.data() + n);
    ASSERT_GE(primary_index, sorted.primary_low) << name << ", " << hex(block);
    ASSERT_LE(primary_index, sorted.primary_high) << name << ", " << hex(block);
    ASSERT_EQ(output[n + 4], 1);
}

TEST(Bwt, EveryBinaryBlockOfUpToTenBytes) {
    for (unsigned n = 1; n <= 10; ++n) {
        for (unsigned bits = 0; bits < 1u << n; ++bits) {
            Bytes block(n);
            for (unsigned i = 0; i < n; ++i)
                block[i] = bits >> i & 1 ? 'b' : 'a';
            expect_sorted(block, "binary");
        }
    }
}

TEST(Bwt, BlocksOverSmallAlphabets) {
    Random random(2);
    for (int i = 0; i < 1500; ++i) {
        const std::uint32_t alphabet = 1 + random.below(4);
        Bytes block = random_bytes(1 + random.below(200), alphabet, random.below(1u << 30));
        if (i % 3 == 0) { // periodic, or nearly so
            const Bytes word = block;
            for (std::uint32_t k = random.below(6); k > 0; --k)
                block = join({block, word});
            if (i % 2 == 0) block.back() ^= 1;
        }
        expect_sorted(block, "small alphabet");
    }
}

// Groups of more rows than the triples hold are partitioned first.
TEST(Bwt, GroupsAbove65535Rows) {
    const std::size_t n = 200000;
    expect_sorted(join({Bytes(n, 'a'), to_bytes("b")}), "one long run");
    expect_sorted(join({Bytes(90000, 'a'), to_bytes("b"), Bytes(80000, 'a'), to_bytes("c")}),
                  "two long runs");
    expect_sorted(join({periodic("ab", n), to_bytes("a")}), "nearly periodic");
    expect_sorted(Bytes(70000, 0), "equal bytes");
    expect_sorted(periodic("abcabcabd", 9 * 30000), "period 9");
    Bytes rare = random_bytes(n, 2000, 3);
    for (auto &b : rare)
        b = b == 7 ? 'x' : 'a';
    expect_sorted(rare, "one byte value with rare others");
    for (const auto &[name, bytes] : all_kinds(70000))
        expect_sorted(bytes, name);
}

// The rows of the sorted rotations, by one of the sorts; none where it gives up.
template<typename Sort>
std::vector<std::uint32_t> sorted_rows(const Bytes &block, Sort sort) {
    const std::uint32_t n = static_cast<std::uint32_t>(block.size());
    const std::uint32_t capacity = n + kForwardSlack;
    std::vector<std::uint32_t> region(capacity), rows(n), bits(n / 8 + 10, 0xAAAAAAAAu),
        scratch(kSortScratchBytes / 4, 7);
    std::uint8_t *const first = reinterpret_cast<std::uint8_t *>(region.data());
    std::copy(block.begin(), block.end(), first);
    const SortArrays arrays = {region.data(), rows.data(), bits.data(), scratch.data()};
    if (!sort(arrays, first, n, first + capacity)) {
        rows.clear();
        EXPECT_TRUE(std::equal(block.begin(), block.end(), first)) << "the block is lost";
    }
    return rows;
}

// What the plain sort gives up: the period is sorted in its place, of any length.
TEST(Bwt, PeriodsThatTakeTooManySteps) {
    const Bytes bad_pivots = join({deep_partition(500000), {1, 0, 0, 0}});
    EXPECT_TRUE(sorted_rows(bad_pivots, sort_by_tripling).empty());
    EXPECT_EQ(kBwt.inverse(kBwt.forward(bad_pivots), 500100), bad_pivots);

    Random random(13);
    for (int i = 0; i < 200; ++i) {
        const Bytes word = random_block(random, i % 2 == 0 ? 20 : 500);
        Bytes block = word;
        for (std::uint32_t k = random.below(40); k > 0; --k)
            block = join({block, word});
        const auto by_period = [](auto... arguments) {
            sort_by_period(arguments...);
            return true;
        };
        Bytes last_column;
        for (const std::uint32_t entry : sorted_rows(block, by_period)) {
            const std::uint32_t p = entry & kPositionMask;
            last_column.push_back(block[(p == 0 ? block.size() : p) - 1]);
            ASSERT_EQ(entry >> 24, last_column.back());
        }
        ASSERT_EQ(last_column, sort_naively(block).last_column) << hex(block);
    }
}

// A bucket of more valleys than the scratch of the induced sort holds.
TEST(Bwt, MostValleysBeginAlike) {
    Random random(12);
    for (const std::uint32_t rare : {3u, 30u, 300u}) {
        Bytes block = periodic("ab", 30000);
        for (std::uint32_t p = 1; p < 30000; p += 2 * (1 + random.below(rare)))
            block[p] = static_cast<std::uint8_t>('c' + random.below(3));
        EXPECT_EQ(sorted_rows(block, sort_by_induction), sorted_rows(block, sort_by_tripling))
            << "1 in " << rare;
    }
}

// Blocks put together from a few phrases: rotations agree for long, some valleys, many or
// all are tied, and strings of names are sorted through several levels.
TEST(Bwt, InductionAgreesWithTripling) {
    Random random(9);
    unsigned periodic_blocks = 0;
    for (int i = 0; i < 3000; ++i) {
        std::vector<Bytes> phrases;
        for (std::uint32_t k = 1 + random.below(5); k > 0; --k) {
            const std::uint32_t length = 1 + random.below(1u << random.below(9));
            phrases.push_back(random_bytes(length, 2 + random.below(1u << random.below(8)),
                                           random.below(1u << 30)));
        }
        Bytes block;
        for (std::uint32_t k = 1 + random.below(1u << random.below(10)); k > 0; --k) {
            const Bytes &phrase = phrases[random.below(static_cast<std::uint32_t>(phrases.size()))];
            block.insert(block.end(), phrase.begin(), phrase.end());
            if (block.size() > 60000) break;
            if (random.below(40) == 0) block.push_back(static_cast<std::uint8_t>(random.below(3)));
        }
        const auto rows = sorted_rows(block, sort_by_induction);
        if (rows.empty()) {
            ++periodic_blocks;
            continue;
        }
        ASSERT_EQ(rows, sorted_rows(block, sort_by_tripling)) << hex(block);
    }
    EXPECT_LT(periodic_blocks, 1500u);
}

TEST(InverseBwt, RefusesPrimaryIndexesOutsideTheBlock) {
    const Bytes sorted = kBwt.forward(to_bytes("abracadabra"));
    for (const std::uint32_t primary_index : {0u, 12u, 0x01000000u, 0xFFFFFFFFu}) {
        Bytes damaged = sorted;
        put_u32(damaged.data() + 11, primary_index);
        EXPECT_FALSE(kBwt.inverse(damaged, 40).has_value()) << primary_index;
    }
    for (std::uint8_t n = 0; n < 5; ++n)
        EXPECT_FALSE(kBwt.inverse(Bytes(n, 1), 40).has_value());
    EXPECT_FALSE(kBwt.inverse({1, 0, 0, 0, 1}, 40).has_value()) << "no bytes, primary index 1";
}

// Any column is some permutation's, most of them of several cycles. The walks in lanes
// must decode it as the walk by single rows does: from 16384 bytes on they are used.
TEST(InverseBwt, DecodesAnyColumnAsTheSingleWalk) {
    Random random(7);
    for (int i = 0; i < 150; ++i) {
        const std::uint32_t n = 16384 - 2 + random.below(i % 3 == 0 ? 6 : 30000);
        Bytes data =
            random_bytes(n, 1 + random.below(1u << random.below(9)), random.below(1u << 30));
        if (i % 2 == 0) std::sort(data.begin(), data.end()); // every row a cycle of its own
        for (std::uint32_t swaps = i % 4 == 0 ? random.below(2 * n) : 0; swaps > 0; --swaps) {
            const std::uint32_t p = random.below(n - 9);
            std::swap(data[p], data[p + random.below(9)]);
        }
        const std::uint32_t primary_index = 1 + random.below(n);
        Bytes expected(n + 1);
        std::vector<std::uint32_t> rows(n);
        plain_inverse_bwt(data.data(), n, primary_index, rows.data(), expected.data());
        expected.pop_back();
        data.resize(n + 5, 1);
        put_u32(data.data() + n, primary_index);
        ASSERT_EQ(kBwt.inverse(data, n + 5 + random.below(100)), expected) << i << ", n " << n;
    }
}

} // namespace
