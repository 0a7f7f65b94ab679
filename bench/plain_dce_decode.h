// The DCE stage's inverse as plain as tests/plain_stages.h has its forward form: what the
// benchmark measures the stage against.
#pragma once

#include <cstdint>

// Call form and results of `dce_decode`.
[[nodiscard]] bool plain_dce_decode(std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                                    std::uint32_t &out_len, std::uint32_t capacity);
