#include "base/byte_order.h"
#include "dce/dce.h"
#include "dce/distance_values.h"
#include "dce/range_coder.h"
#include "dce/raw_bits.h"
#include "dce/symbol_stats.h"
#include "pipeline/stage.h"

#include <cassert>
#include <cstring>

namespace velk {
namespace {

// Free bytes that must remain between coded bytes and raw words: what the flush writes.
constexpr std::uint32_t kMinRoom = kFlushBytes;
// Coded bytes, raw words and trailer have at most n + 1 bytes together.
static_assert(kDceTrailerBytes <= kMinRoom + 1);
// A value begins with the cursor at n at most. Its first symbol moves the cursor on, its second
// one is stored there.
static_assert(kMaxSymbolBytes + kStoredBytes - 1 <= kDceRoom);

struct Encoder {
    RangeEncoder range;
    RawBitWriter raw;
    std::uint32_t prev_value = 0;
    std::uint32_t value_count = 0;
};

// Between two calls of `has_room` one value is coded: at most six bytes leave the
// range coder and one word is stored.
inline void encode_value(Encoder &encoder, Models &models, SymbolStats &stats, std::uint32_t v,
                         std::uint32_t run_length) {
    const std::uint32_t primary = primary_model(stats, run_length);
    assert(primary < kFirstBitContext * kContextBytes);
    FreqModel &p = model_at(models, primary),
              &s = model_at(models, primary + secondary_step(encoder.prev_value));
    update_stats(stats, v, run_length);
    encoder.prev_value = v;
    ++encoder.value_count;

    if (v < kFirstLongValue) {
        encode_pair(encoder.range, p, s, v);
        return;
    }
    const LongValue parts = split(v);
    encode_pair(encoder.range, p, s, kFirstLongValue + parts.raw_bits);
    encode_doubled(encoder.range, models.bit[parts.raw_bits], parts.top);
    put(encoder.raw, parts.raw, parts.raw_bits);
}

// Whether the block can still come out no longer than n + 1 bytes. While it can, what the range
// encoder stores ends below the raw words.
inline bool has_room(const Encoder &encoder) {
    return encoder.range.output_cursor + kMinRoom <= encoder.raw.back_cursor;
}

} // namespace

void dce_encode(std::uint32_t *runs, std::uint32_t *model_area, std::uint8_t *&in, std::uint32_t n,
                std::uint8_t *&out, std::uint32_t &out_len, std::uint8_t dce_off) {
    if (dce_off != 0 || n == 0) return pass_on(in, n, out, out_len);
    Encoder encoder{{out}, {out, n}};
    SymbolStats stats[256];
    Models &models = init_models(model_area);

    // Room never comes back: the first value that leaves too little ends the attempt.
    const auto encode = [&](std::uint32_t v, std::uint32_t s, std::uint32_t run_length) {
        encode_value(encoder, models, stats[s], v, run_length);
        return has_room(encoder);
    };
    if (!for_each_value(in, n, runs, encode)) return pass_on(in, n, out, out_len);
    flush(encoder.range);
    finish(encoder.raw);
    if (!has_room(encoder)) return pass_on(in, n, out, out_len);
    const std::uint32_t coded = encoder.range.output_cursor;
    const std::uint32_t raw = n - encoder.raw.back_cursor;
    std::memmove(out + coded, out + encoder.raw.back_cursor, raw);
    put_u32(out + coded + raw, encoder.value_count);
    out[coded + raw + 4] = 1;
    out_len = coded + raw + kDceTrailerBytes;
}

} // namespace velk
