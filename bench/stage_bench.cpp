// Every stage, forward and inverse, on blocks as they reach it; the sort alone, against the
// plain sort and, where it is installed, libdivsufsort; the checksum. Bytes a second are those
// of the block that the chain was given.
//
// Times are processor time of the calls alone, without the copying before and behind. A run
// has its arrays on large pages: GLIBC_TUNABLES=glibc.malloc.hugetlb=1 gives them here, too.
// A stage that declines still takes the time to find out; undoing it is free then.
#include "base/block_size.h"
#include "base/byte_order.h"
#include "inputs.h"
#include "pipeline/crc32.h"
#include "sorting/bwt.h"
#include "sorting/rotation_sort.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#ifdef VELK_HAS_DIVSUFSORT
#include <divsufsort.h>
#endif

using namespace velk;

namespace {

constexpr std::uint32_t kBlock = 2 << 20;

std::uint32_t length_of(const Bytes &bytes) {
    return static_cast<std::uint32_t>(bytes.size());
}

// once: makes a call and returns its seconds; below 0 on failure.
template<typename Once>
void measure(benchmark::State &state, std::size_t n, Once once) {
    for ([[maybe_unused]] auto _ : state) {
        const double time = once();
        if (time < 0) return state.SkipWithError("refused");
        state.SetIterationTime(time);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(n));
}

void measure_stage(benchmark::State &state, const Stage &stage, bool inverse, const Bytes &block) {
    const Bytes input = stage_input(stage, block), coded = stage.forward(input);
    if (inverse && coded.back() == 0) return state.SkipWithError("declined");
    measure(state, block.size(), [&] {
        if (!inverse) return stage.forward(input), stage_seconds;
        return stage.inverse(coded, length_of(block) + kForwardSlack) ? stage_seconds : -1;
    });
    if (&stage != &kDce) return;
    const double values = get_u32(&coded[coded.size() - 5]);
    state.counters["s_per_value"] = benchmark::Counter(
        values, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

struct Sort {
    const char *name;
    bool (*sort)(const SortArrays &, std::uint8_t *block, std::uint32_t n, std::uint8_t *scratch);
};

constexpr Sort kSorts[] = {
    {"plain",
     [](auto &arrays, auto *block, auto n, auto *) { return sort_by_tripling(arrays, block, n); }},
    {"induction", [](auto &arrays, auto *block, auto n,
                     auto *scratch) { return sort_by_induction(arrays, block, n, scratch); }},
#ifdef VELK_HAS_DIVSUFSORT
    {"libdivsufsort",
     [](auto &arrays, auto *block, auto n, auto *sorted) {
         auto *const work = reinterpret_cast<std::int32_t *>(arrays.index_array);
         return divbwt(block, sorted, work, static_cast<std::int32_t>(n)) > 0;
     }},
#endif
};

void measure_sort(benchmark::State &state, const Sort &sort, const Bytes &input) {
    const std::uint32_t n = length_of(input), capacity = n + kBwtRoom;
    std::vector<std::uint32_t> pair(capacity), index(capacity), bits(n / 8 + kBwtMoreBitWords),
        model(kSortScratchBytes / 4);
    std::uint8_t *const block = reinterpret_cast<std::uint8_t *>(pair.data());
    measure(state, n, [&] {
        std::copy(input.begin(), input.end(), block);
        bool sorted = false;
        const double time = seconds([&] {
            sorted = sort.sort({pair.data(), index.data(), bits.data(), model.data()}, block, n,
                               block + capacity);
        });
        return sorted ? time : -1;
    });
}

void measure_checksum(benchmark::State &state, const Bytes &block) {
    measure(state, block.size(), [&] {
        return seconds(
            [&] { benchmark::DoNotOptimize(crc32_block(block.data(), length_of(block))); });
    });
}

template<typename Measure>
void add(const std::string &name, const BenchInput &input, Measure measure) {
    benchmark::RegisterBenchmark(
        (name + "/" + input.name).c_str(),
        [=, make = input.make](benchmark::State &state) { measure(state, make()); })
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

void add_all() {
    for (const std::uint32_t n : {kBlock, kMaxBlockSize}) {
        const std::string size = std::to_string(n / 1000000) + " MB";
        for (const BenchInput &input : bench_inputs(n, n)) {
            for (const Stage *stage : kStages) {
                if (n != kBlock && stage != &kBwt) continue;
                for (const bool inverse : {false, true}) {
                    add(stage->name + (inverse ? "/inverse/" : "/forward/") + size, input,
                        [=](auto &state, const Bytes &block) {
                            measure_stage(state, *stage, inverse, block);
                        });
                }
            }
            for (const Sort &sort : kSorts) {
                add("sort, " + (sort.name + ("/" + size)), input,
                    [&](auto &state, const Bytes &block) { measure_sort(state, sort, block); });
            }
            if (n == kBlock) add("checksum/" + size, input, measure_checksum);
        }
    }
}

} // namespace

int main(int argc, char **argv) {
    add_all();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
