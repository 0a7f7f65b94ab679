#include "cli/switches.h"

namespace {

constexpr std::uint32_t kDefaultBlockKbytes = 2048;
constexpr std::uint32_t kMinBlockKbytes = 128;
// The largest multiple of 1 KB that, with all stage trailers, keeps a position of
// a block in 24 bits.
constexpr std::uint32_t kMaxBlockKbytes = 16383;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Reads the number after the letter b and leaves `text` behind its last digit.
bool parse_block_size(const char *&text, std::uint32_t &bytes) {
    if (!is_digit(*text)) return false;
    std::uint32_t kbytes = 0;
    for (; is_digit(*text); ++text) {
        kbytes = kbytes * 10 + static_cast<std::uint32_t>(*text - '0');
        if (kbytes > kMaxBlockKbytes) return false; // also keeps the sum from overflowing
    }
    if (kbytes < kMinBlockKbytes) return false;
    bytes = kbytes * 1024;
    return true;
}

bool parse_argument(const char *text, Settings &settings) {
    if (text[0] != '-' || text[1] == '\0') return false;
    ++text;
    while (*text != '\0') {
        switch (*text++) {
        case 'a':
            settings.no_auto_block_size = 1;
            break;
        case 'b':
            if (!parse_block_size(text, settings.max_block_size)) return false;
            break;
        case 'd':
            settings.dce_off = 1;
            break;
        case 'e':
            settings.eol_off = 1;
            break;
        case 'f':
            settings.flt32_off = 1;
            break;
        case 'l':
            settings.delta_off = 1;
            break;
        case 'o':
            settings.no_fallback = 1;
            break;
        case 'r':
            settings.rle_off = 1;
            break;
        case 's':
            settings.show_stats = 1;
            break;
        case 't':
            settings.st_off = 0;
            settings.bwt_off = 1;
            break;
        case 'w':
            settings.bwt_off = 1;
            break;
        case 'z':
            settings.lzp_off = 1;
            break;
        default:
            return false;
        }
    }
    return true;
}

} // namespace

int parse_switches(int argument_count, const char *const *arguments, Settings &settings) {
    settings = Settings{};
    settings.st_off = 1;
    settings.max_block_size = kDefaultBlockKbytes * 1024;
    for (int i = 4; i < argument_count; ++i) {
        if (!parse_argument(arguments[i], settings)) return i;
    }
    return 0;
}
