#include "stage_call.h"

#include <gtest/gtest.h>

namespace {

Bytes run_of(std::size_t length, char byte = 'a') {
    return Bytes(length, static_cast<std::uint8_t>(byte));
}

TEST(Rle, RunsBecomeHeadsAndBits) {
    const Bytes block = join({run_of(10), to_bytes("b")});
    const Bytes expected = {'a', 'a', 'a', 'a', 'a', 'b', 0, 0, 1, 6, 0, 0, 0, 1};
    EXPECT_EQ(kRle.forward(block), expected);
}

TEST(Rle, DeclinesWhatItWouldLengthen) {
    const auto declined = [](const Bytes &block) { return kRle.forward(block).back() == 0; };
    EXPECT_TRUE(declined(join({run_of(5), to_bytes("b")}))) << "7 bytes for 6";
    EXPECT_TRUE(declined(join({to_bytes("bb"), run_of(3)}))) << "6 bytes for 5";
    EXPECT_FALSE(declined(join({to_bytes("bb"), run_of(4), to_bytes("cc")})));
    EXPECT_FALSE(declined(to_bytes("abcdefghijklm"))) << "as long as the block";
}

TEST(Rle, DeclinesInterruptedRuns) {
    // One interrupted run, x a x, and bytes without any up to a given length.
    const auto applies = [](std::size_t n) {
        Bytes block = to_bytes("ppxax");
        while (block.size() < n)
            block.push_back(static_cast<std::uint8_t>(128 + block.size()));
        return kRle.forward(block).back() == 1;
    };
    EXPECT_FALSE(applies(12));
    EXPECT_TRUE(applies(13));
    // A first run of length 1 makes the second run count, whatever its byte.
    EXPECT_EQ(kRle.forward(to_bytes("abbbbbbbbb")).back(), 0);
    EXPECT_EQ(kRle.forward(to_bytes("aabbbbbbbb")).back(), 1);
}

TEST(InverseRle, RefusesWhatDoesNotFit) {
    const auto refused = [](const Bytes &data, std::uint32_t capacity) {
        return !kRle.inverse(data, capacity).has_value();
    };
    EXPECT_TRUE(refused({'a', 2, 0, 0, 0, 1}, 30)) << "more heads than bytes";
    EXPECT_TRUE(refused({'a', 'a', 'a', 3, 0, 0, 0, 1}, 30)) << "no bits left";
    EXPECT_TRUE(refused({1, 1, 1, 1}, 30)) << "no room for the head count";
    const Bytes sixteen = {'a', 'a', 'a', 'a', 'a', 1, 1, 1, 5, 0, 0, 0, 1};
    EXPECT_FALSE(refused(sixteen, 16));
    EXPECT_TRUE(refused(sixteen, 15)) << "one byte above the capacity";
    const Bytes long_head = join({run_of(40), Bytes(38, 1), {40, 0, 0, 0, 1}});
    EXPECT_TRUE(refused(long_head, 200)) << "a run of more than 32 bits";
}

} // namespace
