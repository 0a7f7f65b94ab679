// LZP preprocessing stage: replaces repeats of 64 bytes and more, predicted by the
// last four bytes, by an escape byte and a length.
#pragma once

#include <cstdint>

constexpr std::uint32_t kLzpTableEntries = 16384;
constexpr std::uint32_t kLzpTableBytes = 4 * kLzpTableEntries;

// table: kLzpTableEntries entries, here and below; any contents.
void lzp_encode(std::uint32_t *table, std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                std::uint32_t &out_len, std::uint8_t off);

[[nodiscard]] bool lzp_decode(std::uint32_t *table, std::uint8_t *&in, std::uint32_t n,
                              std::uint8_t *&out, std::uint32_t &out_len, std::uint32_t capacity);
