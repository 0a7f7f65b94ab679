// DELTA filter: splits a block of records of 2, 3 or 4 bytes into byte channels.
#pragma once

#include <cstdint>

void delta_encode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                  std::uint8_t off);

[[nodiscard]] bool delta_decode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                                std::uint32_t &out_len, std::uint32_t capacity);
