// EOL filter: removes the line breaks of wrapped CR LF text that the decoder can
// predict from the line width and the length of the word that follows.
#pragma once

#include <cstdint>

void eol_encode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                std::uint8_t off);

[[nodiscard]] bool eol_decode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                              std::uint32_t &out_len, std::uint32_t capacity);
