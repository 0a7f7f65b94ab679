// The range coder of the DCE stage: carry propagation, renormalisation by bytes
// (G. N. N. Martin, "Range encoding: an algorithm for removing redundancy from a
// digitised message", 1979; M. Schindler, "A fast renormalisation for arithmetic
// coding", 1998).
//
// The encoder's first byte is always 0, and the decoder skips it.
//
// `range` is at least 2^24 when a symbol is coded and a total below 2^17, so a count
// is worth at least 128 of the range and three bytes at most leave the coder a symbol.
#pragma once

#include "dce/frequency_models.h"
#include "pipeline/byte_order.h"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace velk {

constexpr std::uint32_t kMaxSymbolBytes = 3;
constexpr std::uint32_t kStoredBytes = 4; // at the cursor - 1, for a symbol
constexpr std::uint32_t kFlushBytes = 4;  // from the cursor on

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
    std::uint64_t low;
    std::uint32_t range;
    std::uint32_t output_cursor;
    std::uint8_t *output;
};

// The first byte is there from the start.
inline RangeEncoder start_encoder(std::uint8_t *output) {
    return {0, 0xFFFFFFFFu, 1, output};
}

// The number never reaches 1, so the carry ends at the first byte or before it.
inline void carry(const RangeEncoder &encoder) {
    std::uint8_t *byte = encoder.output + encoder.output_cursor - 1;
    do {
        ++*--byte;
    } while (*byte == 0);
}

// Codes the symbol that takes `freq` out of `total` behind `cum`. Writes up to three
// bytes beyond the cursor. (Inlined by force, as are its callers: `low` and `range` stay
// in registers, 4 % less time.)
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
    encoder.output_cursor += 4;
}

// Codes symbol x (0 to 31) with the summed counts of two models and updates both.
[[gnu::always_inline]] inline void encode_pair(RangeEncoder &encoder, FreqModel &primary,
                                               FreqModel &secondary, std::uint32_t x) {
    const Share share = share_of(primary, secondary, x);
    encode_range(encoder, share.cum, share.freq, total(primary) + total(secondary));
    count(primary, x);
    count(secondary, x);
}

// Codes symbol x (0 to 3) with the doubled counts of one model and updates it.
[[gnu::always_inline]] inline void encode_doubled(RangeEncoder &encoder, BitModel &model,
                                                  std::uint32_t x) {
    const std::uint32_t cum = count_below(model, x);
    encode_range(encoder, 2 * cum, 2 * (count_up_to(model, x) - cum), 2 * total(model));
    count(model, x);
}

struct RangeDecoder {
    std::uint32_t code; // distance of the coded number from the encoder's `low`
    std::uint32_t range;
    std::uint32_t input_cursor; // the next byte to read
    std::uint32_t input_end;    // bytes from here on do not belong to the number
    const std::uint8_t *input;
    bool failed; // set, for good, by a code that no encoder writes
};

// The five bytes at input_end must be readable: no read there has to be held back.
inline RangeDecoder start_decoder(const std::uint8_t *input, std::uint32_t input_end) {
    return {get_u32_be(input + 1), 0xFFFFFFFFu, 5, input_end, input, false};
}

// Whether the symbols so far can't have come from an encoder.
inline bool failed(const RangeDecoder &decoder) {
    return decoder.failed || decoder.input_cursor > decoder.input_end;
}

// Takes the symbol out of the code that has `freq` counts, of `r` each, behind `cum`.
inline void take_symbol(RangeDecoder &decoder, std::uint32_t cum, std::uint32_t freq,
                        std::uint32_t r) {
    // Four bytes at once, of which the shift takes up to three. Past the end any number
    // will do: the decoder has failed then.
    std::uint32_t next = 0;
    if (decoder.input_cursor <= decoder.input_end) [[likely]]
        next = get_u32_be(decoder.input + decoder.input_cursor);
    decoder.code -= cum * r;
    decoder.range = freq * r;
    const std::uint32_t shift = renormalising_shift(decoder.range);
    const std::uint64_t code_and_next = std::uint64_t{decoder.code} << 32 | next;
    decoder.code = static_cast<std::uint32_t>(code_and_next << shift >> 32);
    decoder.range <<= shift;
    decoder.input_cursor += shift / 8;
}

// A quarter of all symbols are this one: when the machine guesses it right, no later
// symbol waits for this one's search (4 % less time).
constexpr std::uint32_t kCommonSymbol = 1;

// Mirror of `encode_pair`. The symbol is the number of cumulative counts that are not
// above the target, found without a branch. Calls `meanwhile`, which must leave both models
// alone, while the machine divides: what it guesses wrong there has been mended when the
// quotient comes (decoding takes a tenth to an eighth less time).
template<typename Meanwhile>
[[gnu::always_inline]] inline std::uint32_t decode_pair(RangeDecoder &decoder, FreqModel &primary,
                                                        FreqModel &secondary, Meanwhile meanwhile) {
    const std::uint32_t sum = total(primary) + total(secondary);
    const std::uint32_t r = decoder.range / sum;
    const std::uint32_t target = decoder.code / r;
    meanwhile();
    // p + s may need 17 bits. With target = a + b, a = min(target, 65535), p + s <= target is
    // s - b <= a - p, both saturating (s is at least 1).
    const std::uint32_t high = std::min(target, 65535u);
    const Lanes a = all_lanes(high), b = all_lanes(target - high);
    Lanes above[kSymbols / kCountLanes]; // all bits where a cumulative count is above the target
    Lanes increments[kSymbols / kCountLanes];
#pragma GCC unroll 4
    for (std::uint32_t i = 0; i < kSymbols / kCountLanes; ++i) {
        const Lanes p = load_aligned(primary.cumulative + kCountLanes * i);
        const Lanes s = load_aligned(secondary.cumulative + kCountLanes * i);
        const Lanes excess = subtract_down_to_0(subtract_down_to_0(s, b), subtract_down_to_0(a, p));
        above[i] = ~reinterpret_cast<Lanes>(excess == Lanes{});
        increments[i] = above[i] & all_lanes(kDistanceIncrement);
    }
    decoder.failed |= target >= sum; // the number is 32, or anything
    const Share common = share_of(primary, secondary, kCommonSymbol);
    std::uint32_t x = kCommonSymbol;
    if (decoder.code - common.cum * r < common.freq * r) {
        take_symbol(decoder, common.cum, common.freq, r);
    } else {
        x = number_of_zeros(above) % kSymbols;
        const Share share = share_of(primary, secondary, x);
        take_symbol(decoder, share.cum, share.freq, r);
    }
    add(primary, x, increments);
    add(secondary, x, increments);
    return x;
}

// Mirror of `encode_doubled`: three products instead of a division.
inline std::uint32_t decode_doubled(RangeDecoder &decoder, BitModel &model) {
    const std::uint32_t r = 2 * (decoder.range / (2 * total(model)));
    std::uint32_t x = 0;
    for (std::uint32_t i = 0; i + 1 < kBitSymbols; ++i)
        x += decoder.code >= r * count_up_to(model, i);
    decoder.failed |= decoder.code >= r * count_up_to(model, kBitSymbols - 1);
    const std::uint32_t cum = count_below(model, x);
    take_symbol(decoder, cum, count_up_to(model, x) - cum, r);
    count(model, x);
    return x;
}

} // namespace velk
