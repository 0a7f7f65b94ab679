// Inverse stages on data that no forward stage writes: they refuse or restore
// something, within their buffers (which the sanitizers watch to the byte) and in
// time.
#include "pipeline/byte_order.h"
#include "stage_call.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace velk;

namespace {

void call_inverse(const Stage &stage, const Bytes &data, std::uint32_t capacity) {
    const auto restored = stage.inverse(data, capacity);
    if (restored) {
        ASSERT_LE(restored->size(), capacity) << stage.name << ", " << hex(data);
    }
}

TEST(Hostile, RandomBytes) {
    Random random(5);
    for (const Stage *stage : kStages) {
        const int blocks = stage == &kSt ? 60 : 1500;
        for (int i = 0; i < blocks; ++i) {
            Bytes data =
                random_bytes(random.below(60), 1 + random.below(256), random.below(1u << 30));
            if (!data.empty() && i % 4 != 0)
                data.back() = static_cast<std::uint8_t>(random.below(4));
            call_inverse(*stage, data, static_cast<std::uint32_t>(data.size()) + random.below(50));
        }
    }
}

TEST(Hostile, DamagedBlocks) {
    Random random(6);
    for (const Stage *stage : kStages) {
        for (const auto &[name, bytes] : all_kinds(500)) {
            const Bytes good = stage->forward(bytes);
            const int copies = stage == &kSt ? 3 : 60;
            for (int i = 0; i < copies; ++i) {
                Bytes data = good;
                for (std::uint32_t k = 1 + random.below(3); k > 0; --k) {
                    // Often near the end, where the trailers are.
                    const std::size_t n = data.size();
                    const std::uint32_t back = random.below(static_cast<std::uint32_t>(
                        random.below(2) == 0 ? n : std::min<std::size_t>(n, 12)));
                    data[n - 1 - back] = static_cast<std::uint8_t>(random.below(256));
                }
                // Sometimes less room than the block had.
                const std::size_t room = bytes.size() + random.below(kForwardSlack);
                call_inverse(*stage, data, static_cast<std::uint32_t>(std::max(data.size(), room)));
            }
        }
    }
}

TEST(Hostile, EmptyBlocks) {
    for (const Stage *stage : kStages)
        EXPECT_FALSE(stage->inverse({}, 10).has_value()) << stage->name;
}

TEST(Hostile, DceWithWrongCounts) {
    const Bytes block = prose(5000, 70, "\n", 1);
    Bytes coded = kDce.forward(block);
    std::uint8_t *const value_count = &coded[coded.size() - 5];
    const std::uint32_t right = get_u32(value_count);
    const auto restored = [&](std::uint32_t count, std::uint32_t capacity = 5000) {
        put_u32(value_count, count);
        return kDce.inverse(coded, capacity);
    };
    EXPECT_EQ(restored(right), block);
    EXPECT_FALSE(restored(right, 4999).has_value()) << "a byte above the capacity";
    EXPECT_FALSE(restored(right + 1).has_value()) << "a run behind the end";
    EXPECT_FALSE(restored(0xFFFFFFFF).has_value()) << "more runs than any block has";
    EXPECT_LT(restored(right - 1)->size(), block.size());
    EXPECT_EQ(restored(0), Bytes()) << "no runs, no bytes";
}

} // namespace
