#include "base/byte_order.h"
#include "pipeline/stage.h"
#include "sorting/bwt.h"
#include "sorting/rotation_sort.h"

#include <cassert>

namespace velk {

void bwt_forward(std::uint32_t *pair_region, std::uint32_t *index_array, std::uint32_t *bit_array,
                 std::uint32_t *model_area, std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out,
                 std::uint32_t &out_len, std::uint8_t bwt_off) {
    if (bwt_off != 0) {
        pass_on(in, n, out, out_len);
        return;
    }
    assert(n > 0 && n <= kPositionMask);
    const SortArrays arrays = {pair_region, index_array, bit_array, model_area};
    if (!sort_by_induction(arrays, in, n, out) && !sort_by_tripling(arrays, in, n)) {
        sort_by_period(arrays, in, n, out);
    }

    std::uint32_t primary_index = 1;
    for (std::uint32_t row = 0; row < n; ++row) {
        out[row] = preceding_byte(index_array[row]);
        if (position_of(index_array[row]) == 1) primary_index = row + 1;
    }
    put_u32(out + n, primary_index);
    out[n + 4] = 1;
    out_len = n + 5;
}

} // namespace velk
