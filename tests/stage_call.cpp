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
#include <memory>

using namespace velk;

namespace {

using Buffer = std::uint8_t *;
using Length = std::uint32_t;
using Words = std::vector<std::uint32_t>;

template<typename Call>
Bytes call_forward(const Bytes &block, Call call) {
    const std::size_t room = block.size() + kForwardSlack;
    Bytes first(room), second(room);
    std::copy(block.begin(), block.end(), first.begin());
    Buffer in = first.data(), out = second.data();
    Length out_len = 0;
    call(in, static_cast<Length>(block.size()), out, out_len);
    return Bytes(out, out + out_len);
}

template<typename Call>
std::optional<Bytes> call_inverse(const Bytes &data, std::uint32_t capacity, Call call) {
    const auto first = std::make_unique<std::uint8_t[]>(capacity);
    const auto second = std::make_unique<std::uint8_t[]>(capacity);
    std::copy(data.begin(), data.end(), first.get());
    Buffer in = first.get(), out = second.get();
    Length out_len = 0;
    if (!call(in, static_cast<Length>(data.size()), out, out_len, capacity)) return {};
    return Bytes(out, out + out_len);
}

// A stage whose calls take no work array.
template<typename Forward, typename Inverse>
Stage plain_stage(std::string name, Forward forward, Inverse inverse) {
    return {std::move(name), [=](const Bytes &block) { return call_forward(block, forward); },
            [=](const Bytes &data, std::uint32_t capacity) {
                return call_inverse(data, capacity, inverse);
            }};
}

// A stage whose calls take one work array of `entries` numbers, which hold what the
// last call left there.
template<typename Forward, typename Inverse>
Stage array_stage(std::string name, std::uint32_t entries, Forward forward, Inverse inverse) {
    const auto array = std::make_shared<Words>(entries, 0xAAAAAAAAu);
    return plain_stage(
        std::move(name),
        [=](Buffer &in, Length n, Buffer &out, Length &out_len) {
            forward(array->data(), in, n, out, out_len, 0);
        },
        [=](Buffer &in, Length n, Buffer &out, Length &out_len, Length capacity) {
            return inverse(array->data(), in, n, out, out_len, capacity);
        });
}

// Lays out the pair region as a run does: both buffers at its start.
Bytes forward_bwt(const Bytes &block) {
    const std::uint32_t n = static_cast<std::uint32_t>(block.size());
    const std::uint32_t room = n + kForwardSlack;
    Words region(room), rows(n), bits(n / 8 + 10, 0xAAAAAAAAu), scratch(kSortScratchBytes / 4, 7);
    Buffer in = reinterpret_cast<Buffer>(region.data());
    Buffer out = in + room;
    std::copy(block.begin(), block.end(), in);
    Length out_len = 0;
    bwt_forward(region.data(), rows.data(), bits.data(), scratch.data(), in, n, out, out_len, 0);
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
        if (bwt_inverse(work_area, in, static_cast<Length>(data.size()), out, out_len, capacity)) {
            results[upper] = Bytes(out, out + out_len);
        }
    }
    // A disagreement shows as a block that is longer than any.
    return results[0] == results[1] ? results[0] : Bytes(std::size_t{capacity} + 1);
}

} // namespace

const Stage kEol = plain_stage(
    "EOL", [](auto &&...args) { eol_encode(args..., 0); }, eol_decode);
const Stage kFlt32 = plain_stage(
    "FLT32",
    [](Buffer &in, Length n, Buffer &out, Length &out_len) {
        flt32_encode(in, n, out, out_len, n, 0);
    },
    flt32_decode);
const Stage kDelta = plain_stage(
    "DELTA", [](auto &&...args) { delta_encode(args..., 0); }, delta_decode);
const Stage kLzp = array_stage("LZP", kLzpTableEntries, lzp_encode, lzp_decode);
const Stage kBwt = {"BWT", forward_bwt, inverse_bwt};
const Stage kSt = array_stage("ST", kStContexts, st_forward, st_inverse);
const Stage kRle = plain_stage(
    "RLE", [](auto &&...args) { rle_forward(args..., 0); }, rle_inverse);
const Stage kDce = plain_stage(
    "DCE",
    [](Buffer &in, Length n, Buffer &out, Length &out_len) {
        Words runs(n, 7), models(kModelAreaBytes / 4, 7);
        dce_encode(runs.data(), models.data(), in, n, out, out_len, 0);
    },
    [](Buffer &in, Length n, Buffer &out, Length &out_len, Length capacity) {
        Words models(kModelAreaBytes / 4, 7);
        return dce_decode(models.data(), in, n, out, out_len, capacity);
    });

const std::vector<const Stage *> kStages = {&kEol, &kFlt32, &kDelta, &kLzp,
                                            &kBwt, &kSt,    &kRle,   &kDce};
