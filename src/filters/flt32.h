// FLT32 filter: makes the relative operands of x86 calls absolute, so that calls of
// one routine from different places carry the same bytes.
#pragma once

#include <cstdint>

// file_size: bytes of the input file + 1; 2^32 - 1 stands for anything larger.
void flt32_encode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                  std::uint32_t file_size, std::uint8_t off);

[[nodiscard]] bool flt32_decode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                                std::uint32_t &out_len, std::uint32_t capacity);
