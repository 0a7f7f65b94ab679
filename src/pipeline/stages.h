// The stages as a table: their code is compiled for any machine of its kind and, where that
// pays (src/CMakeLists.txt), once more for processors with AVX2, BMI1 and BMI2, as namespace
// velk_v3 in place of velk. All that the second copy defines is in that namespace, so that no
// function of it is linked in for one of the others; the table is the only way to it. The type
// is the same in both, and so it is in neither namespace.
#pragma once

#include <cstdint>

namespace velk_stages {

using std::uint32_t;
using std::uint8_t;

// pipeline/stage.h explains the parameters, the stage's header the work arrays.
template<typename... Arrays>
using Forward = void(Arrays..., uint8_t *&in, uint32_t n, uint8_t *&out, uint32_t &out_len,
                     uint8_t off);
template<typename... Arrays>
using Inverse = bool(Arrays..., uint8_t *&in, uint32_t len, uint8_t *&out, uint32_t &out_len,
                     uint32_t capacity);
using Words = uint32_t *;

struct Stages {
    Forward<> *eol_encode;
    void (*flt32_encode)(uint8_t *&in, uint32_t n, uint8_t *&out, uint32_t &out_len,
                         uint32_t file_size, uint8_t off);
    Forward<> *delta_encode;
    Forward<Words> *lzp_encode;
    Forward<Words, Words, Words, Words> *bwt_forward;
    Forward<Words> *st_forward;
    Forward<> *rle_forward;
    Forward<Words, Words> *dce_encode;

    Inverse<> *eol_decode, *flt32_decode, *delta_decode;
    Inverse<Words> *lzp_decode, *bwt_inverse, *st_inverse;
    Inverse<> *rle_inverse;
    Inverse<Words> *dce_decode;
};

extern const Stages kBaseline;
#ifdef VELK_HAS_V3
extern const Stages kV3;
#endif

} // namespace velk_stages
