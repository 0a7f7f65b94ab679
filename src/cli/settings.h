// The settings of one run, as the command line gives them.
#pragma once

#include <cstdint>

namespace velk {

// A plain record that may be filled with zeros. Each flag holds 0 or 1. The eight
// flags from `eol_off` to `dce_off` are, in this order, bits 0 to 7 of the flags
// byte of an archive.
struct Settings {
    std::uint32_t max_block_size; // bytes
    const char *input_name;
    const char *output_name;
    std::uint8_t no_auto_block_size; // use `max_block_size` even for a smaller input
    std::uint8_t no_fallback;        // keep sorting and coding even where they do not pay
    std::uint8_t eol_off;
    std::uint8_t flt32_off;
    std::uint8_t delta_off;
    std::uint8_t lzp_off;
    std::uint8_t bwt_off;
    std::uint8_t st_off;
    std::uint8_t rle_off;
    std::uint8_t dce_off;
    std::uint8_t show_stats;
    std::uint8_t baseline; // the stages' code for any machine, not the best for this one
};

} // namespace velk
