// The DCE stage, and its plain form, on blocks as they reach it: sorted, their runs
// shortened. A row a direction, form and block; MB/s of the stage's input, and the
// nanoseconds that a value takes.
#include "base/byte_order.h"
#include "dce/dce.h"
#include "dce/frequency_models.h"
#include "inputs.h"
#include "stage_call.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <map>

using namespace velk;

namespace {

using Words = std::vector<std::uint32_t>;

constexpr std::size_t kBlockBytes = 2 << 20;
constexpr std::uint32_t kSlack = 100;

// A block, its coded form, and what a call needs. The stage may exchange the buffers.
struct Work {
    explicit Work(const Bytes &file)
        : block(kRle.forward(kBwt.forward(file))), coded(kDce.forward(block)), runs(block.size()),
          models(kModelAreaBytes / 4), first(block.size() + kSlack), second(block.size() + kSlack) {
    }

    Bytes block, coded;
    Words runs, models;
    Bytes first, second;
};

template<typename Call>
void measure(benchmark::State &state, Work &work, const Bytes &input, Call call) {
    for (auto _ : state) {
        std::copy(input.begin(), input.end(), work.first.begin());
        std::uint8_t *in = work.first.data(), *out = work.second.data();
        std::uint32_t out_len = 0;
        call(in, static_cast<std::uint32_t>(input.size()), out, out_len);
        benchmark::DoNotOptimize(out_len);
    }
    const double calls = static_cast<double>(state.iterations());
    state.SetBytesProcessed(static_cast<std::int64_t>(work.block.size()) *
                            static_cast<std::int64_t>(state.iterations()));
    if (work.coded.back() != 0) {
        const double values = get_u32(work.coded.data() + work.coded.size() - 5);
        state.counters["s_per_value"] = benchmark::Counter(
            calls * values, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    }
}

void encode(benchmark::State &state, Work &work) {
    measure(state, work, work.block, [&](auto &in, auto n, auto &out, auto &out_len) {
        dce_encode(work.runs.data(), work.models.data(), in, n, out, out_len, 0);
    });
}

void decode(benchmark::State &state, Work &work) {
    const std::uint32_t capacity = static_cast<std::uint32_t>(work.first.size());
    measure(state, work, work.coded, [&](auto &in, auto n, auto &out, auto &out_len) {
        if (!dce_decode(work.models.data(), in, n, out, out_len, capacity))
            state.SkipWithError("refused");
    });
}

// Sorted when first asked for: a filter spares the sort of the others.
Work &work_of(const NamedBytes &input) {
    static std::map<std::string, Work> works;
    const auto found = works.find(input.name);
    return found != works.end() ? found->second
                                : works.try_emplace(input.name, input.bytes).first->second;
}

const bool registered = [] {
    for (const NamedBytes &input : bench_inputs(kBlockBytes)) {
        const auto add = [&](const std::string &name, void (*run)(benchmark::State &, Work &)) {
            benchmark::RegisterBenchmark(
                ("coder/" + name + "/" + input.name).c_str(),
                [run, &input](benchmark::State &state) { run(state, work_of(input)); })
                ->Unit(benchmark::kMillisecond);
        };
        add("encode", encode);
        add("decode", decode);
    }
    return true;
}();

} // namespace
