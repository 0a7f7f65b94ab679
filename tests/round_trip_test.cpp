// Whatever goes through a whole block's chain comes back.
#include "archive/memory.h"
#include "archive_call.h"
#include "base/block_size.h"

#include <gtest/gtest.h>

using namespace velk;

namespace {

TEST(RoundTrip, EverySwitchOnEveryKindOfData) {
    const auto inputs = all_kinds(6000);
    for (unsigned flags = 0; flags < 256; ++flags) {
        for (const bool no_fallback : {false, true}) {
            Chain chain(static_cast<std::uint8_t>(flags), no_fallback, 6001);
            ASSERT_EQ(chain.usable(), (flags & 0x30) != 0) << "both sorting transforms on";
            if (!chain.usable()) continue;
            // Every kind with every fourth set of switches; the sets differ by kind.
            for (std::size_t i = flags % 4; i < inputs.size(); i += 4) {
                const Bytes data = chain.compress(inputs[i].bytes);
                ASSERT_LE(data.size(), inputs[i].bytes.size() + kBlockSlack);
                ASSERT_EQ(chain.decompress(data), inputs[i].bytes)
                    << "flags " << flags << ", no fallback " << no_fallback << ", "
                    << inputs[i].name;
            }
        }
    }
}

// Too short, or in need of a sorting transform's memory in an archive whose header says
// that it was off.
TEST(Chain, RecordsThatNoCompressorWritesAreRefused) {
    const Bytes data = Chain(0x20, false, 1).compress(prose(kMinBlockSize, 70, "\n", 1));
    EXPECT_FALSE(Chain(0x30, false, 1).decompress(data).has_value());
    EXPECT_FALSE(Chain(0x10, false, 1).decompress(data).has_value());
    for (std::size_t n = 0; n < 5; ++n)
        EXPECT_FALSE(Chain(0x20, false, 6).decompress(Bytes(n)).has_value()) << n << " bytes";
    EXPECT_TRUE(Chain(0x20, false, 1).compress(Bytes(kMinBlockSize + 1)).empty());
    for (const std::size_t readable : {17u, 22u, 25u}) { // in the header, a head, a block
        const auto [status, bytes, lengths] = restore_archive(make_archive(0x20, {data}), readable);
        EXPECT_TRUE(status == ArchiveStatus::kReadFailed && bytes.empty()) << readable;
    }
    CoderContext context{}; // with both sorting transforms
    EXPECT_EQ(alloc_decompress(context, kMinBlockSize), 0u);
}

} // namespace
