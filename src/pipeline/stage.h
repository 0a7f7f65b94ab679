// What all stages have in common.
//
// A stage reads one buffer of the pair and writes the other. It is called with
//
//   work arrays,  in, n,    out, out_len,  off flag         (forward)
//   work arrays,  in, len,  out, out_len,  capacity         (inverse)
//
// `in` and `out` are references to the pointers of two buffers of `capacity` bytes that do
// not overlap; n, or len, is the length of what is in `in`, with the trailers of the stages
// before. When the stage returns, the buffer that `out` then names holds the result,
// `out_len` bytes.
//
// A forward stage appends its trailer to its output; the last byte is the first that its
// inverse reads. 0 always means that the data before it is the stage's input. Nothing but
// trailers makes a block longer: a stage declines where it would gain nothing.
//
// An inverse stage may be given any bytes at all. It never reads or writes outside
// the buffers and work arrays, ends in time linear in `capacity`, and returns false,
// with the contents of both buffers undefined, for a block that it can't restore.
#pragma once

#include <cstdint>
#include <utility>

namespace velk {

// The stages, in the order of the forward chain, which is that of their bits in an
// archive's flags byte.
enum StageNumber : unsigned {
    STAGE_EOL,
    STAGE_FLT32,
    STAGE_DELTA,
    STAGE_LZP,
    STAGE_BWT,
    STAGE_ST,
    STAGE_RLE,
    STAGE_DCE,
    STAGE_COUNT
};

// Leaves the block where it is, as a forward stage that is off or does not apply.
inline void pass_on(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                    std::uint8_t trailer = 0) {
    std::swap(in, out);
    out[n] = trailer;
    out_len = n + 1;
}

// Undoes `pass_on` with this trailer; false, with nothing done, for any other block.
[[nodiscard]] inline bool undo_pass_on(std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                                       std::uint32_t &out_len, std::uint8_t trailer = 0) {
    if (len == 0 || in[len - 1] != trailer) return false;
    std::swap(in, out);
    out_len = len - 1;
    return true;
}

} // namespace velk
