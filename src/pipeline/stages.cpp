// Compiled for each copy, as the stages are; VELK_TABLE is the name of the copy's table.
#include "pipeline/stages.h"

#include "dce/dce.h"
#include "filters/delta.h"
#include "filters/eol.h"
#include "filters/flt32.h"
#include "filters/lzp.h"
#include "sorting/bwt.h"
#include "sorting/rle.h"
#include "sorting/st.h"

constinit const velk_stages::Stages velk_stages::VELK_TABLE = {
    velk::eol_encode,  velk::flt32_encode, velk::delta_encode, velk::lzp_encode,
    velk::bwt_forward, velk::st_forward,   velk::rle_forward,  velk::dce_encode,
    velk::eol_decode,  velk::flt32_decode, velk::delta_decode, velk::lzp_decode,
    velk::bwt_inverse, velk::st_inverse,   velk::rle_inverse,  velk::dce_decode};
