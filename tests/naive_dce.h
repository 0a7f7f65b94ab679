// The DCE stage written a second time, to be read and not to be fast: values from
// their definition, a range coder on one long number, bits as a list of bits.
#pragma once

#include "data.h"

struct NaiveDce {
    std::vector<std::uint32_t> values; // the header list, then a value a run
    Bytes coded;                       // a coded block, whether or not it is worth it
};

NaiveDce code_naively(const Bytes &block);
