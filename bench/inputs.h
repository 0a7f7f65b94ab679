// What the benchmarks run on, and their clock.
#pragma once

#include "stage_call.h"

#include <ctime>

struct BenchInput {
    std::string name;
    std::function<Bytes()> make;
};

// The files of the folder that the environment variable VELK_BENCH_FILES names, each cut to
// `n` bytes; those below `least` are left out. Without it made-up data of `n` bytes:
// prose-like, executable-like, records, repetitive.
std::vector<BenchInput> bench_inputs(std::size_t n, std::size_t least);

// The block as it reaches the stage: that of the RLE and the DCE has been sorted.
Bytes stage_input(const Stage &stage, const Bytes &block);

// Seconds of the processor that the call takes.
template<typename Call>
double seconds(Call call) {
    const std::clock_t start = std::clock();
    call();
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}
