// What all stages have in common.
//
// A stage reads one buffer of the pair and writes the other. It is called with
//
//   work arrays,  in, n,  out, out_len,  off flag         (forward)
//   work arrays,  in, n,  out, out_len,  capacity         (inverse)
//
// `in` and `out` are references to the pointers of two buffers of `capacity` bytes
// that do not overlap, `n` the length of the block in `in`, trailers of earlier
// stages included. When the stage returns, the buffer that `out` then names holds
// the result, `out_len` bytes.
//
// A forward stage appends its trailer to its output; the last byte is the first that
// its inverse reads. 0 always means that the data before it is the stage's input.
// A forward stage gets at most N + 30 bytes, so that its output fits.
//
// An inverse stage may be given any bytes at all. It never reads or writes outside
// the buffers and work arrays, ends in time linear in `capacity`, and returns false,
// with the contents of both buffers undefined, for a block that it can't restore.
#pragma once

#include <cstdint>
#include <utility>

// Leaves the block where it is, as a forward stage that is off or does not apply.
inline void pass_on(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                    std::uint8_t trailer = 0) {
    std::swap(in, out);
    out[n] = trailer;
    out_len = n + 1;
}

// Leaves the block where it is and drops the trailer byte: the inverse of `pass_on`.
inline void drop_trailer(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                         std::uint32_t &out_len) {
    std::swap(in, out);
    out_len = n - 1;
}
