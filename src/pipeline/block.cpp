#include "pipeline/block.h"

#include "archive/memory.h"
#include "dce/dce.h"
#include "filters/delta.h"
#include "filters/eol.h"
#include "filters/flt32.h"
#include "filters/lzp.h"
#include "pipeline/byte_order.h"
#include "pipeline/crc32.h"
#include "sorting/bwt.h"
#include "sorting/rle.h"
#include "sorting/st.h"

#include <chrono>
#include <cstring>
#include <ctime>
#include <utility>

namespace velk {
namespace {

constexpr std::uint8_t kFallbackMarker = 2;

// Adds the milliseconds from its making to its end to a timer of the context.
class StageTimer {
public:
    explicit StageTimer(std::uint32_t &total_ms) : total_ms_(total_ms), start_ms_(now_ms()) {}
    ~StageTimer() { total_ms_ += now_ms() - start_ms_; }
    StageTimer(const StageTimer &) = delete;
    StageTimer &operator=(const StageTimer &) = delete;

private:
    // Where there is a choice, the C library's clock: with it a C program links to all
    // below this file without the C++ library.
    static std::uint32_t now_ms() {
#ifdef CLOCK_MONOTONIC
        std::timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return static_cast<std::uint32_t>(now.tv_sec) * 1000 +
               static_cast<std::uint32_t>(now.tv_nsec / 1000000);
#else
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        return static_cast<std::uint32_t>(
            std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
#endif
    }

    std::uint32_t &total_ms_;
    std::uint32_t start_ms_;
};

constexpr std::uint32_t kFilterTrailers =
    kEolTrailerBytes + kFlt32TrailerBytes + kDeltaTrailerBytes + kLzpTrailerBytes;
constexpr std::uint32_t kSortTrailers = kBwtTrailerBytes + kStTrailerBytes + kRleTrailerBytes;
// Buffers and bit array have room for each stage's block; the record data is the longest one
// with its CRC, as the DCE stage adds 1 byte at most to what it gets.
static_assert(kFilterTrailers + kBwtRoom <= kBlockSlack);
static_assert(kFilterTrailers + 8 * kBwtMoreBitWords <= kBlockSlack);
static_assert(kFilterTrailers + kSortTrailers + kDceRoom <= kBlockSlack);
static_assert(kFilterTrailers + kSortTrailers + 1 + kCrcBytes <= kBlockSlack);

// Hands the result of the stage that just ran to the next one as its input.
void advance(CoderContext &context) {
    std::swap(context.buf_in, context.buf_out);
    context.in_len = context.out_len;
}

template<typename Forward, typename... Arrays>
void apply(CoderContext &c, std::uint8_t off, Forward forward, Arrays... arrays) {
    forward(arrays..., c.buf_in, c.in_len, c.buf_out, c.out_len, off);
    advance(c);
}

// Calls the inverse of `stage` and notes what it is given.
template<typename Inverse, typename... Arrays>
bool undo(CoderContext &c, BlockTrace *trace, StageNumber stage, Inverse inverse,
          Arrays... arrays) {
    if (trace != nullptr) {
        trace->reached = stage;
        trace->coded_len[stage] = c.in_len;
        trace->trailer[stage] = c.in_len == 0 ? 0 : c.buf_in[c.in_len - 1];
    }
    if (!inverse(arrays..., c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity)) return false;
    advance(c);
    return true;
}

void apply_filters(CoderContext &c) {
    const StageTimer timer(c.ms_other);
    const Settings &s = c.settings;
    apply(c, s.eol_off, eol_encode);
    flt32_encode(c.buf_in, c.in_len, c.buf_out, c.out_len, c.file_size, s.flt32_off);
    advance(c);
    apply(c, s.delta_off, delta_encode);
    apply(c, s.lzp_off, lzp_encode, forward_arrays(c).index_array);
}

void apply_sort(CoderContext &c) {
    const StageTimer timer(c.ms_sort);
    const ForwardArrays a = forward_arrays(c);
    apply(c, c.settings.bwt_off, bwt_forward, a.pair_region, a.index_array, a.bit_array,
          a.model_area);
    apply(c, c.settings.st_off, st_forward, a.index_array);
}

bool undo_coding(CoderContext &c, BlockTrace *trace) {
    const StageTimer timer(c.ms_dce);
    return undo(c, trace, STAGE_DCE, dce_decode, inverse_arrays(c).model_area);
}

bool undo_runs(CoderContext &c, BlockTrace *trace) {
    const StageTimer timer(c.ms_other);
    return undo(c, trace, STAGE_RLE, rle_inverse);
}

// A header that says that a sorting transform was off sets up no memory for its inverse; a
// block that claims to need it is not restored.
bool undo_sort(CoderContext &c, BlockTrace *trace) {
    const StageTimer timer(c.ms_sort);
    const InverseArrays a = inverse_arrays(c);
    return undo(c, trace, STAGE_ST, st_inverse, c.settings.st_off == 0 ? a.model_area : nullptr) &&
           undo(c, trace, STAGE_BWT, bwt_inverse, c.settings.bwt_off == 0 ? a.region : nullptr);
}

bool undo_filters(CoderContext &c, BlockTrace *trace) {
    const StageTimer timer(c.ms_other);
    return undo(c, trace, STAGE_LZP, lzp_decode, inverse_arrays(c).region) &&
           undo(c, trace, STAGE_DELTA, delta_decode) && undo(c, trace, STAGE_FLT32, flt32_decode) &&
           undo(c, trace, STAGE_EOL, eol_decode);
}

} // namespace

bool compress_block(CoderContext &c) {
    if (c.in_len > c.capacity - kBlockSlack) return false;
    c.out_len = 0;
    if (c.in_len == 0) return true;
    const ForwardArrays arrays = forward_arrays(c);
    const Settings &s = c.settings;
    apply_filters(c);
    const std::uint8_t *const unsorted = c.buf_in;
    const std::uint32_t unsorted_len = c.in_len;
    std::uint8_t *const kept =
        reinterpret_cast<std::uint8_t *>(arrays.pair_region) + 2 * c.capacity;
    apply_sort(c);
    {
        const StageTimer timer(c.ms_other);
        // The sorts leave the block where it was, and behind the buffers is room now.
        if (s.no_fallback == 0) std::memcpy(kept, unsorted, unsorted_len);
        apply(c, s.rle_off, rle_forward);
    }
    {
        const StageTimer timer(c.ms_dce);
        apply(c, s.dce_off, dce_encode, arrays.index_array, arrays.model_area);
    }
    {
        const StageTimer timer(c.ms_other);
        const bool coded = c.buf_in[c.in_len - 1] != 0;
        if (s.no_fallback == 0 && !coded && c.in_len >= unsorted_len) {
            std::memcpy(c.buf_in, kept, unsorted_len);
            c.buf_in[unsorted_len] = kFallbackMarker;
            c.in_len = unsorted_len + 1;
        }
    }
    put_u32(c.buf_in + c.in_len, crc32_block(c.buf_in, c.in_len));
    c.out_len = c.in_len + kCrcBytes;
    std::swap(c.buf_in, c.buf_out);
    return true;
}

bool decompress_block(CoderContext &c, BlockTrace *trace) {
    if (trace != nullptr) *trace = BlockTrace{};
    if (c.in_len > c.capacity || c.in_len < kMinRecordData) return false;
    c.in_len -= kCrcBytes;
    if (get_u32(c.buf_in + c.in_len) != crc32_block(c.buf_in, c.in_len)) return false;
    if (trace != nullptr) trace->crc_holds = true;

    if (c.buf_in[c.in_len - 1] == kFallbackMarker) {
        --c.in_len;
        if (trace != nullptr) trace->fallback = true;
    } else if (!undo_coding(c, trace) || !undo_runs(c, trace) || !undo_sort(c, trace)) {
        return false;
    }
    if (!undo_filters(c, trace)) return false;
    std::swap(c.buf_in, c.buf_out); // the result lies where the next stage would read it
    return true;
}

} // namespace velk
