// The ST, a sort transform of limited order: the block's rotations sorted by their
// first 21 bits.
#pragma once

#include <cstdint>

constexpr std::uint32_t kStContexts = 1u << 21;

// contexts: kStContexts entries, any contents. They are touched only when the stage
// applies, so with the stage off there need not be any.
void st_forward(std::uint32_t *contexts, std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                std::uint32_t &out_len, std::uint8_t off);

// contexts: kStContexts entries, or nullptr; then no block to which the stage was
// applied is restored.
[[nodiscard]] bool st_inverse(std::uint32_t *contexts, std::uint8_t *&in, std::uint32_t n,
                              std::uint8_t *&out, std::uint32_t &out_len, std::uint32_t capacity);
