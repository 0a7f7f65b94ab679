#include "filters/flt32.h"

#include "pipeline/stage.h"

void flt32_encode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                  std::uint32_t /*file_size*/, std::uint8_t /*off*/) {
    pass_on(in, n, out, out_len);
}

bool flt32_decode(std::uint8_t *&in, std::uint32_t n, std::uint8_t *&out, std::uint32_t &out_len,
                  std::uint32_t /*capacity*/) {
    if (n == 0 || in[n - 1] != 0) return false;
    drop_trailer(in, n, out, out_len);
    return true;
}
