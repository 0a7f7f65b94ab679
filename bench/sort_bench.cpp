// The forward sort against the plain prefix-tripling sort that is its judge, and against
// libdivsufsort where it is installed.
#include "inputs.h"
#include "sorting/bwt.h"
#include "sorting/rotation_sort.h"

#include <benchmark/benchmark.h>
#include <cstring>
#ifdef VELK_HAS_DIVSUFSORT
#include <divsufsort.h>
#endif

using namespace velk;

namespace {

// The work arrays of one sort, with the block copied into the first buffer.
class SortMemory {
public:
    explicit SortMemory(std::uint32_t n)
        : capacity_(n + 100), pair_(capacity_), index_(capacity_), bits_(capacity_ / 8),
          model_(kSortScratchBytes / 4) {}
    SortArrays arrays() { return {pair_.data(), index_.data(), bits_.data(), model_.data()}; }
    std::uint8_t *block() { return reinterpret_cast<std::uint8_t *>(pair_.data()); }
    std::uint8_t *scratch() { return block() + capacity_; }

private:
    std::uint32_t capacity_;
    std::vector<std::uint32_t> pair_, index_, bits_, model_;
};

void report(benchmark::State &state, const Bytes &bytes) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(bytes.size()));
}

void tripling(benchmark::State &state, const Bytes &bytes) {
    const std::uint32_t n = static_cast<std::uint32_t>(bytes.size());
    SortMemory memory(n);
    for ([[maybe_unused]] auto _ : state) {
        std::memcpy(memory.block(), bytes.data(), n);
        if (!sort_by_tripling(memory.arrays(), memory.block(), n))
            state.SkipWithError("too many steps");
    }
    report(state, bytes);
}

void induction(benchmark::State &state, const Bytes &bytes) {
    const std::uint32_t n = static_cast<std::uint32_t>(bytes.size());
    SortMemory memory(n);
    for ([[maybe_unused]] auto _ : state) {
        std::memcpy(memory.block(), bytes.data(), n);
        if (!sort_by_induction(memory.arrays(), memory.block(), n, memory.scratch()))
            state.SkipWithError("a periodic block");
    }
    report(state, bytes);
}

#ifdef VELK_HAS_DIVSUFSORT
void libdivsufsort(benchmark::State &state, const Bytes &bytes) {
    const std::int32_t n = static_cast<std::int32_t>(bytes.size());
    Bytes sorted(bytes.size());
    std::vector<std::int32_t> work(bytes.size() + 1);
    for ([[maybe_unused]] auto _ : state) {
        divbwt(bytes.data(), sorted.data(), work.data(), n);
    }
    report(state, bytes);
}
#endif

const bool registered = [] {
    for (const std::size_t n : {std::size_t{1} << 21, std::size_t{16776192}}) {
        for (const NamedBytes &named : bench_inputs(n)) {
            const auto add = [&, &input = named.bytes](const char *form, auto run) {
                const std::string title =
                    "sort/" + named.name + "/" + std::to_string(n >> 20) + "M/" + form;
                benchmark::RegisterBenchmark(title.c_str(), [run, &input](benchmark::State &state) {
                    run(state, input);
                })->Unit(benchmark::kMillisecond);
            };
            add("tripling", tripling);
            add("induction", induction);
#ifdef VELK_HAS_DIVSUFSORT
            add("libdivsufsort", libdivsufsort);
#endif
        }
    }
    return true;
}();

} // namespace
