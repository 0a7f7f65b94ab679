// The range coder of the DCE stage: carry propagation by a delayed byte and a count
// of delayed 0xFF bytes (G. N. N. Martin, "Range encoding: an algorithm for removing
// redundancy from a digitised message", 1979; carry handling after M. Schindler,
// "A fast renormalisation for arithmetic coding", 1998).
//
// The encoder's first byte is always 0, and the decoder skips it.
//
// `range` is at least 2^24 when a symbol is coded and a total below 2^17, so a count
// is worth at least 128 of the range and three bytes at most leave the coder a symbol.
#pragma once

#include "dce/frequency_models.h"

#include <cstdint>

constexpr std::uint32_t kMinRange = 1u << 24;

// Members from `low` to `output_cursor` start at 0 but for `range` = 2^32 - 1.
struct RangeEncoder {
    std::uint32_t low;
    std::uint32_t range;
    std::uint32_t carry;         // 1: an addition to `low` went over 2^32
    std::uint32_t cache;         // the byte last shifted out, not yet written
    std::uint32_t pending;       // 0xFF bytes held back behind `cache`
    std::uint32_t output_cursor; // bytes written
    std::uint8_t *output;
};

inline RangeEncoder start_encoder(std::uint8_t *output) {
    return {0, 0xFFFFFFFFu, 0, 0, 0, 0, output};
}

inline void shift_low(RangeEncoder &encoder) {
    if (encoder.low < 0xFF000000u || encoder.carry != 0) {
        encoder.output[encoder.output_cursor++] =
            static_cast<std::uint8_t>(encoder.cache + encoder.carry);
        for (; encoder.pending > 0; --encoder.pending) {
            encoder.output[encoder.output_cursor++] =
                static_cast<std::uint8_t>(0xFF + encoder.carry);
        }
        encoder.cache = encoder.low >> 24;
    } else {
        ++encoder.pending;
    }
    encoder.low <<= 8;
    encoder.carry = 0;
}

// Codes the symbol that takes `freq` out of `total` behind `cum`.
inline void encode_range(RangeEncoder &encoder, std::uint32_t cum, std::uint32_t freq,
                         std::uint32_t total) {
    const std::uint32_t r = encoder.range / total;
    const std::uint32_t t = cum * r;
    if (encoder.low > 0xFFFFFFFFu - t) encoder.carry = 1;
    encoder.low += t;
    encoder.range = freq * r;
    while (encoder.range < kMinRange) {
        shift_low(encoder);
        encoder.range <<= 8;
    }
}

// Ends the stream: writes the delayed byte and the four bytes of `low`.
inline void flush(RangeEncoder &encoder) {
    for (int i = 0; i < 5; ++i)
        shift_low(encoder);
}

// Codes symbol x (0 to 31) with the summed counts of two models and updates both.
inline void encode_pair(RangeEncoder &encoder, FreqModel &primary, FreqModel &secondary,
                        std::uint32_t x) {
    rescale(primary);
    rescale(secondary);
    std::uint32_t cum = 0;
    for (std::uint32_t i = 0; i < x; ++i)
        cum += primary.count[i] + secondary.count[i];
    encode_range(encoder, cum, primary.count[x] + secondary.count[x],
                 primary.total + secondary.total);
    increment(primary, x, kDistanceIncrement);
    increment(secondary, x, kDistanceIncrement);
}

// Codes symbol x (0 to 3) with the doubled counts of one model and updates it.
inline void encode_doubled(RangeEncoder &encoder, FreqModel &model, std::uint32_t x) {
    rescale(model);
    std::uint32_t cum = 0;
    for (std::uint32_t i = 0; i < x; ++i)
        cum += 2 * model.count[i];
    encode_range(encoder, cum, 2 * model.count[x], 2 * model.total);
    increment(model, x, kBitIncrement);
}

struct RangeDecoder {
    std::uint32_t code; // distance of the coded number from the encoder's `low`
    std::uint32_t range;
    std::uint32_t input_cursor; // the next byte to read
    const std::uint8_t *input;
    std::uint32_t input_end; // no byte is read from here on
    bool failed;             // set by damaged input, for good; symbols are then 0
};

// Beyond the end come zeros, and `failed` is set.
inline std::uint32_t next_byte(RangeDecoder &decoder) {
    if (decoder.input_cursor < decoder.input_end) return decoder.input[decoder.input_cursor++];
    decoder.failed = true;
    return 0;
}

inline RangeDecoder start_decoder(const std::uint8_t *input, std::uint32_t input_end) {
    RangeDecoder decoder{0, 0xFFFFFFFFu, 1, input, input_end, false};
    for (int i = 0; i < 4; ++i)
        decoder.code = decoder.code << 8 | next_byte(decoder);
    return decoder;
}

// Finds the symbol, below `symbols`, whose share of `total` the code points into, and
// takes it out of the code. count(i) is the count of symbol i. `failed` is set when
// there is none, which an encoder never leads to.
template<typename Count>
std::uint32_t decode_range(RangeDecoder &decoder, std::uint32_t total, std::uint32_t symbols,
                           Count count) {
    const std::uint32_t r = decoder.range / total;
    const std::uint32_t target = decoder.code / r;
    std::uint32_t cum = 0;
    for (std::uint32_t x = 0; x < symbols; ++x) {
        const std::uint32_t freq = count(x);
        if (target < cum + freq) {
            decoder.code -= cum * r;
            decoder.range = freq * r;
            while (decoder.range < kMinRange) {
                decoder.code = decoder.code << 8 | next_byte(decoder);
                decoder.range <<= 8;
            }
            return x;
        }
        cum += freq;
    }
    decoder.failed = true;
    return 0;
}

inline std::uint32_t decode_pair(RangeDecoder &decoder, FreqModel &primary, FreqModel &secondary) {
    rescale(primary);
    rescale(secondary);
    const std::uint32_t x =
        decode_range(decoder, primary.total + secondary.total, kSymbols,
                     [&](std::uint32_t i) { return primary.count[i] + secondary.count[i]; });
    increment(primary, x, kDistanceIncrement);
    increment(secondary, x, kDistanceIncrement);
    return x;
}

inline std::uint32_t decode_doubled(RangeDecoder &decoder, FreqModel &model) {
    rescale(model);
    const std::uint32_t x = decode_range(decoder, 2 * model.total, 4,
                                         [&](std::uint32_t i) { return 2 * model.count[i]; });
    increment(model, x, kBitIncrement);
    return x;
}
