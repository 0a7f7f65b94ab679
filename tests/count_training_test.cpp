// What the count table is trained on: the size that the tool computes for a block.
#include "coder_events.h"
#include "pipeline/crc32.h"
#include "row_fitting.h"
#include "stage_call.h"

#include <gtest/gtest.h>

using namespace velk;

namespace {

constexpr std::uint16_t kBuiltinCounts[] = {
#include "dce/builtin_counts.inc"
};

// Part of the format: with another table no archive made so far can be restored.
TEST(BuiltinCounts, AreFrozen) {
    Bytes bytes;
    for (const std::uint16_t count : kBuiltinCounts)
        bytes.insert(bytes.end(), {static_cast<std::uint8_t>(count & 255),
                                   static_cast<std::uint8_t>(count >> 8)});
    EXPECT_EQ(crc32_block(bytes.data(), static_cast<std::uint32_t>(bytes.size())), 0x8B980ADAu);
}

TEST(CountTraining, ComputesTheSizesOfTheCoder) {
    Table table;
    for (std::uint32_t c = 0; c < kContexts; ++c) {
        for (std::uint32_t x = 0; x < kSymbols; ++x)
            table[c][x] = kBuiltinCounts[c * (kSymbols + 1) + 1 + x] + 1u;
    }
    // The last is long enough for models to be halved.
    const Bytes blocks[] = {kBwt.forward(prose(5000, 72, "\n", 1)), kBwt.forward(code(100000, 2)),
                            random_bytes(300000, 40, 3)};
    for (const Bytes &block : blocks) {
        const std::uint32_t n = static_cast<std::uint32_t>(block.size());
        const double computed = coded_bits(table, block.data(), n).all() / 8;
        const double coded = static_cast<double>(kDce.forward(block).size());
        // Beside the symbols the block ends two streams and has a tail.
        EXPECT_GT(coded, computed) << n;
        EXPECT_LT(coded, computed * 1.001 + 16) << n;

        // Context by context the same comes out, but for the raw bits.
        EventLog log;
        add_block(log, block.data(), n, 1.0);
        double by_context = 0;
        for (std::uint32_t c = 0; c < kContexts; ++c)
            by_context += coded_bits(log, c, table[c], block.size() * 2);
        const CodedBits parts = coded_bits(table, block.data(), n);
        EXPECT_GE(by_context, parts.distances + parts.two_bits) << n;
        EXPECT_LE(by_context, parts.all() - parts.raw + 1e-6) << n;
    }
    // Of the header count the length and where each value comes first, nothing else.
    const Bytes one = periodic("abc", 90), other = join({to_bytes("abc"), Bytes(87, 'a')});
    EXPECT_EQ(coded_bits(table, one.data(), 90).header, coded_bits(table, other.data(), 90).header);
}

} // namespace
