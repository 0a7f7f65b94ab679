// The one record of a run: memory, the block on its way, timers and settings.
#pragma once

#include "base/block_size.h"
#include "cli/settings.h"

#include <algorithm>
#include <cstdint>

namespace velk {

// The block of zeros that was coded last, which disk images have by the thousand: its length, and
// the data of its record. Both 0: there was none.
struct ZeroBlock {
    std::uint32_t block_len;
    std::uint32_t data_len;
    std::uint8_t data[64];
};

// A plain record that may be filled with zeros. `alloc_compress` or
// `alloc_decompress` (archive/memory.h) sets the memory members, whose layout is
// told there.
//
// The buffer pair `buf_in`, `buf_out`: two buffers of `capacity` bytes that the
// stages of a block read and write in turn, and exchange by exchanging pointers.
//
// The work arrays are lent to the stages one after the other; no stage relies on
// what another one left there.
struct CoderContext {
    std::uint32_t capacity;  // bytes of one buffer: the block size + kBlockSlack
    std::uint32_t file_size; // bytes of the input + 1 on compression, of the archive on
                             // decompression; 2^32 - 1 stands for anything larger
    std::uint32_t bit_words; // 32-bit words of the bit array
    std::uint32_t *work1;    // compression: pair region
    std::uint32_t *work2;    // compression: index array; decompression: decompression region
    std::uint32_t *work3;    // compression: bit array; decompression: model area
    std::uint32_t *work4;    // compression: model area
    std::uint8_t *buf_in;    // the next block's input
    std::uint8_t *buf_out;   // the last block's result
    std::uint32_t in_len;    // bytes in `buf_in`
    std::uint32_t out_len;   // bytes in `buf_out`
    std::uint32_t ms_sort;   // milliseconds in the sorting transforms or their inverses
    std::uint32_t ms_dce;    // milliseconds in the DCE stage or its inverse
    std::uint32_t ms_other;  // milliseconds in all other stages
    Settings settings;
    ZeroBlock zeros;
};

// The block size N, in bytes, that the memory was set up for.
inline std::uint32_t block_size_of(const CoderContext &context) {
    return context.capacity - kBlockSlack;
}

// Sets `file_size`: `size`, or the largest number there is for one that is larger.
inline void set_file_size(CoderContext &context, std::uint64_t size) {
    context.file_size = static_cast<std::uint32_t>(std::min<std::uint64_t>(size, 0xFFFFFFFFu));
}

} // namespace velk
