// Bits that bypass the range coder: 32-bit words, the most significant byte first,
// stored from the end of the output area towards its front. Read byte by byte from
// the end, lowest bit first, they are the bits in the order in which they were put.
#pragma once

#include "base/byte_order.h"

#include <cstdint>

namespace velk {

constexpr std::uint32_t kRawWordBytes = 4;

struct RawBitWriter {
    std::uint8_t *output;
    std::uint32_t back_cursor; // words are stored below it; at first the output area's end
    std::uint32_t used = 0;    // number of bits in `acc`, 0 to 31
    std::uint64_t acc = 0;     // bits collected, the first at bit 0
};

// Without room the word is dropped: the caller sees that too little is left and declines.
inline void store_word(RawBitWriter &writer) {
    if (writer.back_cursor < kRawWordBytes) return;
    writer.back_cursor -= kRawWordBytes;
    put_u32_be(writer.output + writer.back_cursor, static_cast<std::uint32_t>(writer.acc));
}

// Puts the `k` bits of `v`; k is 0 to 23, v below 2^k.
inline void put(RawBitWriter &writer, std::uint32_t v, std::uint32_t k) {
    writer.acc |= std::uint64_t{v} << writer.used;
    writer.used += k;
    if (writer.used < 32) return;
    store_word(writer);
    writer.acc >>= 32;
    writer.used -= 32;
}

// Stores the last word if it is not empty.
inline void finish(RawBitWriter &writer) {
    if (writer.used > 0) store_word(writer);
}

struct RawBitReader {
    const std::uint8_t *input;
    std::uint32_t end;       // the first bit is the lowest of the byte before it
    std::uint32_t taken = 0; // bits, below 2^31
};

// Whether bits in front of `input` were asked for, which read as 0.
inline bool past_front(const RawBitReader &reader) {
    return reader.taken > 8 * reader.end;
}

// The next `k` bits, 0 to 23. At most 2^26 calls.
inline std::uint32_t get(RawBitReader &reader, std::uint32_t k) {
    // Up to 7 bits of the first byte are gone: 25 are left of four bytes.
    const std::uint32_t whole = reader.taken / 8;
    std::uint32_t word = 0;
    if (whole + kRawWordBytes <= reader.end) [[likely]] {
        word = get_u32_be(reader.input + reader.end - kRawWordBytes - whole);
    } else {
        for (std::uint32_t i = whole; i < reader.end; ++i)
            word |= std::uint32_t{reader.input[reader.end - 1 - i]} << 8 * (i - whole);
    }
    const std::uint32_t bits = word >> reader.taken % 8 & ((1u << k) - 1);
    reader.taken += k;
    return bits;
}

} // namespace velk
