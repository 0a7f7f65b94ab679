// What threads bring, and what the library itself costs: up to 64 MB compressed and restored
// in memory, by the block chain alone and by libvelk, one thread to as many as there are
// processors. By the clock; the processor time shows what stands in the way of the threads.
// What is restored is compared, within the time. --benchmark_repetitions=5 tells medians, too.
#include "archive_call.h"
#include "inputs.h"
#include "velk.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <thread>

namespace {

constexpr std::size_t kMostBytes = 64000000;
constexpr std::uint32_t kBlock = 2 << 20;

template<typename Code>
void measure(benchmark::State &state, const Bytes &whole, Code code) {
    for ([[maybe_unused]] auto _ : state)
        if (!code()) return state.SkipWithError("failed");
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(whole.size()));
}

void chain_alone(benchmark::State &state, bool restoring, const Bytes &whole) {
    Chain chain(0x20, false, static_cast<std::uint32_t>(whole.size() + 1), kBlock);
    std::vector<Bytes> blocks, records;
    for (auto at = whole.begin(); at != whole.end();) {
        const auto end = at + std::min<std::ptrdiff_t>(kBlock, whole.end() - at);
        blocks.emplace_back(at, end);
        at = end;
        records.push_back(chain.compress(blocks.back()));
    }
    measure(state, whole, [&] {
        bool good = true;
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            if (restoring)
                good = chain.decompress(records[i]) == blocks[i] && good;
            else
                records[i] = chain.compress(blocks[i]);
        }
        return good;
    });
}

void library(benchmark::State &state, std::uint32_t threads, bool restoring, const Bytes &whole) {
    velk_options options;
    velk_options_init(&options);
    options.threads = threads;
    Bytes archive(velk_compress_bound(whole.size(), &options)), restored(whole.size());
    std::size_t archive_size = 0, size = 0;
    const auto compress = [&] {
        return velk_compress(&options, whole.data(), whole.size(), archive.data(), archive.size(),
                             &archive_size) == VELK_OK;
    };
    const auto restore = [&] {
        return velk_decompress(&options, archive.data(), archive_size, restored.data(),
                               restored.size(), &size, nullptr) == VELK_OK &&
               restored == whole;
    };
    if (restoring && !compress()) return state.SkipWithError("failed");
    measure(state, whole, [&] { return restoring ? restore() : compress(); });
}

[[maybe_unused]] const bool added = [] {
    for (const BenchInput &input : bench_inputs(kMostBytes, 1)) {
        for (const bool restoring : {false, true}) {
            for (unsigned threads = 0; threads <= std::max(2u, std::thread::hardware_concurrency());
                 ++threads) {
                const std::string who =
                    threads == 0 ? "chain alone" : "threads: " + std::to_string(threads);
                benchmark::RegisterBenchmark(
                    (input.name + (restoring ? "/restoring/" : "/compression/") + who).c_str(),
                    [=](benchmark::State &state) {
                        if (threads == 0)
                            chain_alone(state, restoring, input.make());
                        else
                            library(state, threads, restoring, input.make());
                    })
                    ->UseRealTime()
                    ->MeasureProcessCPUTime()
                    ->Unit(benchmark::kMillisecond);
            }
        }
    }
    return true;
}();

} // namespace
