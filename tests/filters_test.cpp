// The filters and the ST on blocks small enough to check by hand, at the limits of
// their rules.
#include "filters/flt32.h"
#include "stage_call.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>

using namespace velk;

namespace {

Bytes with(Bytes bytes, std::initializer_list<int> more) {
    for (const int b : more)
        bytes.push_back(static_cast<std::uint8_t>(b));
    return bytes;
}

std::string repeated(const std::string &word, std::size_t times) {
    std::string text;
    while (times-- > 0)
        text += word;
    return text;
}

TEST(Eol, DeclinesWithTheBreaksSwapped) {
    Bytes all(256);
    std::iota(all.begin(), all.end(), std::uint8_t{0});
    EXPECT_EQ(kEol.forward(join({to_bytes("x\ny\r\n"), all})),
              join({to_bytes("x\ny\r "), all, {1}}))
        << "no byte value is free for an escape";
    EXPECT_EQ(kEol.forward(to_bytes("a\r b\r\n")), with(to_bytes("a\r\nb\r "), {1})) << "no LF";
    EXPECT_EQ(kEol.forward(to_bytes("a\n b\nc")), with(to_bytes("a\n b\nc"), {1})) << "a tie";
    EXPECT_EQ(kEol.forward(to_bytes("a\nb")), with(to_bytes("a\nb"), {0, 2})) << "no CR";
}

// Lines of 40 columns (W reaches 40 after five), then one of a given length with a
// given start of the next line: is its CR dropped?
bool drops_break(std::size_t length, const std::string &next) {
    const std::string line(39, 'w'), shorter(length - 1, 'v');
    const std::string text = repeated(line + "\r\n", 8) + shorter + "\r\n" + next;
    const Bytes coded = kEol.forward(to_bytes(text));
    const std::string kept = shorter + "\r ";
    return std::search(coded.begin(), coded.end(), kept.begin(), kept.end()) == coded.end();
}

TEST(Eol, LooksAtTheNextWordOnly) {
    EXPECT_TRUE(drops_break(40, "x"));
    EXPECT_FALSE(drops_break(41, "xxxxxxxx"));
    EXPECT_TRUE(drops_break(39, "xx")) << "x would stand in column 40";
    EXPECT_FALSE(drops_break(39, "")) << "nothing follows";
    EXPECT_FALSE(drops_break(39, " x")) << "a second space";
    EXPECT_FALSE(drops_break(39, "\r\nx")) << "an empty line follows";
    EXPECT_TRUE(drops_break(36, "wordsx")) << "one byte of the word beyond column 40";
    EXPECT_FALSE(drops_break(36, "abc x")) << "the word fits";
    EXPECT_TRUE(drops_break(26, std::string(16, 'x'))) << "14 columns missing";
    EXPECT_FALSE(drops_break(25, std::string(40, 'x'))) << "15 columns missing";
}

TEST(Flt32, MakesCallsAbsolute) {
    const std::pair<Bytes, Bytes> operands[] = {
        {{2, 0, 0, 0}, {7, 0, 0, 0}},
        {{9, 0, 0, 0}, {0xFD, 0xFF, 0xFF, 0xFF}}, // just above the range: moved below 0
        {{17, 0, 0, 0}, {17, 0, 0, 0}},           // out of reach
    };
    const Bytes before = {0, 0, 0, 0, 0, 0xE8};
    for (const auto &[relative, absolute] : operands) {
        EXPECT_EQ(kFlt32.forward(join({before, relative, {0, 0}})),
                  join({before, absolute, {0, 0}, {0, 0, 0, 0, 12, 0, 0, 0, 1}}));
    }
    EXPECT_EQ(kFlt32.forward({0, 0xE8, 1, 0, 0}).at(2), 1) << "no room for an operand";
    EXPECT_EQ(kFlt32.forward({0xE8, 0xE8, 0xE8, 0xE8, 0xE8, 0, 0}).size(), 7u + 9);
}

TEST(Flt32, DeclinesTextAndWhatIsNotOneToOne) {
    EXPECT_EQ(kFlt32.forward(with({}, {0, ' ', 0, ' '})).back(), 1) << "as many of either";
    EXPECT_EQ(kFlt32.forward(with({}, {0, ' ', ' '})).back(), 0);
    const auto trailer = [](std::uint32_t file_size) {
        Bytes in(40), out(40);
        std::uint8_t *from = in.data(), *to = out.data();
        std::uint32_t length;
        flt32_encode(from, 10, to, length, file_size, 0);
        return to[length - 1];
    };
    // base + R + n: 3 * file_size + 10 against 2^32.
    EXPECT_EQ(trailer(1431655761), 1);
    EXPECT_EQ(trailer(1431655762), 0);
    EXPECT_EQ(trailer(0xFFFFFFFF), 0);
}

TEST(Delta, FindsTheRecordSize) {
    Bytes two(9000), three(999);
    for (std::size_t i = 0; i < two.size(); ++i) {
        two[i] = i % 2 == 0 ? static_cast<std::uint8_t>(i / 2) : 7;
        if (i < 999)
            three[i] = i % 3 == 0 ? static_cast<std::uint8_t>(i / 3) : i % 3 == 1 ? 50 : 60;
    }
    const Bytes split = kDelta.forward(two);
    EXPECT_EQ(split.back(), 1);
    for (std::size_t i = 0; i < 4500; ++i) {
        ASSERT_EQ(split[i], i % 256);
        ASSERT_EQ(split[4500 + i], 7);
    }
    EXPECT_EQ(kDelta.forward(three).back(), 2);
    EXPECT_EQ(kDelta.forward(records(4000, 4, 1)).back(), 3);
}

TEST(Delta, DeclinesWithoutRecords) {
    EXPECT_EQ(kDelta.forward(Bytes(100, 'a')).back(), 0);
    EXPECT_EQ(kDelta.forward(Bytes(100, 0)).back(), 0);
    EXPECT_EQ(kDelta.forward({1, 2, 1}).back(), 0) << "too short";
    EXPECT_EQ(kDelta.forward(random_bytes(10000, 256, 1)).back(), 0);
    EXPECT_EQ(kDelta.forward(prose(10000, 70, "\n", 1)).back(), 0);
    EXPECT_FALSE(kDelta.inverse({1, 2, 3, 4}, 10).has_value()) << "trailer 4";
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

// The length code, less the byte before it, of a match of this length: random bytes
// twice with a break between; four bytes of context go ahead of the match as literals.
Bytes length_code(std::size_t length) {
    const Bytes part = random_bytes(length + 4, 250, 1);
    const Bytes block = join({to_bytes("\xFA"), part, to_bytes("\xFB"), part, to_bytes("\xFC")});
    const Bytes coded = kLzp.forward(block);
    if (coded.back() == 0) return {};
    const std::size_t match = 1 + part.size() + 1 + 4;
    EXPECT_EQ(coded[match], coded[coded.size() - 2]) << "the escape byte";
    Bytes code(coded.begin() + static_cast<std::ptrdiff_t>(match + 1), coded.end() - 3);
    for (auto &byte : code)
        byte = static_cast<std::uint8_t>(byte - part[3]);
    return code;
}

TEST(Lzp, LimitsOfMatchLengths) {
    const std::pair<std::size_t, Bytes> codes[] = {{62, {}},
                                                   {63, {}},
                                                   {64, {2}},
                                                   {63 + 254, {255}},
                                                   {63 + 255, {1, 2}},
                                                   {63 + 508, {1, 255}},
                                                   {63 + 509, {1, 1, 2}}};
    for (const auto &[length, code] : codes)
        EXPECT_EQ(length_code(length), code) << length;
    EXPECT_EQ(kLzp.forward(Bytes(4, 'a')), with(Bytes(4, 'a'), {0})) << "too short a block";
}

TEST(Lzp, RefusesCodesCutShortOrTooLong) {
    const Bytes coded = kLzp.forward(Bytes(1000, 'a'));
    EXPECT_EQ(kLzp.inverse(coded, 1000), Bytes(1000, 'a'));
    EXPECT_FALSE(kLzp.inverse(coded, 999).has_value());
    EXPECT_FALSE(kLzp.inverse(with(Bytes(5, 'a'), {0, 98, 98, 98, 0, 1}), 1000).has_value());
    EXPECT_FALSE(kLzp.inverse(with(Bytes(5, 'a'), {0, 0, 1}), 1000).has_value());
    EXPECT_FALSE(kLzp.inverse({0, 1}, 1000).has_value());
}

TEST(St, SmallBlocksInFull) {
    EXPECT_EQ(kSt.forward(to_bytes("abab")), with(to_bytes("bbaaaba"), {1}));
    EXPECT_EQ(kSt.forward(to_bytes("1ab2ab")), with(to_bytes("bb21aa1ab"), {1}))
        << "1 and 2 agree in their top five bits: the later rotation comes first";
    EXPECT_EQ(kSt.forward(to_bytes("ab")), with(to_bytes("ab"), {0}));
}

} // namespace
