// Damage of every kind to a small archive of several blocks: it is reported, or what
// comes out is what went in. What the format can't see is told in docs/format.md, and
// shown here to be no more than that.
#include "archive_call.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

class Damage : public testing::Test {
protected:
    const std::vector<Bytes> blocks = {prose(800, 70, "\n", 1), code(500, 2),
                                       random_bytes(100, 256, 3)};
    const Bytes original = join({blocks[0], blocks[1], blocks[2]});
    const Bytes good = make_archive(0x20, blocks);
    const std::vector<std::size_t> starts = record_starts(good);

    void expect_seen(const Bytes &damaged, const std::string &what) {
        const Restored restored = restore_archive(damaged);
        ASSERT_TRUE(!restored.whole() || restored.bytes == original) << what;
    }
};

TEST_F(Damage, EveryBitFlipped) {
    ASSERT_EQ(restore_archive(good).bytes, original);
    for (std::size_t i = 0; i < 8 * good.size(); ++i) {
        Bytes damaged = good;
        damaged[i / 8] = static_cast<std::uint8_t>(damaged[i / 8] ^ 1u << i % 8);
        expect_seen(damaged, "bit " + std::to_string(i));
    }
}

// Cut between two records, the archive is one of fewer blocks.
TEST_F(Damage, EveryLength) {
    for (std::size_t n = 0; n < good.size(); ++n) {
        const Restored restored = restore_archive(first_bytes(good, n));
        const bool at_a_record = std::find(starts.begin(), starts.end(), n) != starts.end();
        ASSERT_EQ(restored.whole(), at_a_record) << "cut to " << n;
        ASSERT_TRUE(std::equal(restored.bytes.begin(), restored.bytes.end(), original.begin()));
    }
}

TEST_F(Damage, GarbageAppended) {
    for (std::size_t n = 1; n < 500; ++n) {
        expect_seen(join({good, random_bytes(n, 256, n)}), std::to_string(n) + " bytes");
        expect_seen(join({good, Bytes(n, 0)}), std::to_string(n) + " zeros");
    }
}

} // namespace
