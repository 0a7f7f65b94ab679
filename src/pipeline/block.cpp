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

// Hands the result of the stage that just ran to the next one as its input.
void advance(CoderContext &context) {
    std::swap(context.buf_in, context.buf_out);
    context.in_len = context.out_len;
}

// Notes what the inverse of `stage` is about to be given.
void note(BlockTrace *trace, StageNumber stage, const CoderContext &context) {
    if (trace == nullptr) return;
    trace->reached = stage;
    trace->coded_len[stage] = context.in_len;
    trace->trailer[stage] = context.in_len == 0 ? 0 : context.buf_in[context.in_len - 1];
}

} // namespace

bool compress_block(CoderContext &c) {
    if (c.in_len > c.capacity - kBlockSlack) return false;
    c.out_len = 0;
    if (c.in_len == 0) return true;
    const Settings &s = c.settings;
    {
        const StageTimer timer(c.ms_other);
        eol_encode(c.buf_in, c.in_len, c.buf_out, c.out_len, s.eol_off);
        advance(c);
        flt32_encode(c.buf_in, c.in_len, c.buf_out, c.out_len, c.file_size, s.flt32_off);
        advance(c);
        delta_encode(c.buf_in, c.in_len, c.buf_out, c.out_len, s.delta_off);
        advance(c);
        lzp_encode(c.work2, c.buf_in, c.in_len, c.buf_out, c.out_len, s.lzp_off);
        advance(c);
    }
    const std::uint8_t *const unsorted = c.buf_in;
    const std::uint32_t unsorted_len = c.in_len;
    std::uint8_t *const kept = reinterpret_cast<std::uint8_t *>(c.work1) + 2 * c.capacity;
    {
        const StageTimer timer(c.ms_sort);
        bwt_forward(c.work1, c.work2, c.work3, c.work4, c.buf_in, c.in_len, c.buf_out, c.out_len,
                    s.bwt_off);
        advance(c);
        st_forward(c.work2, c.buf_in, c.in_len, c.buf_out, c.out_len, s.st_off);
        advance(c);
    }
    {
        const StageTimer timer(c.ms_other);
        // The sorts leave the block where it was, and behind the buffers is room now.
        if (s.no_fallback == 0) std::memcpy(kept, unsorted, unsorted_len);
        rle_forward(c.buf_in, c.in_len, c.buf_out, c.out_len, s.rle_off);
        advance(c);
    }
    {
        const StageTimer timer(c.ms_dce);
        dce_encode(c.work2, c.work4, c.buf_in, c.in_len, c.buf_out, c.out_len, s.dce_off);
        advance(c);
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
    } else {
        // A header that says that a sorting transform was off sets up no memory for
        // its inverse; a block that claims to need it is not restored.
        std::uint32_t *const lf_vector = c.settings.bwt_off == 0 ? c.work2 : nullptr;
        std::uint32_t *const st_contexts = c.settings.st_off == 0 ? c.work3 : nullptr;
        {
            const StageTimer timer(c.ms_dce);
            note(trace, STAGE_DCE, c);
            if (!dce_decode(c.work3, c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity)) {
                return false;
            }
            advance(c);
        }
        {
            const StageTimer timer(c.ms_other);
            note(trace, STAGE_RLE, c);
            if (!rle_inverse(c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity)) return false;
            advance(c);
        }
        {
            const StageTimer timer(c.ms_sort);
            note(trace, STAGE_ST, c);
            if (!st_inverse(st_contexts, c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity)) {
                return false;
            }
            advance(c);
            note(trace, STAGE_BWT, c);
            if (!bwt_inverse(lf_vector, c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity)) {
                return false;
            }
            advance(c);
        }
    }
    const StageTimer timer(c.ms_other);
    note(trace, STAGE_LZP, c);
    if (!lzp_decode(c.work2, c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity)) return false;
    advance(c);
    note(trace, STAGE_DELTA, c);
    if (!delta_decode(c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity)) return false;
    advance(c);
    note(trace, STAGE_FLT32, c);
    if (!flt32_decode(c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity)) return false;
    advance(c);
    note(trace, STAGE_EOL, c);
    return eol_decode(c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity);
}
