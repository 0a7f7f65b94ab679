// The filters on blocks made to stand at the limits of their rules.
#include "filters/flt32.h"
#include "stage_call.h"

#include <gtest/gtest.h>

using namespace velk;

namespace {

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

} // namespace
