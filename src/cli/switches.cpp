#include "cli/switches.h"

#include "base/block_size.h"
#include "pipeline/stage.h"

#include <algorithm>
#include <iterator>

namespace velk {
namespace {

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Reads the number after the letter b, at which `text` is, and leaves `text` at its last digit.
bool parse_block_size(const char *&text, std::uint32_t &bytes) {
    std::uint32_t kbytes = 0;
    for (; is_digit(text[1]); ++text) {
        kbytes = kbytes * 10 + static_cast<std::uint32_t>(text[1] - '0');
        if (kbytes > kMaxBlockSize / 1024) return false; // also keeps the sum from overflowing
    }
    if (kbytes < kMinBlockSize / 1024) return false;
    bytes = kbytes * 1024;
    return true;
}

constexpr struct {
    char letter;
    std::uint8_t Settings::*flag;
} kFlags[] = {
    {'a', &Settings::no_auto_block_size},
    {'d', &Settings::dce_off},
    {'e', &Settings::eol_off},
    {'f', &Settings::flt32_off},
    {'l', &Settings::delta_off},
    {'o', &Settings::no_fallback},
    {'r', &Settings::rle_off},
    {'s', &Settings::show_stats},
    {'t', &Settings::bwt_off},
    {'w', &Settings::bwt_off},
    {'z', &Settings::lzp_off},
};

bool parse_argument(const char *text, Settings &settings) {
    if (text[0] != '-' || text[1] == '\0') return false;
    while (*++text != '\0') {
        const char letter = *text;
        if (letter == 'b') {
            if (!parse_block_size(text, settings.max_block_size)) return false;
            continue;
        }
        const auto *const found =
            std::find_if(std::begin(kFlags), std::end(kFlags),
                         [=](const auto &entry) { return entry.letter == letter; });
        if (found == std::end(kFlags)) return false;
        settings.*found->flag = 1;
        if (letter == 't') settings.st_off = 0;
    }
    return true;
}

} // namespace

int parse_switches(int argument_count, const char *const *arguments, Settings &settings) {
    settings = Settings{};
    settings.st_off = 1;
    settings.max_block_size = kDefaultBlockSize;
    for (int i = 4; i < argument_count; ++i) {
        if (!parse_argument(arguments[i], settings)) return i;
    }
    return 0;
}

} // namespace velk
