// The column of a byte is its distance from the last CR before it; the block's first
// byte has column 2, as if a CR stood two places before it. The column of a CR is the
// length of its line.
#include "filters/eol.h"

#include "base/bytes.h"
#include "base/vectors.h"
#include "pipeline/stage.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace velk {
namespace {

constexpr std::uint8_t kCr = 13;
constexpr std::uint8_t kLf = 10;
constexpr std::uint8_t kSpace = 32;

constexpr std::uint8_t kDeclined = 1;
constexpr std::uint8_t kApplied = 2;

// The position of the last CR before the block starts. Columns are differences modulo
// 2^32, so that it needs no sign.
constexpr std::uint32_t kCrBeforeBlock = 0u - 2;
// How far back from column W a place for a line break is looked for.
constexpr std::uint32_t kMaxBack = 16;
// The longest word that is looked at to drop a CR, less one.
constexpr std::uint32_t kMaxLookahead = 14;
constexpr std::uint32_t kRecentLines = 16;

// The width that recent lines show: the largest of the last 16 recorded lengths. A
// longer line raises it by a limited step, which doubles while lines go on growing.
struct LineModel {
    std::uint32_t width = 0;
    std::uint32_t growth = 1;
    std::uint8_t recent[kRecentLines] = {};
    std::uint32_t oldest = 0;                 // index in `recent`
    std::uint8_t count[256] = {kRecentLines}; // entries of `recent` by value
};

void add_line(LineModel &model, std::uint32_t length) {
    if (length >= 256) return;
    std::uint32_t recorded = length;
    if (length <= model.width) {
        model.growth = model.growth / 2 + 1;
    } else if (length <= model.width + model.growth) {
        model.growth = 2 * (length - model.width) + 1;
    } else {
        recorded = model.width + model.growth;
        model.growth = 2 * model.growth + 1;
    }
    recorded = std::max(recorded, 2u);

    std::uint8_t &entry = model.recent[model.oldest];
    --model.count[entry];
    ++model.count[recorded];
    entry = static_cast<std::uint8_t>(recorded);
    model.oldest = (model.oldest + 1) % kRecentLines;
    model.width = std::max(model.width, recorded);
    while (model.width > 0 && model.count[model.width] == 0)
        --model.width;
}

// The lowest column in which a break or an escape may stand.
std::uint32_t lowest_column(std::uint32_t width) {
    return width > kMaxBack + 2 ? width - kMaxBack : 2;
}

// Exchanges LF and space after a CR; its own inverse, as no CR changes. No CR is before p.
void swap_after_cr(std::uint8_t *text, std::uint32_t p, std::uint32_t n) {
    while ((p = find_byte(text, p, n, kCr) + 1) < n) {
        if (text[p] == kLf || text[p] == kSpace) text[p] = kLf + kSpace - text[p];
    }
}

// Whether the text is worth reflowing. `text` is the block as it came.
bool mostly_unindented(const std::uint8_t *text, std::uint32_t n) {
    std::uint32_t lines[2] = {}; // behind an LF: all, and those that are indented
    std::uint32_t p = count_in_lanes(1, n, lines, [=](std::uint32_t at, ByteLanes *lanes) {
        const ByteLanes after_lf = load<ByteLanes>(text + at - 1) == kLf;
        lanes[0] -= after_lf;
        lanes[1] -= after_lf & (load<ByteLanes>(text + at) == kSpace);
    });
    for (; p < n; ++p) {
        lines[0] += text[p - 1] == kLf;
        lines[1] += text[p - 1] == kLf && text[p] == kSpace;
    }
    return 2 * lines[1] < lines[0];
}

// Whether the decoder finds the break of a CR at p, in column `length`, by itself: the word
// behind it would reach beyond column `width`.
bool is_predictable(const std::uint8_t *text, std::uint32_t n, std::uint32_t p,
                    std::uint32_t length, std::uint32_t width) {
    if (p + 1 >= n || text[p + 1] != kSpace || length < 2 || length > width) return false;
    if (length == width) return true;
    const std::uint32_t missing = width - length;
    if (missing > kMaxLookahead || p + 1 + missing > n - 2) return false;
    const std::uint8_t *const word = text + p + 2;
    return std::none_of(word, word + missing,
                        [](std::uint8_t byte) { return byte == kSpace || byte == kCr; });
}

// The position of the last byte before `end` for which `wanted` holds, `end` if there is none.
// The byte before `end` is in `column`; none below the lowest column counts.
template<typename Wanted>
std::uint32_t find_back(const std::uint8_t *text, std::uint32_t end, std::uint32_t column,
                        std::uint32_t width, Wanted wanted) {
    const std::uint32_t lowest = lowest_column(width);
    for (std::uint32_t p = end; column >= lowest; --column) {
        if (wanted(text[--p])) return p;
    }
    return end;
}

// What the decoder has written.
struct Reflowed {
    std::uint8_t *text;
    std::uint32_t end;
    std::uint32_t last_cr;
    LineModel lines;
};

void end_line(Reflowed &r, std::uint32_t cr) {
    add_line(r.lines, cr - r.last_cr);
    r.last_cr = cr;
}

// Puts the byte of column W. A space gets a CR before it. Any other byte belongs to a word that
// does not fit: the CR goes before the last space of the line. An escape byte, here or in place
// of that space, becomes a space without a CR.
inline void put_in_last_column(Reflowed &r, std::uint8_t byte, std::uint8_t escape) {
    if (byte == escape) {
        r.text[r.end++] = kSpace;
        return;
    }
    std::uint32_t place = r.end; // of the CR
    if (byte != kSpace) {
        place = find_back(r.text, r.end, r.lines.width - 1, r.lines.width,
                          [=](std::uint8_t b) { return b == kSpace || b == escape; });
        if (place != r.end && r.text[place] == escape) {
            r.text[place] = kSpace;
            place = r.end;
        }
    }
    if (place != r.end || byte == kSpace) {
        std::copy_backward(r.text + place, r.text + r.end, r.text + r.end + 1);
        r.text[place] = kCr;
        end_line(r, place);
        ++r.end;
    }
    r.text[r.end++] = byte;
}

} // namespace

void eol_encode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                std::uint8_t eol_off) {
    if (eol_off != 0) return pass_on(in, n, out, out_len);
    const bool worth_it = mostly_unindented(in, n);
    const std::uint32_t first_cr = find_byte(in, 0, n, kCr);
    swap_after_cr(in, first_cr, n);
    const std::uint32_t escape = worth_it ? find_free_byte(in, n) : 256;
    if (escape == 256) return pass_on(in, n, out, out_len, kDeclined);

    // The bytes of a line move at once (prose with CR LF 1.5 times, without 2.6 times as
    // fast as byte by byte), then the one in column W is looked at. W is 0 in the first line
    // and 0 or at least 2 in the others: that byte, if any, is not before p.
    LineModel model;
    std::uint32_t last_cr = kCrBeforeBlock;
    std::uint32_t end = 0; // of the output
    if (first_cr == n) {   // a single line, which stays as it is
        std::swap(in, out);
        end = n;
    }
    for (std::uint32_t p = end; p < n;) {
        const std::uint32_t cr = find_byte(in, p, n, kCr);
        std::memcpy(out + end, in + p, cr - p);
        const std::uint32_t at_width = last_cr + model.width;
        if (model.width != 0 && at_width < cr) {
            const std::uint32_t line_end = end + (at_width - p) + 1;
            const std::uint32_t space = find_back(out, line_end, model.width, model.width,
                                                  [](std::uint8_t b) { return b == kSpace; });
            if (space != line_end) out[space] = static_cast<std::uint8_t>(escape);
        }
        end += cr - p;
        if (cr == n) break;
        if (!is_predictable(in, n, cr, cr - last_cr, model.width)) out[end++] = kCr;
        add_line(model, cr - last_cr);
        last_cr = cr;
        p = cr + 1;
    }
    out[end] = static_cast<std::uint8_t>(escape);
    out[end + 1] = kApplied;
    out_len = end + 2;
}

bool eol_decode(std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out, std::uint32_t &out_len,
                std::uint32_t capacity) {
    if (undo_pass_on(in, len, out, out_len)) return true;
    if (len > 0 && in[len - 1] != kApplied) {
        swap_after_cr(in, 0, len - 1);
        return undo_pass_on(in, len, out, out_len, in[len - 1]);
    }
    if (len < kEolTrailerBytes) return false;
    const std::uint32_t code_len = len - kEolTrailerBytes;
    const std::uint8_t escape = in[code_len];

    Reflowed text = {out, 0, kCrBeforeBlock, {}};
    std::uint32_t cr = find_byte(in, 0, code_len, kCr);
    for (std::uint32_t i = 0; i < code_len;) {
        // What comes before the next CR and before column W moves at once (prose with CR LF
        // 1.7 times as fast as byte by byte).
        std::uint32_t plain = cr - i;
        const std::uint32_t column = text.end - text.last_cr;
        if (column <= text.lines.width) plain = std::min(plain, text.lines.width - column);
        if (plain >= capacity - text.end) return false;
        std::memcpy(out + text.end, in + i, plain);
        text.end += plain;
        i += plain;
        if (i == code_len) break;

        if (capacity - text.end < 2) return false; // a byte, and a CR before it
        const std::uint8_t byte = in[i++];
        if (byte == kCr) {
            end_line(text, text.end);
            out[text.end++] = kCr;
            cr = find_byte(in, i, code_len, kCr);
        } else {
            put_in_last_column(text, byte, escape);
        }
    }
    swap_after_cr(out, 0, text.end);
    out_len = text.end;
    return true;
}

} // namespace velk
