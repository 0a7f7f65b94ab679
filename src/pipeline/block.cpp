#include "pipeline/block.h"

#include "archive/format.h"
#include "base/block_size.h"
#include "base/byte_order.h"
#include "dce/dce.h"
#include "filters/delta.h"
#include "filters/eol.h"
#include "filters/flt32.h"
#include "filters/lzp.h"
#include "pipeline/crc32.h"
#include "pipeline/stages.h"
#include "sorting/bwt.h"
#include "sorting/rle.h"
#include "sorting/st.h"

#include <cstring>
#include <ctime>
#include <utility>

namespace velk {
namespace {

// Adds the milliseconds from its making to its end to a timer of the context.
class StageTimer {
public:
    explicit StageTimer(std::uint32_t &total_ms) : total_ms_(total_ms), start_ms_(now_ms()) {}
    ~StageTimer() { total_ms_ += now_ms() - start_ms_; }
    StageTimer(const StageTimer &) = delete;
    StageTimer &operator=(const StageTimer &) = delete;

private:
    // The C library's clock: with it a C program links to all below this file without the C++
    // library.
    static std::uint32_t now_ms() {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return static_cast<std::uint32_t>(now.tv_sec) * 1000 +
               static_cast<std::uint32_t>(now.tv_nsec / 1000000);
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

const velk_stages::Stages &stages_for([[maybe_unused]] const Settings &settings) {
#ifdef VELK_HAS_V3
    if (settings.baseline == 0 && has_v3()) return velk_stages::kV3;
#endif
    return velk_stages::kBaseline;
}

// Hands the result of the stage that just ran to the next one as its input.
void advance(CoderContext &context) {
    std::swap(context.buf_in, context.buf_out);
    context.in_len = context.out_len;
}

// Calls a forward stage; its milliseconds are added to `ms`, a timer of the context.
template<typename Forward, typename... Arrays>
void apply(CoderContext &c, std::uint32_t &ms, std::uint8_t off, Forward forward,
           Arrays... arrays) {
    const StageTimer timer(ms);
    forward(arrays..., c.buf_in, c.in_len, c.buf_out, c.out_len, off);
    advance(c);
}

// Calls the inverse of `stage` and notes what it is given.
template<typename Inverse, typename... Arrays>
bool undo(CoderContext &c, BlockTrace *trace, std::uint32_t &ms, StageNumber stage, Inverse inverse,
          Arrays... arrays) {
    const StageTimer timer(ms);
    if (trace != nullptr) {
        trace->reached = stage;
        trace->coded_len[stage] = c.in_len;
        trace->trailer[stage] = c.in_len == 0 ? 0 : c.buf_in[c.in_len - 1];
    }
    if (!inverse(arrays..., c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity)) return false;
    advance(c);
    return true;
}

bool is_zeros(const std::uint8_t *bytes, std::uint32_t n) {
    return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, n - 1) == 0;
}

} // namespace

// Nothing but trailers adds to a block: where a stage would, it declines.
std::uint32_t data_overhead(const Settings &s) {
    const auto trailer = [](std::uint8_t off, std::uint32_t bytes) { return off != 0 ? 1 : bytes; };
    constexpr std::uint32_t kOthers = 3; // DELTA, LZP where it gains nothing, DCE
    const std::uint32_t filters = trailer(s.eol_off, kEolTrailerBytes) +
                                  trailer(s.flt32_off, kFlt32TrailerBytes) + kOthers + kCrcBytes;
    // A block that the DCE can't have coded falls back to its filtered form, with a marker
    // in the place of the DCE's trailer.
    if (s.no_fallback == 0 && s.dce_off != 0) return filters;
    return filters + trailer(s.bwt_off, kBwtTrailerBytes) + trailer(s.st_off, kStTrailerBytes) +
           trailer(s.rle_off, kRleTrailerBytes);
}

bool has_v3() {
#ifdef VELK_HAS_V3
    return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("bmi") != 0 &&
           __builtin_cpu_supports("bmi2") != 0;
#else
    return false;
#endif
}

bool compress_block(CoderContext &c) {
    if (c.in_len > block_size_of(c)) return false;
    c.out_len = 0;
    if (c.in_len == 0) return true;
    const std::uint32_t zeros_len = is_zeros(c.buf_in, c.in_len) ? c.in_len : 0;
    if (zeros_len != 0 && zeros_len == c.zeros.block_len) { // 2 MiB: 0.3 ms in place of 13 ms
        std::memcpy(c.buf_out, c.zeros.data, c.out_len = c.zeros.data_len);
        return true;
    }
    std::uint32_t *const pair_region = c.work1, *const index_array = c.work2,
                         *const bit_array = c.work3, *const model_area = c.work4;
    const Settings &s = c.settings;
    const velk_stages::Stages &stages = stages_for(s);
    apply(c, c.ms_other, s.eol_off, stages.eol_encode);
    apply(c, c.ms_other, s.flt32_off,
          [&](auto *&in, std::uint32_t n, auto *&out, std::uint32_t &out_len, std::uint8_t off) {
              stages.flt32_encode(in, n, out, out_len, c.file_size, off);
          });
    apply(c, c.ms_other, s.delta_off, stages.delta_encode);
    apply(c, c.ms_other, s.lzp_off, stages.lzp_encode, index_array);
    const std::uint8_t *const unsorted = c.buf_in;
    const std::uint32_t unsorted_len = c.in_len;
    apply(c, c.ms_sort, s.bwt_off, stages.bwt_forward, pair_region, index_array, bit_array,
          model_area);
    apply(c, c.ms_sort, s.st_off, stages.st_forward, index_array);
    // The sorts leave the block where it was, and behind the buffers is room now.
    std::uint8_t *const kept = reinterpret_cast<std::uint8_t *>(pair_region) + 2 * c.capacity;
    if (s.no_fallback == 0) std::memcpy(kept, unsorted, unsorted_len);
    apply(c, c.ms_other, s.rle_off, stages.rle_forward);
    apply(c, c.ms_dce, s.dce_off, stages.dce_encode, index_array, model_area);

    const bool coded = c.buf_in[c.in_len - 1] != 0;
    if (s.no_fallback == 0 && !coded && c.in_len >= unsorted_len) {
        std::memcpy(c.buf_in, kept, unsorted_len);
        c.buf_in[unsorted_len] = kFallbackMarker;
        c.in_len = unsorted_len + 1;
    }
    put_u32(c.buf_in + c.in_len, crc32_block(c.buf_in, c.in_len));
    c.out_len = c.in_len + kCrcBytes;
    std::swap(c.buf_in, c.buf_out);
    if (zeros_len != 0 && c.out_len <= sizeof c.zeros.data) {
        c.zeros = {zeros_len, c.out_len, {}};
        std::memcpy(c.zeros.data, c.buf_out, c.out_len);
    }
    return true;
}

bool decompress_block(CoderContext &c, BlockTrace *trace) {
    if (trace != nullptr) *trace = BlockTrace{};
    if (c.in_len > c.capacity || c.in_len < kMinRecordData) return false;
    if (trace == nullptr && c.in_len == c.zeros.data_len &&
        std::memcmp(c.buf_in, c.zeros.data, c.in_len) == 0) {
        std::memset(c.buf_out, 0, c.out_len = c.zeros.block_len);
        return true;
    }
    ZeroBlock found = {0, c.in_len, {}};
    if (c.in_len <= sizeof found.data) std::memcpy(found.data, c.buf_in, c.in_len);
    c.in_len -= kCrcBytes;
    if (get_u32(c.buf_in + c.in_len) != crc32_block(c.buf_in, c.in_len)) return false;
    if (trace != nullptr) trace->crc_holds = true;

    const velk_stages::Stages &stages = stages_for(c.settings);
    // A header that says that a sorting transform was off sets up no memory for its inverse;
    // a block that claims to need it is not restored.
    std::uint32_t *const region = c.work2, *const model_area = c.work3;
    std::uint32_t *const st_contexts = c.settings.st_off == 0 ? model_area : nullptr;
    std::uint32_t *const lf_vector = c.settings.bwt_off == 0 ? region : nullptr;
    if (c.buf_in[c.in_len - 1] == kFallbackMarker) {
        --c.in_len;
        if (trace != nullptr) trace->fallback = true;
    } else if (!undo(c, trace, c.ms_dce, STAGE_DCE, stages.dce_decode, model_area) ||
               !undo(c, trace, c.ms_other, STAGE_RLE, stages.rle_inverse) ||
               !undo(c, trace, c.ms_sort, STAGE_ST, stages.st_inverse, st_contexts) ||
               !undo(c, trace, c.ms_sort, STAGE_BWT, stages.bwt_inverse, lf_vector)) {
        return false;
    }
    if (!undo(c, trace, c.ms_other, STAGE_LZP, stages.lzp_decode, region) ||
        !undo(c, trace, c.ms_other, STAGE_DELTA, stages.delta_decode) ||
        !undo(c, trace, c.ms_other, STAGE_FLT32, stages.flt32_decode) ||
        !undo(c, trace, c.ms_other, STAGE_EOL, stages.eol_decode)) {
        return false;
    }
    std::swap(c.buf_in, c.buf_out); // the result lies where the next stage would read it
    found.block_len = c.out_len;
    if (found.data_len <= sizeof found.data && c.out_len != 0 && is_zeros(c.buf_out, c.out_len))
        c.zeros = found;
    return true;
}

} // namespace velk
