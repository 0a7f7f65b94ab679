#include "stage_call.h"

#include "dce/dce.h"
#include "dce/frequency_models.h"
#include "filters/delta.h"
#include "filters/eol.h"
#include "filters/flt32.h"
#include "filters/lzp.h"
#include "sorting/bwt.h"
#include "sorting/rle.h"
#include "sorting/st.h"

#include <algorithm>
#include <ctime>
#include <memory>

using namespace velk;

double stage_seconds;

namespace {

using Buffer = std::uint8_t *;
using Length = std::uint32_t;
using Words = std::vector<std::uint32_t>;

// Of the last call of a stage.
struct Clock {
    static inline std::clock_t start;
    Clock() { start = std::clock(); }
    ~Clock() { stage_seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC; }
};

template<typename Function, typename... Args>
auto timed(const Function &function, Args &&...args) {
    const Clock clock;
    return function(args...);
}

// A stage with `words` numbers of memory, which hold what the last call left there.
template<typename Forward, typename Inverse>
Stage make_stage(const char *name, std::uint32_t words, Forward forward, Inverse inverse) {
    const auto memory = std::make_shared<Words>(words, 0xAAAAAAAAu);
    const auto there = [=](const Bytes &block) {
        Bytes first(block), second(block.size() + kForwardSlack);
        first.resize(second.size());
        Buffer in = first.data(), out = second.data();
        Length out_len = 0;
        timed(forward, memory->data(), in, static_cast<Length>(block.size()), out, out_len);
        return Bytes(out, out + out_len);
    };
    const auto back = [=](const Bytes &data, std::uint32_t capacity) -> std::optional<Bytes> {
        const auto first = std::make_unique<std::uint8_t[]>(capacity);
        const auto second = std::make_unique<std::uint8_t[]>(capacity);
        std::copy(data.begin(), data.end(), first.get());
        Buffer in = first.get(), out = second.get();
        Length n = static_cast<Length>(data.size()), out_len = 0;
        if (!timed(inverse, memory->data(), in, n, out, out_len, capacity)) return {};
        return Bytes(out, out + out_len);
    };
    return {name, there, back};
}

// Of stages without memory.
template<typename Forward, typename Inverse>
Stage make_stage(const char *name, Forward forward, Inverse inverse) {
    return make_stage(
        name, 0, [=](auto, auto &&...args) { forward(args..., 0); },
        [=](auto, auto &&...args) { return inverse(args...); });
}

// Lays out the pair region as a run does: both buffers at its start. The scratch holds what the
// last call left there: new memory, page by page, takes most of the time of a short block.
Bytes forward_bwt(const Bytes &block) {
    static Words scratch(kSortScratchBytes / 4, 7);
    const std::uint32_t n = static_cast<std::uint32_t>(block.size());
    const std::uint32_t room = n + kForwardSlack;
    Words region(room), rows(n), bits(n / 8 + kBwtMoreBitWords, 0xAAAAAAAAu);
    Buffer in = reinterpret_cast<Buffer>(region.data());
    Buffer out = in + room;
    std::copy(block.begin(), block.end(), in);
    Length out_len = 0;
    timed(bwt_forward, region.data(), rows.data(), bits.data(), scratch.data(), in, n, out, out_len,
          std::uint8_t{0});
    return Bytes(out, out + out_len);
}

// Lays out the decompression region as a run does: both buffers at its end, the data
// in the lower one and then in the upper one; both must give the same.
std::optional<Bytes> inverse_bwt(const Bytes &data, std::uint32_t capacity) {
    std::optional<Bytes> results[2];
    for (unsigned upper = 0; upper < 2; ++upper) {
        Bytes region(5 * std::size_t{capacity});
        Buffer in = region.data() + (3 + upper) * std::size_t{capacity};
        Buffer out = region.data() + (4 - upper) * std::size_t{capacity};
        std::copy(data.begin(), data.end(), in);
        Length out_len = 0;
        std::uint32_t *const work_area = reinterpret_cast<std::uint32_t *>(region.data());
        if (timed(bwt_inverse, work_area, in, static_cast<Length>(data.size()), out, out_len,
                  capacity)) {
            results[upper] = Bytes(out, out + out_len);
        }
    }
    // A disagreement shows as a block that is longer than any.
    return results[0] == results[1] ? results[0] : Bytes(std::size_t{capacity} + 1);
}

} // namespace

const Stage kEol = make_stage("EOL", eol_encode, eol_decode);
const Stage kFlt32 = make_stage(
    "FLT32",
    [](Buffer &in, Length n, Buffer &out, Length &out_len, int) {
        flt32_encode(in, n, out, out_len, n, 0);
    },
    flt32_decode);
const Stage kDelta = make_stage("DELTA", delta_encode, delta_decode);
const Stage kLzp = make_stage(
    "LZP", kLzpTableEntries, [](auto &&...args) { lzp_encode(args..., 0); }, lzp_decode);
const Stage kBwt = {"BWT", forward_bwt, inverse_bwt};
const Stage kSt = make_stage(
    "ST", kStContexts, [](auto &&...args) { st_forward(args..., 0); }, st_inverse);
const Stage kRle = make_stage("RLE", rle_forward, rle_inverse);
const Stage kDce = make_stage(
    "DCE", kModelAreaBytes / 4,
    [](std::uint32_t *models, Buffer &in, Length n, Buffer &out, Length &out_len) {
        static Words runs;
        runs = Words(n, 7);
        Clock::start = std::clock();
        dce_encode(runs.data(), models, in, n, out, out_len, 0);
    },
    dce_decode);

const std::vector<const Stage *> kStages = {&kEol, &kFlt32, &kDelta, &kLzp,
                                            &kBwt, &kSt,    &kRle,   &kDce};
