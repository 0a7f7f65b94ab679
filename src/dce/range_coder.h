// The range coder of the DCE stage: carry propagation, renormalisation by bytes
// (G. N. N. Martin, "Range encoding: an algorithm for removing redundancy from a
// digitised message", 1979; M. Schindler, "A fast renormalisation for arithmetic
// coding", 1998).
//
// The encoder's first byte is always 0, and the decoder skips it.
//
// `range` is at least 2^24 when a symbol is coded and a total below 2^17. So a count is worth
// at least 2^7 of the range, and a symbol moves the cursor on by three bytes at most.
#pragma once

#include "base/byte_order.h"
#include "dce/frequency_models.h"

#include <bit>
#include <cstdint>

namespace velk {

constexpr std::uint32_t kMaxSymbolBytes = 3;
constexpr std::uint32_t kStoredBytes = 4; // at the cursor - 1, for a symbol
constexpr std::uint32_t kFlushBytes = 4;  // from the cursor on

static_assert(2 * kRescaleLimit < 1u << 17); // of two models

// How far to shift `range`, at least 2^7, for it to reach 2^24: 0, 8, 16 or 24.
inline std::uint32_t renormalising_shift(std::uint32_t range) {
    return static_cast<std::uint32_t>(std::countl_zero(range | 1)) & 24;
}

// The code so far is a long number that grows at its low end. Its last five bytes are
// in `low`:
//
//   low     | last byte | low end of the interval (32 bits) | 24 zeros |
//   output  ...........   ^ output_cursor
//
// An addition that carries out of the last byte, which is rare, goes on in the output.
// (No byte is held back: a symbol costs one store and no loop.)
struct RangeEncoder {
    std::uint8_t *output;
    std::uint32_t output_cursor = 1; // the first byte is there from the start
    std::uint32_t range = 0xFFFFFFFFu;
    std::uint64_t low = 0;
};

// The number is a fraction below 1: a carry ends at its first byte at the latest.
inline void carry(const RangeEncoder &encoder) {
    std::uint8_t *byte = encoder.output + encoder.output_cursor - 1;
    do {
        ++*--byte;
    } while (*byte == 0);
}

// Codes a symbol: `freq` of the `total` counts are its own, `cum` those of the symbols below.
// Writes up to three bytes beyond the cursor. (Inlined by force, as are its callers: `low` and
// `range` stay in registers, 4 % less time.)
[[gnu::always_inline]] inline void encode_range(RangeEncoder &encoder, std::uint32_t cum,
                                                std::uint32_t freq, std::uint32_t total) {
    const std::uint32_t r = encoder.range / total;
    const std::uint64_t amount = std::uint64_t{cum * r} << 24;
    encoder.low += amount;
    if (encoder.low < amount) [[unlikely]]
        carry(encoder);
    encoder.range = freq * r;
    // Store what a shift may move out, and let the cursor say how much of it counts.
    put_u32_be(encoder.output + encoder.output_cursor - 1,
               static_cast<std::uint32_t>(encoder.low >> 32));
    const std::uint32_t shift = renormalising_shift(encoder.range);
    encoder.range <<= shift;
    encoder.low <<= shift;
    encoder.output_cursor += shift / 8;
}

// Ends the stream: writes the last five bytes.
inline void flush(RangeEncoder &encoder) {
    put_u32_be(encoder.output + encoder.output_cursor - 1,
               static_cast<std::uint32_t>(encoder.low >> 32));
    encoder.output[encoder.output_cursor + 3] = static_cast<std::uint8_t>(encoder.low >> 24);
    encoder.output_cursor += kFlushBytes;
}

// Codes symbol x (0 to 31) with the summed counts of two models and updates both.
[[gnu::always_inline]] inline void encode_pair(RangeEncoder &encoder, FreqModel &primary,
                                               FreqModel &secondary, std::uint32_t x) {
    const std::uint16_t *const p = primary.cumulative + x, *const s = secondary.cumulative + x;
    std::uint32_t cum = 0;
    if (x != 0) [[likely]]
        cum = p[-1] + std::uint32_t{s[-1]};
    encode_range(encoder, cum, *p + std::uint32_t{*s} - cum, total(primary) + total(secondary));
    count(primary, secondary, x);
}

// Codes symbol x (0 to 3) with the doubled counts of one model and updates it.
[[gnu::always_inline]] inline void encode_doubled(RangeEncoder &encoder, BitModel &model,
                                                  std::uint32_t x) {
    const std::uint32_t cum = count_below(model, x);
    encode_range(encoder, 2 * cum, 2 * (count_up_to(model, x) - cum), 2 * total(model));
    count(model, x);
}

// The five bytes at input_end must be readable: no read there has to be held back.
struct RangeDecoder {
    const std::uint8_t *input;
    std::uint32_t input_end;        // bytes from here on do not belong to the number
    std::uint32_t input_cursor = 5; // the next byte to read
    std::uint32_t range = 0xFFFFFFFFu;
    std::uint32_t code = get_u32_be(input + 1); // how far the number is above the encoder's `low`
    bool failed = false;                        // set, for good, by a code that no encoder writes
};

// Whether the symbols so far can't have come from an encoder.
inline bool failed(const RangeDecoder &decoder) {
    return decoder.failed || decoder.input_cursor > decoder.input_end;
}

// Takes the symbol whose part of the range begins at `low` and is `width` wide out of the code.
inline void take_symbol(RangeDecoder &decoder, std::uint32_t low, std::uint32_t width) {
    // Four bytes at once, of which the shift takes up to three. Past the end any number
    // will do: the decoder has failed then.
    std::uint32_t next = 0;
    if (decoder.input_cursor <= decoder.input_end) [[likely]]
        next = get_u32_be(decoder.input + decoder.input_cursor);
    decoder.code -= low;
    decoder.range = width;
    const std::uint32_t shift = renormalising_shift(decoder.range);
    const std::uint64_t code_and_next = std::uint64_t{decoder.code} << 32 | next;
    decoder.code = static_cast<std::uint32_t>(code_and_next << shift >> 32);
    decoder.range <<= shift;
    decoder.input_cursor += shift / 8;
}

// Symbols that are compared at a step, without a branch. The first step finds the values below
// 8, half of all values or more.
constexpr std::uint32_t kSymbolsPerStep = 8;

// Mirror of `encode_pair`. The code is compared with the ends of the symbols' parts of the
// range. These are products, which take less time than the quotient code / r that a search
// among the counts would need (a tenth less in all, with some compilers a sixth). `meanwhile`,
// which must leave both models alone, runs while the machine divides: a branch that is
// mispredicted there costs nothing (a tenth less time).
template<typename Meanwhile>
[[gnu::always_inline]] inline std::uint32_t decode_pair(RangeDecoder &decoder, FreqModel &primary,
                                                        FreqModel &secondary, Meanwhile meanwhile) {
    const std::uint32_t r = decoder.range / (total(primary) + total(secondary));
    meanwhile();
    const std::uint16_t *p = primary.cumulative, *s = secondary.cumulative;
    const auto end_of = [&](std::uint32_t i) { return r * (p[i] + std::uint32_t{s[i]}); };
    const std::uint32_t code = decoder.code;
    std::uint32_t x = 0;
    std::uint32_t bounds[kSymbolsPerStep + 1]; // symbol x + i: from number i to i + 1
    bounds[0] = 0;
    while (code >= (bounds[kSymbolsPerStep] = end_of(kSymbolsPerStep - 1))) {
        if (x == kSymbols - kSymbolsPerStep) [[unlikely]] {
            decoder.failed = true;
            break;
        }
        bounds[0] = bounds[kSymbolsPerStep];
        x += kSymbolsPerStep;
        p += kSymbolsPerStep;
        s += kSymbolsPerStep;
    }
    std::uint32_t i = 0;
#pragma GCC unroll 8
    for (std::uint32_t k = 1; k < kSymbolsPerStep; ++k) {
        bounds[k] = end_of(k - 1);
        i += code >= bounds[k];
    }
    take_symbol(decoder, bounds[i], bounds[i + 1] - bounds[i]);
    count(primary, secondary, x + i);
    return x + i;
}

// Mirror of `encode_doubled`: three products instead of a division.
inline std::uint32_t decode_doubled(RangeDecoder &decoder, BitModel &model) {
    const std::uint32_t r = 2 * (decoder.range / (2 * total(model)));
    std::uint32_t x = 0;
    for (std::uint32_t i = 0; i + 1 < kBitSymbols; ++i)
        x += decoder.code >= r * count_up_to(model, i);
    decoder.failed |= decoder.code >= r * count_up_to(model, kBitSymbols - 1);
    const std::uint32_t cum = count_below(model, x);
    take_symbol(decoder, r * cum, r * (count_up_to(model, x) - cum));
    count(model, x);
    return x;
}

} // namespace velk
