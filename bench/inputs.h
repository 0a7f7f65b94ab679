// The blocks that the benchmarks run on.
#pragma once

#include "data.h"

// The files of the folder that the environment variable VELK_BENCH_FILES names, each
// cut to `n` bytes (shorter ones are left out); without it made-up data of `n` bytes:
// prose-like, executable-like, records, repetitive. Made once for each `n`.
const std::vector<NamedBytes> &bench_inputs(std::size_t n);
