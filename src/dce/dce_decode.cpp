#include "dce/dce.h"
#include "dce/pending_list.h"
#include "dce/range_coder.h"
#include "dce/raw_bits.h"
#include "dce/symbol_stats.h"
#include "pipeline/byte_order.h"
#include "pipeline/stage.h"

#include <cstring>

namespace {

constexpr std::uint32_t kTrailerBytes = 5;

struct Decoder {
    RangeDecoder range;
    RawBitReader raw;
    ModelSet *models;
    std::uint32_t prev_value;
    SymbolStats stats[256];
};

// The next value, below 2^26 + 4. After a fault (see `failed`) it means nothing.
std::uint32_t decode_value(Decoder &decoder, SymbolStats &stats, RunContext run) {
    const std::uint32_t context = distance_context(stats, run.flag);
    ModelSet &primary = decoder.models[0];
    ModelSet &secondary = decoder.models[1 + secondary_index(decoder.prev_value)];
    std::uint32_t v =
        decode_pair(decoder.range, primary.context[context], secondary.context[context]);
    if (v >= kFirstLongValue) {
        const std::uint32_t e = v - kFirstLongValue; // at most 23
        const std::uint32_t top =
            decode_doubled(decoder.range, primary.context[kFirstBitContext + e]);
        v = 4 + ((4 + top) << e) + get(decoder.raw, e);
    }
    update_stats(stats, decoder.prev_value, v, run.term);
    return v;
}

bool failed(const Decoder &decoder) {
    return decoder.range.failed || decoder.raw.failed;
}

// Decodes the header list: the pending list gets the first positions and n behind
// them, `out` the bytes there. Ensures 0 = first position < ... < n <= capacity.
bool decode_header(Decoder &decoder, std::uint8_t *out, std::uint32_t capacity,
                   PendingList &pending) {
    SymbolStats &bytes = decoder.stats[0];
    SymbolStats &gaps = decoder.stats[1];
    const std::uint32_t byte_values = decode_value(decoder, bytes, kNoRun);
    const std::uint32_t n_plus_1 = decode_value(decoder, bytes, kNoRun);
    if (byte_values < 1 || byte_values > 256) return false;
    if (n_plus_1 < 2 || n_plus_1 - 1 > capacity) return false;
    const std::uint32_t n = n_plus_1 - 1;

    out[0] = static_cast<std::uint8_t>(decode_value(decoder, bytes, kNoRun));
    if (decode_value(decoder, bytes, kNoRun) != 0) return false;
    pending.position[0] = 0;
    std::uint32_t first = 0;
    for (std::uint32_t k = 1; k < byte_values; ++k) {
        const std::uint32_t byte = decode_value(decoder, bytes, kNoRun);
        const std::uint32_t gap = decode_value(decoder, gaps, kNoRun);
        if (gap == 0 || gap >= n - first || failed(decoder)) return false;
        first += gap;
        out[first] = static_cast<std::uint8_t>(byte);
        pending.position[k] = first;
    }
    pending.position[byte_values] = n;
    pending.count = byte_values;
    return !failed(decoder);
}

// Decodes `runs` runs; `length` becomes the bytes that they fill. Each run starts
// where the one before it ended, at the head of the pending list, and ends before the
// next pending position, at the latest before n, so every write stays below n and
// there are at most n runs.
bool decode_runs(Decoder &decoder, std::uint8_t *out, std::uint32_t runs, PendingList &pending,
                 std::uint32_t &length) {
    length = 0;
    for (; runs > 0; --runs) {
        if (pending.count == 0) return false; // n is reached
        const std::uint32_t p = pending.position[0];
        const std::uint32_t end = pending.position[1];
        const std::uint8_t s = out[p];
        std::memset(out + p, s, end - p);
        const std::uint32_t v = decode_value(decoder, decoder.stats[s], run_context(end - p));
        if (failed(decoder)) return false;
        if (v == 0) {
            remove_head(pending);
        } else {
            // v may reach 2^26, n is below 2^24: no overflow.
            std::uint32_t t = end - 1 + v;
            for (std::uint32_t i = 1; i < pending.count && pending.position[i] <= t; ++i)
                ++t;
            if (t >= pending.position[pending.count]) return false;
            replace_head(pending, t);
            out[t] = s;
        }
        length = end;
    }
    return true;
}

} // namespace

bool dce_decode(ModelSet *models, std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                std::uint32_t &out_len, std::uint32_t capacity) {
    if (len == 0) return false;
    if (in[len - 1] == 0) {
        drop_trailer(in, len, out, out_len);
        return true;
    }
    if (len < kTrailerBytes) return false;
    const std::uint32_t coded_len = len - kTrailerBytes;
    const std::uint32_t value_count = get_u32(in + coded_len);

    Decoder decoder{};
    decoder.range = start_decoder(in, coded_len);
    decoder.raw = start_raw_reader(in, coded_len);
    decoder.models = models;
    init_models(models);

    PendingList pending;
    if (!decode_header(decoder, out, capacity, pending)) return false;
    const std::uint32_t header_values = 2 * pending.count + 2;
    const std::uint32_t runs = value_count > header_values ? value_count - header_values : 0;
    return decode_runs(decoder, out, runs, pending, out_len);
}
