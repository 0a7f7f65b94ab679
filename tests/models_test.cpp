// The frequency models and what reads the coded bytes, at limits that data rarely meets; and the
// vectors that they are made of.
#include "dce/range_coder.h"
#include "dce/raw_bits.h"
#include "stage_call.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace velk;

namespace {

constexpr std::uint16_t kBuiltinCounts[] = {
#include "dce/builtin_counts.inc"
};

// With another table no archive made so far can be restored.
TEST(Models, BuiltinCountsAreFrozen) {
    std::uint32_t crc = 0xFFFFFFFF; // of the counts' bytes, the last one first
    for (std::size_t i = std::size(kBuiltinCounts); i-- > 0;) {
        crc ^= std::uint32_t{kBuiltinCounts[i]} >> 8;
        for (int bit = 0; bit < 16; ++bit) {
            if (bit == 8) crc ^= kBuiltinCounts[i] & 255u;
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
        }
    }
    EXPECT_EQ(~crc, 0x8B980ADAu);
}

TEST(Vectors, LaneBitsAreThoseOfEachLane) {
    for (std::uint32_t k = 0; k < 2 * kVectorBytes; ++k) {
        std::uint8_t bytes[3 * kVectorBytes] = {};
        bytes[k] = bytes[kVectorBytes] = 1;
        const ByteLanes set = load<ByteLanes>(bytes + kVectorBytes / 2) != 0;
        EXPECT_EQ(lane_bits(set), plain_lane_bits(set)) << k;
    }
}

// Of every symbol one count, but of symbol 3.
FreqModel flat_model(std::uint32_t count_3 = 1) {
    FreqModel model;
    for (std::uint32_t x = 0; x < kSymbols; ++x)
        model.cumulative[x] = static_cast<std::uint16_t>(x + (x < 3 ? 1 : count_3));
    return model;
}

// One count leads the model to its limit, exactly; the next one over it.
TEST(Models, HalvedRoundingUpAboveTheLimit) {
    const std::uint32_t high = 65535 - 31, high_bit = high - kBitIncrement;
    const FreqModel halved = flat_model((high + kDistanceIncrement + 1) / 2);
    for (const bool first : {true, false}) { // the other model is not halved with it
        FreqModel model = flat_model(high - kDistanceIncrement), other = flat_model();
        for (const std::uint32_t right : {65535u, total(halved)}) {
            count(first ? model : other, first ? other : model, 3);
            EXPECT_EQ(total(model), right);
        }
        EXPECT_TRUE(std::equal(model.cumulative, model.cumulative + 32, halved.cumulative));
        EXPECT_EQ(total(other), 32u + 2 * kDistanceIncrement);
    }
    const auto bit_model = [](std::uint64_t count_3) {
        return BitModel{0x0003000300020001u + (count_3 << 48)};
    };
    BitModel bit = bit_model(high_bit);
    count(bit, 3);
    EXPECT_EQ(total(bit), 65535u);
    count(bit, 3);
    EXPECT_EQ(bit.cumulative, bit_model((high + kBitIncrement + 1) / 2).cumulative);
}

TEST(Models, CodesThatNoEncoderWrites) {
    const std::uint8_t bytes[16] = {};
    EXPECT_TRUE(failed(RangeDecoder{bytes, 4}));
    EXPECT_FALSE(failed(RangeDecoder{bytes, 5}));
    for (const bool beyond : {false, true}) {
        BitModel model{0x0004000300020001u};
        const std::uint32_t end = 4 * (1u << 24) / 32; // of the four counts
        RangeDecoder decoder{bytes, 9, 5, 1u << 24, end - !beyond};
        EXPECT_EQ(decode_doubled(decoder, model), 3u);
        EXPECT_EQ(failed(decoder), beyond);
        FreqModel primary = flat_model(), secondary = flat_model();
        RangeDecoder of_pairs{bytes, 9, 5, (1u << 24) + 63, (1u << 24) - !beyond};
        EXPECT_EQ(decode_pair(of_pairs, primary, secondary, [] {}), 31u);
        EXPECT_EQ(failed(of_pairs), beyond);
    }
    RawBitReader reader{bytes, 1};
    get(reader, 8);
    EXPECT_FALSE(past_front(reader));
    get(reader, 1);
    EXPECT_TRUE(past_front(reader));
}

// A block of one byte; a value that comes first behind the block's end, or at its start again;
// 256 values, all 0, in places one behind the other, and 257 of them, as the encoder codes them.
TEST(InverseDce, FirstPlacesOfValues) {
    EXPECT_TRUE(kDce.inverse({0, 49, 37, 26, 141, 205, 3, 0, 0, 0, 1}, 30).has_value());
    EXPECT_FALSE(kDce.inverse({0, 73, 6, 160, 37, 26, 123, 50, 5, 0, 0, 0, 1}, 30).has_value());
    EXPECT_FALSE(kDce.inverse({0, 73, 247, 171, 184, 18, 2, 4, 0, 0, 0, 1}, 30).has_value());
    const Bytes start = {0,   212, 175, 41,  171, 179, 224, 11,  18,  106, 143, 175, 184, 253, 19,
                         74,  119, 243, 194, 122, 205, 186, 156, 130, 93,  87,  62,  188, 96,  156,
                         16,  192, 17,  155, 214, 243, 83,  10,  114, 73,  155, 77,  198, 237, 161,
                         197, 120, 102, 253, 197, 125, 154, 255, 165, 149, 109, 105, 209, 12,  57,
                         109, 34,  31,  160, 32,  140, 177, 149, 168, 97,  224};
    const Bytes most = join({start, {231, 179, 242, 46}, Bytes(40), {3, 188, 2, 3, 0, 0, 1}});
    const Bytes too_many = join({start, {238, 100, 187, 238}, Bytes(41), {3, 221, 5, 3, 0, 0, 1}});
    EXPECT_EQ(kDce.inverse(most, 300), Bytes(256));
    EXPECT_FALSE(kDce.inverse(too_many, 300).has_value());
}

} // namespace
