// The DCE stage written to be read and not to be fast: models of 33 plain counters, a
// range coder that holds back a byte and the 0xFF bytes behind it, bits taken byte by
// byte. The stage codes the same bytes; the benchmark tells how much faster.
#pragma once

#include <cstdint>

// Call form and results of `dce_encode` and `dce_decode`. models: kPlainCounters.
constexpr std::uint32_t kPlainCounters = 17 * 150 * 33;

void plain_coder_encode(std::uint32_t *next_pos, std::uint32_t *models, std::uint8_t *&in,
                        std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len);
[[nodiscard]] bool plain_coder_decode(std::uint32_t *models, std::uint8_t *&in, std::uint32_t len,
                                      std::uint8_t *&out, std::uint32_t &out_len,
                                      std::uint32_t capacity);
