// Every stage on the same blocks. What it makes of each family of them has a CRC in
// tests/golden/STAGE.txt, which no change may alter; so has what becomes of damaged blocks: they
// are refused, or something is restored within the buffers (the sanitizers watch them).
#include "base/byte_order.h"
#include "filters/flt32.h"
#include "pipeline/crc32.h"
#include "stage_call.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iomanip>
#include <numeric>
#include <sstream>

using namespace velk;

namespace {

using Blocks = std::vector<Bytes>;
using Family = std::pair<std::string, Blocks>;

Family family(const std::string &name, int count, Bytes (*make)(Random &)) {
    Random random(static_cast<std::uint64_t>(count));
    Family made{name, {}};
    for (int i = 0; i < count; ++i)
        made.second.push_back(make(random));
    return made;
}

// Lines as long as the width, or near the lengths from which it is out of reach, of words of
// any length; breaks of all kinds.
Bytes lines(Random &random) {
    const std::string breaks[] = {"\r\n", "\r\n", "\r\n", "\r\n ", "\r\n\r\n", "\n", "\r ", "\r"};
    const std::uint32_t width =
                            random.below(12) == 0 ? 253 + random.below(4) : 20 + random.below(30),
                        kinds = 3 + random.below(6);
    std::string text;
    for (std::uint32_t i = 1 + random.below(40); i > 0; --i) {
        const std::uint32_t less[] = {0, 0, random.below(4), 12 + random.below(6),
                                      random.below(width)};
        const std::uint32_t word = 2 + random.below(30);
        for (std::uint32_t left = width - less[random.below(5)]; left > 0; --left)
            text += random.below(word) == 0 ? ' ' : 'w';
        text += breaks[random.below(kinds)];
    }
    const Bytes bytes = to_bytes(text);
    return first_bytes(bytes, bytes.size() - random.below(length_of(bytes)) / 9);
}

// Calls with operands at both ends of those that are converted, and cut short.
Bytes calls(Random &random) {
    Bytes bytes(1 + random.below(40));
    for (auto &b : bytes) {
        const std::uint8_t common[] = {0xE8, 0, 0, 0, 0xFF, ' ', 0xE9, 0xE8};
        b = random.below(4) == 0 ? static_cast<std::uint8_t>(random.below(64))
                                 : common[random.below(8)];
    }
    for (std::uint32_t p = 0; p + 5 <= bytes.size(); p += 1 + random.below(9)) {
        const std::uint32_t n = length_of(bytes);
        const std::uint32_t around[] = {0u, n, n - p, n + p, 0u - p};
        bytes[p] = 0xE8;
        put_u32(&bytes[p + 1], around[random.below(5)] + random.below(3) - 1);
    }
    return bytes;
}

Bytes noisy_records(Random &random) {
    const std::uint32_t most[] = {12, 60, 400, 9000};
    const std::uint32_t n = 1 + random.below(most[random.below(4)]), size = 1 + random.below(5);
    Bytes bytes = records(n, size, random.below(1u << 30));
    if (random.below(3) == 0) std::fill_n(bytes.begin(), std::min(n, random.below(4)), 0);
    for (std::uint32_t p = 0; p < n && n % 2 == 0; p += size)
        bytes[p] = 7;
    for (std::uint32_t i = random.below(1 + random.below(100)); i > 0; --i)
        bytes[random.below(length_of(bytes))] = static_cast<std::uint8_t>(random.below(256));
    return bytes;
}

// Matches as long as one, two and three bytes of a length code can say, and a bit more.
Bytes matches(Random &random) {
    const Bytes base = random_bytes(700, 250, random.below(1u << 30));
    Bytes bytes;
    for (std::uint32_t i = 2 + random.below(4); i > 0; --i) {
        const std::uint32_t lengths[] = {60, 310, 566, 4};
        const auto from = base.begin() + random.below(20);
        const std::uint32_t length = lengths[random.below(4)] + random.below(12);
        if (random.below(4) == 0) append(bytes, Bytes(length, base[0]));
        bytes.insert(bytes.end(), from, from + length);
        bytes.push_back(static_cast<std::uint8_t>(250 + random.below(6)));
    }
    if (random.below(2) == 0) bytes.pop_back();
    return bytes;
}

// Groups of equal rotations, small enough to be looked at in each of its ways by the sort
// whose order shows in their primary index.
Bytes periods(Random &random) {
    const std::uint32_t times[] = {2, 2, 2, 3, 3, 4, 5, 6, 8, 16, 17, 24, 25, 26, 27, 40};
    const std::uint32_t i = random.below(16), n = 1 + random.below(1u << random.below(9));
    const std::uint32_t seed = random.below(1u << 30);
    return repeated(random_bytes(n, 1 + random.below(4), seed), times[i]);
}

// Groups that are partitioned down to a few rows, in which every step may swap equal ones.
Bytes partitioned_groups(Random &random) {
    Bytes word(30 + random.below(60), 'a');
    for (auto &b : word)
        b = random.below(6) == 0 ? 'b' : 'a';
    return repeated(word, 2 + random.below(2));
}

// Groups of the most rows that the triples hold, and of more, in a few kinds of equal rows.
Blocks groups_of_few_kinds() {
    Blocks blocks;
    for (Bytes word : {to_bytes("abcdabceabcf"), to_bytes("abcdabcgabceabchabcf")}) {
        for (const std::size_t rows : {65535u, 90000u}) {
            for (std::size_t i = 0; i < word.size(); i += 4) {
                std::rotate(word.begin(), word.begin() + 4, word.end());
                blocks.push_back(repeated(word, 4 * rows / word.size()));
            }
        }
    }
    for (auto &block : blocks)
        std::rotate(block.begin(), block.end() - 1, block.end()); // the second byte's row counts
    return blocks;
}

// Groups around the largest that the sort's triples hold, and above, with others in them.
Blocks large_groups() {
    Blocks blocks;
    for (const std::size_t times : {65534u, 65535u, 65536u, 65537u, 90000u}) {
        for (const std::string word : {"a", "ab", "aab"})
            blocks.push_back(periodic(word, times * word.size()));
    }
    for (const std::uint32_t rare : {9u, 60u, 1500u}) {
        Bytes word = random_bytes(200000, rare, rare);
        for (auto &b : word)
            b = b == 7 ? 'x' : 'a';
        blocks.push_back(repeated(word, 2));
        blocks.push_back(repeated(first_bytes(word, 40000), 9));
    }
    for (const auto &[rows, times] : {std::pair{65535u, 5u}, {65536u, 4u}}) {
        Random random(rows);
        Bytes word; // so many times three equal bytes, with all kinds of bytes behind
        for (std::uint32_t left = rows / times, length; left > 0; left -= length) {
            length = std::min(left, random.below(60));
            append(word, join({Bytes(length + 2, 'a'), {'x'}}));
        }
        blocks.push_back(repeated(word, times));
    }
    blocks.push_back(periodic("abcabcabd", 9 * 30000));
    blocks.push_back(periodic("dabceabc", 4 * 70000)); // a part of a group keeps its order
    blocks.push_back(join({Bytes(90000, 'a'), to_bytes("b"), Bytes(80000, 'a'), to_bytes("c")}));
    return blocks;
}

// Enough values in a few contexts that every kind of model is halved many times.
Bytes many_values(Random &random) {
    const std::uint32_t seed = random.below(1u << 30);
    Bytes bytes = random_bytes(100000, 3 + random.below(30), seed);
    for (std::size_t i = 0; i < bytes.size(); i += 97)
        bytes[i] = static_cast<std::uint8_t>(i);
    return bytes;
}

std::vector<Family> families() {
    std::vector<Family> all;
    for (const auto &[name, bytes] : all_kinds(20000))
        all.push_back({name, {bytes}});
    for (const auto &[name, bytes] : all_kinds(70000)) {
        if (name == "fibonacci" || name == "period of prose")
            all.push_back({name + ", long", {bytes}});
    }
    all.push_back(family("small", 1000, [](Random &r) { return random_block(r, 300); }));
    all.push_back(family("lines", 600, lines));
    all.push_back(family("calls", 600, calls));
    all.push_back(family("noisy records", 600, noisy_records));
    all.push_back(family("matches", 300, matches));
    all.push_back(family("periods", 4000, periods));
    all.push_back(family("many values", 4, many_values));
    all.push_back({"large groups", large_groups()});
    all.push_back(family("partitioned groups", 4000, partitioned_groups));
    all.push_back({"groups of few kinds", groups_of_few_kinds()});
    return all;
}

void append_verdict(Bytes &all, const std::optional<Bytes> &restored) {
    all.push_back(restored ? 1 : 0);
    if (restored) append(all, *restored);
}

std::string crc_line(const std::string &name, const Bytes &bytes) {
    std::ostringstream line;
    line << std::hex << std::setw(8) << std::setfill('0')
         << crc32_block(bytes.data(), length_of(bytes)) << "  " << name << "\n";
    return line.str();
}

// The coded blocks, and what becomes of them with just too little room, and more.
Bytes there_and_back(const Stage &stage, const Family &family, bool sorted) {
    const auto &[name, blocks] = family;
    Bytes all;
    // The table of the ST takes a while to clear.
    const std::size_t step = &stage == &kSt && blocks.size() > 50 ? 16 : 1;
    for (std::size_t i = 0; i < blocks.size(); i += step) {
        const Bytes block = sorted ? kBwt.forward(blocks[i]) : blocks[i];
        const Bytes coded = stage.forward(block);
        append(all, coded);
        const std::uint32_t n = length_of(block), coded_len = length_of(coded);
        EXPECT_EQ(stage.inverse(coded, std::max(n, coded_len) + kForwardSlack), block)
            << stage.name << ", " << name << ", " << testing::PrintToString(block);
        for (std::uint32_t room = std::max(coded_len, n - 1); n < 700 && room < n + 3; ++room)
            append_verdict(all, stage.inverse(coded, room));
    }
    return all;
}

// Like `good`, and sometimes worse.
Bytes damaged(Random &random, Bytes data) {
    for (std::uint32_t k = 1 + random.below(3); k > 0; --k) {
        // Often near the end, where the trailers are.
        const std::uint32_t n = length_of(data);
        const std::uint32_t back = random.below(random.below(2) == 0 ? n : std::min(n, 12u));
        std::uint8_t &byte = data[n - 1 - back];
        byte = static_cast<std::uint8_t>(random.below(3) == 0 ? byte + random.below(3) - 1
                                                              : random.below(256));
    }
    return data;
}

// What becomes of random bytes, and of coded blocks that are damaged.
Bytes verdicts_on_anything(const Stage &stage) {
    Random random(5);
    const bool slow = &stage == &kSt;
    Bytes all;
    const auto face = [&](const Bytes &data, std::size_t room) {
        const auto capacity = static_cast<std::uint32_t>(std::max(data.size(), room));
        const auto restored = stage.inverse(data, capacity);
        EXPECT_TRUE(!restored || restored->size() <= capacity) << testing::PrintToString(data);
        append_verdict(all, restored);
    };
    for (std::uint32_t n = 0; n < 12; ++n) {
        face(Bytes(n, 1), 40);
        face(join({Bytes(n), {1}}), 40);
    }
    for (int i = 0; i < (slow ? 60 : 1500); ++i) {
        const std::uint32_t seed = random.below(1u << 30), alphabet = 1 + random.below(256);
        Bytes data = random_bytes(random.below(60), alphabet, seed);
        if (!data.empty() && i % 4 != 0) data.back() = static_cast<std::uint8_t>(random.below(4));
        face(data, data.size() + random.below(50));
    }
    for (const auto &[name, bytes] : all_kinds(500)) {
        const Bytes good = stage.forward(bytes);
        for (int i = 0; i < (slow ? 3 : 60); ++i) {
            const std::size_t room = bytes.size() + random.below(kForwardSlack);
            face(damaged(random, good), room);
        }
    }
    for (int i = 0; i < (slow ? 40 : 4000); ++i) {
        const Bytes block = random_block(random, 60);
        const std::size_t room = block.size() + random.below(3);
        face(damaged(random, stage.forward(block)), room);
    }
    return all;
}

class Stages : public testing::TestWithParam<const Stage *> {};
INSTANTIATE_TEST_SUITE_P(Each, Stages, testing::ValuesIn(kStages),
                         [](const auto &test) { return test.param->name; });

TEST_P(Stages, SameBytesAndVerdicts) {
    const Stage &stage = *GetParam();
    const std::string file = stage.name + ".txt";
    std::string lines = crc_line("anything", verdicts_on_anything(stage));
    for (const Family &family : families()) {
        lines += crc_line(family.first, there_and_back(stage, family, false));
        if (&stage == &kRle || &stage == &kDce)
            lines += crc_line(family.first + ", sorted", there_and_back(stage, family, true));
        ASSERT_TRUE(kept_text(file, lines).starts_with(lines)) << lines;
    }
    EXPECT_EQ(lines, kept_text(file, lines));
}

// The chain gives it the size of the file, which the ranges of operands follow from.
TEST(Flt32, DeclinesFilesTooLargeForItsNumbers) {
    const auto trailer = [](std::uint32_t file_size) {
        Bytes in(40), out(40);
        std::uint8_t *from = in.data(), *to = out.data();
        std::uint32_t length;
        flt32_encode(from, 12, to, length, file_size, 0);
        return to[length - 1];
    };
    // base + R + n: 3 * file_size + 12 against 2^32 - 1.
    EXPECT_EQ(trailer(1431655761), 1);
    EXPECT_EQ(trailer(1431655762), 0);
    EXPECT_EQ(trailer(0xFFFFFFFF), 0);
}

// Groups of 61 bytes without any match but fourteen at distance 2 and, at distance 1, two
// single ones and two in a row: just as many repeated ones (a quarter) as are borne. One
// more, or a single one less, in any group must show.
TEST(Delta, CountsEveryPosition) {
    constexpr std::size_t kGroup = 61, kGroups = 150;
    Bytes block(kGroup * kGroups);
    for (std::size_t i = 0; i < block.size(); ++i) {
        const std::size_t at = i % kGroup;
        const bool pair = at == 3 || at == 8 || at == 13 || at == 14;
        const bool two_apart = at >= 20 && at % 3 == 0;
        block[i] = static_cast<std::uint8_t>(1 + i % 250);
        if (pair || two_apart) block[i] = block[i - (pair ? 1 : 2)];
    }
    ASSERT_EQ(kDelta.forward(block).back(), 1);
    for (std::size_t start = 0; start < block.size(); start += kGroup) {
        Bytes fewer = block, more = block;
        fewer[start + 3] = 255;
        more[start + 9] = more[start + 8];
        ASSERT_EQ(kDelta.forward(fewer).back(), 0) << start;
        ASSERT_EQ(kDelta.forward(more).back(), 0) << start;
    }
}

TEST(Lzp, EscapesInARow) {
    Bytes block;
    for (const std::uint8_t b : random_bytes(30000, 256, 3))
        block.insert(block.end(), 2, b);
    append(block, first_bytes(block, 2000)); // a match, so that it is applied
    const Bytes coded = kLzp.forward(block);
    ASSERT_EQ(coded.back(), 1);
    EXPECT_EQ(kLzp.inverse(coded, length_of(block) + kForwardSlack), block);
}

// One walk through the LF mapping, from the block's end to its start.
Bytes walked(const Bytes &column, std::uint32_t row) {
    std::vector<std::uint32_t> order(column.size()), lf(column.size());
    std::iota(order.begin(), order.end(), 0u);
    std::stable_sort(order.begin(), order.end(),
                     [&](auto a, auto b) { return column[a] < column[b]; });
    for (std::uint32_t i = 0; i < order.size(); ++i)
        lf[order[i]] = i;
    Bytes block(column.size());
    for (std::size_t p = block.size(); p > 0; --p, row = lf[row])
        block[p % block.size()] = column[row];
    return block;
}

// Any column is some permutation's, most of them of several cycles.
TEST(InverseBwt, AnyColumn) {
    Random random(7);
    for (std::uint32_t i = 0; i < 150; ++i) {
        const std::uint32_t n = 10 + random.below(i % 3 == 0 ? 3000 : 46000);
        const std::uint32_t seed = random.below(1u << 30);
        Bytes column = random_bytes(n, 1 + random.below(1u << random.below(9)), seed);
        if (i % 2 == 0) std::sort(column.begin(), column.end()); // every row a cycle of its own
        for (std::uint32_t swaps = i % 4 == 0 ? random.below(2 * n) : 0; swaps > 0; --swaps) {
            const std::uint32_t p = random.below(n - 9);
            std::swap(column[p], column[p + random.below(9)]);
        }
        const std::uint32_t primary_index = i % 10 == 0 ? n - 1 + i / 10 % 3 : random.below(n);
        Bytes data = join({column, Bytes(5, 1)});
        put_u32(&data[n], primary_index);
        const auto restored = kBwt.inverse(data, n + 5 + random.below(100));
        ASSERT_EQ(restored.has_value(), primary_index >= 1 && primary_index <= n) << n << " bytes";
        ASSERT_TRUE(!restored || *restored == walked(column, primary_index - 1)) << n << " bytes";
    }
}

} // namespace
