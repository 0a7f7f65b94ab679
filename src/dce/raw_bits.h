// Bits that bypass the range coder: 32-bit words, the most significant byte first,
// stored from the end of the output area towards its front. Read byte by byte from
// the end, lowest bit first, they are the bits in the order in which they were put.
#pragma once

#include <cstdint>

constexpr std::uint32_t kWordBytes = 4;

struct RawBitWriter {
    std::uint32_t acc;         // bits collected, the first at bit 0
    std::uint32_t used;        // number of bits in `acc`, 0 to 31
    std::uint32_t back_cursor; // words are stored below it
    std::uint8_t *output;
};

inline RawBitWriter start_raw_writer(std::uint8_t *output, std::uint32_t n) {
    return {0, 0, n, output};
}

// Without room the word is dropped; the room that is left then tells the caller to
// give up the block.
inline void store_word(RawBitWriter &writer) {
    if (writer.back_cursor < kWordBytes) return;
    writer.back_cursor -= kWordBytes;
    std::uint8_t *const word = writer.output + writer.back_cursor;
    for (std::uint32_t i = 0; i < kWordBytes; ++i) {
        word[i] = static_cast<std::uint8_t>(writer.acc >> (24 - 8 * i));
    }
}

// Puts the `k` bits of `v`; k is 0 to 23, v below 2^k.
inline void put(RawBitWriter &writer, std::uint32_t v, std::uint32_t k) {
    writer.acc |= v << writer.used;
    if (writer.used + k < 32) {
        writer.used += k;
        return;
    }
    store_word(writer);
    writer.acc = v >> (32 - writer.used); // used is above 0: k is below 32
    writer.used = writer.used + k - 32;
}

// Stores the last word if it is not empty.
inline void finish(RawBitWriter &writer) {
    if (writer.used > 0) store_word(writer);
}

struct RawBitReader {
    std::uint32_t byte;        // the bits not yet taken of the current byte
    std::uint32_t available;   // their number, 0 to 8
    std::uint32_t read_cursor; // the byte before it is the next to read
    const std::uint8_t *input;
    bool failed; // set when a read went past the front; such bits are 0
};

// Reads from the byte before `end` towards the front of `input`.
inline RawBitReader start_raw_reader(const std::uint8_t *input, std::uint32_t end) {
    return {0, 0, end, input, false};
}

// The next `k` bits, 0 to 23.
inline std::uint32_t get(RawBitReader &reader, std::uint32_t k) {
    std::uint32_t v = 0;
    for (std::uint32_t got = 0; got < k;) {
        if (reader.available == 0) {
            if (reader.read_cursor == 0) {
                reader.failed = true;
                return 0;
            }
            reader.byte = reader.input[--reader.read_cursor];
            reader.available = 8;
        }
        const std::uint32_t wanted = k - got;
        const std::uint32_t taken = wanted < reader.available ? wanted : reader.available;
        v |= (reader.byte & ((1u << taken) - 1)) << got;
        reader.byte >>= taken;
        reader.available -= taken;
        got += taken;
    }
    return v;
}
