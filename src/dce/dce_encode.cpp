#include "dce/dce.h"
#include "dce/pending_list.h"
#include "dce/range_coder.h"
#include "dce/raw_bits.h"
#include "dce/symbol_stats.h"
#include "pipeline/byte_order.h"
#include "pipeline/stage.h"

#include <cassert>
#include <cstring>

namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFFu;
// Free bytes that must remain between coded bytes and raw words.
constexpr std::uint32_t kMinRoom = 4;

struct Encoder {
    RangeEncoder range;
    RawBitWriter raw;
    ModelSet *models;
    std::uint32_t prev_value;
    std::uint32_t value_count;
    SymbolStats stats[256];
};

// Between two calls of `has_room` one value is coded: at most six bytes leave the
// range coder and one word is stored.
void encode_value(Encoder &encoder, std::uint32_t v, SymbolStats &stats, RunContext run) {
    const std::uint32_t context = distance_context(stats, run.flag);
    assert(context < kFirstBitContext);
    ModelSet &primary = encoder.models[0];
    ModelSet &secondary = encoder.models[1 + secondary_index(encoder.prev_value)];
    update_stats(stats, encoder.prev_value, v, run.term);
    ++encoder.value_count;

    FreqModel &p = primary.context[context];
    FreqModel &s = secondary.context[context];
    if (v < kFirstLongValue) {
        encode_pair(encoder.range, p, s, v);
        return;
    }
    const std::uint32_t x = v - 4;
    const std::uint32_t e = bit_length(x) - 3; // raw bits: all below the top three
    encode_pair(encoder.range, p, s, kFirstLongValue + e);
    encode_doubled(encoder.range, primary.context[kFirstBitContext + e], (x >> e) & 3);
    put(encoder.raw, x & ((1u << e) - 1), e);
}

// Whether the block can still come out no longer than n + 1 bytes. Bytes that the
// range coder holds back count as written: each will be.
bool has_room(const Encoder &encoder) {
    const std::uint64_t coded = std::uint64_t{encoder.range.output_cursor} + encoder.range.pending;
    return coded + kMinRoom <= encoder.raw.back_cursor;
}

// Links each position to the next one with the same byte and lists the byte values by
// first occurrence: `first` gets their first positions and n behind them.
void scan(const std::uint8_t *block, std::uint32_t n, std::uint32_t *next_pos, PendingList &first) {
    std::uint32_t last[256];
    for (std::uint32_t &position : last)
        position = kNone;
    first.count = 0;
    for (std::uint32_t p = 0; p < n; ++p) {
        std::uint32_t &previous = last[block[p]];
        if (previous == kNone) {
            first.position[first.count++] = p;
        } else {
            next_pos[previous] = p;
        }
        previous = p;
    }
    for (const std::uint32_t position : last) {
        if (position != kNone) next_pos[position] = kNone;
    }
    first.position[first.count] = n;
}

bool encode_header(Encoder &encoder, const std::uint8_t *block, std::uint32_t n,
                   const PendingList &first) {
    SymbolStats &bytes = encoder.stats[0];
    SymbolStats &gaps = encoder.stats[1];
    encode_value(encoder, first.count, bytes, kNoRun);
    encode_value(encoder, n + 1, bytes, kNoRun);
    encode_value(encoder, block[0], bytes, kNoRun);
    encode_value(encoder, 0, bytes, kNoRun);
    for (std::uint32_t k = 1; k < first.count && has_room(encoder); ++k) {
        encode_value(encoder, block[first.position[k]], bytes, kNoRun);
        encode_value(encoder, first.position[k] - first.position[k - 1], gaps, kNoRun);
    }
    return has_room(encoder);
}

// The value of a run that ends at q when the next run of its byte starts at t: the
// positions from q + 1 to t that are not pending.
std::uint32_t distance(const PendingList &pending, std::uint32_t q, std::uint32_t t) {
    std::uint32_t known = 0; // pending positions below t, the head left out
    while (pending.position[known + 1] < t)
        ++known;
    return t - q - known;
}

bool encode_runs(Encoder &encoder, const std::uint8_t *block, std::uint32_t n,
                 const std::uint32_t *next_pos, PendingList &pending) {
    for (std::uint32_t p = 0; p < n;) {
        const std::uint8_t s = block[p];
        std::uint32_t q = p;
        while (q + 1 < n && block[q + 1] == s)
            ++q;
        const RunContext run = run_context(q - p + 1);
        const std::uint32_t t = next_pos[q];
        if (t == kNone) {
            remove_head(pending);
            encode_value(encoder, 0, encoder.stats[s], run);
        } else {
            const std::uint32_t v = distance(pending, q, t);
            replace_head(pending, t);
            encode_value(encoder, v, encoder.stats[s], run);
        }
        if (!has_room(encoder)) return false;
        p = q + 1;
    }
    return true;
}

} // namespace

void dce_encode(std::uint32_t *next_pos, ModelSet *models, std::uint8_t *&in, std::uint32_t n,
                std::uint8_t *&out, std::uint32_t &out_len, std::uint8_t dce_off) {
    if (dce_off != 0 || n == 0) {
        pass_on(in, n, out, out_len);
        return;
    }
    Encoder encoder{};
    encoder.range = start_encoder(out);
    encoder.raw = start_raw_writer(out, n);
    encoder.models = models;
    init_models(models);

    PendingList pending;
    scan(in, n, next_pos, pending);
    bool fits =
        encode_header(encoder, in, n, pending) && encode_runs(encoder, in, n, next_pos, pending);
    if (fits) {
        flush(encoder.range);
        finish(encoder.raw);
        fits = has_room(encoder);
    }
    if (!fits) {
        pass_on(in, n, out, out_len);
        return;
    }
    const std::uint32_t coded = encoder.range.output_cursor;
    const std::uint32_t raw = n - encoder.raw.back_cursor;
    std::memmove(out + coded, out + encoder.raw.back_cursor, raw);
    put_u32(out + coded + raw, encoder.value_count);
    out[coded + raw + 4] = 1;
    out_len = coded + raw + 5;
}
