#include "base/byte_order.h"
#include "dce/dce.h"
#include "dce/pending_list.h"
#include "dce/range_coder.h"
#include "dce/raw_bits.h"
#include "dce/symbol_stats.h"
#include "pipeline/stage.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace velk {
namespace {

struct Decoder {
    RangeDecoder range;
    RawBitReader raw;
    std::uint32_t prev_value = 0;
};

// The next value, below 2^26 + 4; after a fault (`failed`) any such number. The statistics are
// not updated. Calls `meanwhile` as `decode_pair` does.
template<typename Meanwhile>
[[gnu::always_inline]] inline std::uint32_t
decode_value(Decoder &decoder, Models &models, std::uint32_t primary, Meanwhile meanwhile) {
    FreqModel &p = model_at(models, primary),
              &s = model_at(models, primary + secondary_step(decoder.prev_value));
    std::uint32_t v = decode_pair(decoder.range, p, s, meanwhile);
    if (v >= kFirstLongValue) {
        const std::uint32_t e = v - kFirstLongValue;
        static_assert(kSymbols - kFirstLongValue <= std::size(decltype(models.bit){}));
        v = join({e, decode_doubled(decoder.range, models.bit[e]), get(decoder.raw, e)});
    }
    return decoder.prev_value = v;
}

bool failed(const Decoder &decoder) {
    return failed(decoder.range) || past_front(decoder.raw);
}

// Decodes the header list. The pending list gets n and the first positions but 0, whose byte is
// `first_byte`. Ensures 0 < E0 < E1 < ... < n <= capacity.
bool decode_header(Decoder &decoder, Models &models, SymbolStats *stats, std::uint32_t capacity,
                   PendingList &pending, std::uint8_t &first_byte) {
    const auto next = [&](std::uint32_t s) {
        const std::uint32_t primary = primary_model(stats[s], kNoRun);
        const std::uint32_t v = decode_value(decoder, models, primary, [] {});
        update_stats(stats[s], v, kNoRun);
        return v;
    };
    const std::uint32_t byte_values = next(0);
    const std::uint32_t n_plus_1 = next(0);
    if (byte_values < 1 || byte_values > 256) return false;
    if (n_plus_1 < 2 || n_plus_1 - 1 > capacity) return false;
    const std::uint32_t n = n_plus_1 - 1;

    first_byte = static_cast<std::uint8_t>(next(0));
    if (next(0) != 0) return false;
    std::uint32_t first = 0;
    pending.count = byte_values - 1;
    for (std::uint32_t i = 0; i < pending.count; ++i) {
        const std::uint32_t byte = next(0);
        const std::uint32_t gap = next(1);
        if (gap == 0 || gap >= n - first) return false;
        first += gap;
        pending.entry[i] = to_entry(first - i, byte & 0xFF);
    }
    pending.entry[pending.count] = to_entry(n - pending.count, 0);
    std::fill(pending.entry + byte_values, std::end(pending.entry), kAboveAll);
    return !failed(decoder);
}

// Writes a run of `length` bytes at p. Up to 7 more behind it, below `capacity`, may change.
inline void fill_run(std::uint8_t *out, std::uint32_t p, std::uint32_t length, std::uint8_t s,
                     std::uint32_t capacity) {
    const std::uint64_t eight = s * 0x0101010101010101u;
    if (length <= sizeof eight && p + sizeof eight <= capacity) [[likely]] {
        std::memcpy(out + p, &eight, sizeof eight);
    } else {
        std::memset(out + p, s, length);
    }
}

// Decodes `runs` runs; `out_len` becomes the bytes that they fill. Each run starts
// where the one before it ended and ends at the next pending position, at the latest
// at n, so every write stays below n, or `capacity`, and there are at most n runs. What
// is checked here keeps damaged data within the buffers; whether the entropy decoder has
// failed is asked once, at the end.
bool decode_runs(Decoder decoder, Models &models, SymbolStats *stats, std::uint8_t *out,
                 std::uint32_t runs, PendingList &pending, std::uint8_t first_byte,
                 std::uint32_t capacity, std::uint32_t &out_len) {
    std::uint32_t p = 0;
    std::uint32_t length = entry_number(pending.entry[0]);
    std::uint32_t limit = entry_number(pending.entry[pending.count]);
    std::uint8_t s = first_byte;
    struct { // the run before: what its value is to change
        std::uint8_t byte;
        std::uint32_t length, v, known;
    } before{};
    SymbolStats spare{};
    for (; runs > 0; --runs) {
        SymbolStats *to_update = &stats[before.byte];
        // Two runs of a byte in a row: only a list has these that names it twice, as no encoder
        // does. Its statistics can't wait until the machine divides.
        if (s == before.byte && p > 0) [[unlikely]] {
            update_stats(*to_update, before.v, before.length);
            to_update = &spare;
        }
        const std::uint32_t primary = primary_model(stats[s], length);
        const std::uint32_t v = decode_value(decoder, models, primary, [&] {
            if (p > 0) [[likely]] {
                replace_first(pending, before.known, before.byte);
                update_stats(*to_update, before.v, before.length);
            }
            fill_run(out, p, length, s, capacity);
        });
        p += length;
        // v may reach 2^26, n is below 2^24: no overflow.
        before = {s, length, v, p - 1 + v};
        // The next run starts here, at E0, and ends at E1,
        length = entry_number(pending.entry[1]) + 1 - p;
        s = entry_byte(pending.entry[0]);
        if (v == 0) [[unlikely]] {
            before.known = kNever;
            if (pending.count == 0) {
                if (runs > 1) return false; // n is reached
                break;
            }
            --pending.count;
            ++limit;
            continue;
        }
        if (before.known >= limit) return false;
        // or before the next one of the byte, if that comes first.
        length = std::min(length, v);
    }
    out_len = p;
    return !failed(decoder);
}

} // namespace

bool dce_decode(std::uint32_t *model_area, std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                std::uint32_t &out_len, std::uint32_t capacity) {
    if (undo_pass_on(in, len, out, out_len)) return true;
    if (len < kDceTrailerBytes) return false;
    const std::uint32_t coded_len = len - kDceTrailerBytes;
    const std::uint32_t value_count = get_u32(in + coded_len);

    Decoder decoder{{in, coded_len}, {in, coded_len}};
    SymbolStats stats[256];
    Models &models = init_models(model_area);

    PendingList pending;
    std::uint8_t first_byte = 0;
    if (!decode_header(decoder, models, stats, capacity, pending, first_byte)) return false;
    const std::uint32_t header_values = 2 * pending.count + 4;
    const std::uint32_t runs = value_count > header_values ? value_count - header_values : 0;
    return decode_runs(decoder, models, stats, out, runs, pending, first_byte, capacity, out_len);
}

} // namespace velk
