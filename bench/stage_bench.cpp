// Every stage but the forward sort and the coder, alone, forward and inverse, on blocks of
// 2 MiB; the inverse sort next to its plain form, and at 16 MB, too. Bytes a second are
// bytes of the block that a stage is given or restores.
//
// The RLE gets a last column, as in a run, the others the block itself. A stage that
// declines still takes the time to find out; undoing it is free then.
#include "archive/memory.h"
#include "base/byte_order.h"
#include "filters/delta.h"
#include "filters/eol.h"
#include "filters/flt32.h"
#include "filters/lzp.h"
#include "inputs.h"
#include "pipeline/crc32.h"
#include "sorting/bwt.h"
#include "sorting/rle.h"
#include "sorting/st.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <map>
#include <utility>

using namespace velk;

namespace {

constexpr std::uint32_t kBlock = 2 << 20;
constexpr std::uint32_t kLargeBlock = 16000000;

// A run's memory, with the ST or with the BWT.
class Run {
public:
    Run(std::size_t n, bool compressing, bool with_st) : compressing_(compressing) {
        context.settings.st_off = !with_st;
        context.settings.bwt_off = with_st;
        const std::uint32_t size = static_cast<std::uint32_t>(n) + 5; // as for a last column
        if ((compressing ? alloc_compress : alloc_decompress)(context, size) == 0) std::abort();
    }
    ~Run() { (compressing_ ? free_compress : free_decompress)(context); }
    Run(const Run &) = delete;
    Run &operator=(const Run &) = delete;

    void load(const Bytes &block) {
        std::copy(block.begin(), block.end(), context.buf_in);
        context.in_len = static_cast<std::uint32_t>(block.size());
    }

    CoderContext context{};

private:
    bool compressing_;
};

struct Stage {
    const char *name;
    void (*forward)(CoderContext &);
    bool (*inverse)(CoderContext &);
};

constexpr Stage kStages[] = {
    {"EOL", [](CoderContext &c) { eol_encode(c.buf_in, c.in_len, c.buf_out, c.out_len, 0); },
     [](CoderContext &c) {
         return eol_decode(c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity);
     }},
    {"FLT32",
     [](CoderContext &c) {
         flt32_encode(c.buf_in, c.in_len, c.buf_out, c.out_len, c.in_len + 1, 0);
     },
     [](CoderContext &c) {
         return flt32_decode(c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity);
     }},
    {"DELTA", [](CoderContext &c) { delta_encode(c.buf_in, c.in_len, c.buf_out, c.out_len, 0); },
     [](CoderContext &c) {
         return delta_decode(c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity);
     }},
    {"LZP",
     [](CoderContext &c) { lzp_encode(c.work3, c.buf_in, c.in_len, c.buf_out, c.out_len, 0); },
     [](CoderContext &c) {
         return lzp_decode(c.work3, c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity);
     }},
    {"ST",
     [](CoderContext &c) { st_forward(c.work3, c.buf_in, c.in_len, c.buf_out, c.out_len, 0); },
     [](CoderContext &c) {
         return st_inverse(c.work3, c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity);
     }},
};
constexpr Stage kRle = {
    "RLE", [](CoderContext &c) { rle_forward(c.buf_in, c.in_len, c.buf_out, c.out_len, 0); },
    [](CoderContext &c) {
        return rle_inverse(c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity);
    }};

// The output of `bwt_forward`, made once for each block.
const Bytes &sorted(const NamedBytes &input) {
    static std::map<std::pair<std::string, std::size_t>, Bytes> made;
    Bytes &result = made[{input.name, input.bytes.size()}];
    if (!result.empty()) return result;
    Run run(input.bytes.size(), true, false);
    CoderContext &c = run.context;
    run.load(input.bytes);
    bwt_forward(c.work1, c.work2, c.work3, c.work4, c.buf_in, c.in_len, c.buf_out, c.out_len, 0);
    return result = Bytes(c.buf_out, c.buf_out + c.out_len);
}

// Calls a stage on `data` again and again and takes the processor time of the calls, not
// of the loading of the data before. `n`: the block's length.
template<typename Call>
void time_calls(benchmark::State &state, Run &run, const Bytes &data, std::size_t n, Call call) {
    for (auto _ : state) {
        run.load(data);
        const std::clock_t start = std::clock();
        call(run.context);
        state.SetIterationTime(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(n));
}

void forward(benchmark::State &state, const Stage &stage, const Bytes &block) {
    Run run(block.size(), false, true);
    time_calls(state, run, block, block.size(), stage.forward);
}

void inverse(benchmark::State &state, const Stage &stage, const Bytes &block) {
    Run run(block.size(), false, true);
    run.load(block);
    stage.forward(run.context);
    const Bytes coded(run.context.buf_out, run.context.buf_out + run.context.out_len);
    if (run.context.buf_out[run.context.out_len - 1] == 0) return state.SkipWithError("declined");
    time_calls(state, run, coded, block.size(), stage.inverse);
}

void checksum(benchmark::State &state, const Bytes &block) {
    Run run(block.size(), false, true);
    time_calls(state, run, block, block.size(),
               [](CoderContext &c) { benchmark::DoNotOptimize(crc32_block(c.buf_in, c.in_len)); });
}

void inverse_sort(benchmark::State &state, const NamedBytes &input) {
    const std::size_t n = input.bytes.size();
    Run run(n, false, false);
    time_calls(state, run, sorted(input), n, [](CoderContext &c) {
        if (!bwt_inverse(c.work2, c.buf_in, c.in_len, c.buf_out, c.out_len, c.capacity)) {
            std::abort();
        }
    });
}

// The block of a last column of n bytes and its 1-based primary index, by one walk of
// one row a step. rows: n entries. block: room for n + 1 bytes.
void plain_inverse_bwt(const std::uint8_t *last_column, std::uint32_t n,
                       std::uint32_t primary_index, std::uint32_t *rows, std::uint8_t *block) {
    std::uint32_t counts[256] = {}, first[256] = {};
    for (std::uint32_t row = 0; row < n; ++row)
        rows[row] = counts[last_column[row]]++ << 8 | last_column[row];
    for (unsigned v = 1; v < 256; ++v)
        first[v] = first[v - 1] + counts[v - 1];
    std::uint32_t row = primary_index - 1;
    for (std::uint32_t p = n; p > 0; --p) {
        block[p] = static_cast<std::uint8_t>(rows[row]);
        row = (rows[row] >> 8) + first[rows[row] & 255];
    }
    block[0] = block[n]; // the walk begins with the block's first byte
}

void plain_inverse_sort(benchmark::State &state, const NamedBytes &input) {
    const std::size_t n = input.bytes.size();
    Run run(n, true, false);
    time_calls(state, run, sorted(input), n, [](CoderContext &c) {
        const std::uint32_t length = c.in_len - 5;
        plain_inverse_bwt(c.buf_in, length, get_u32(c.buf_in + length), c.work2, c.buf_out);
    });
}

void add(const std::string &name, const NamedBytes &input,
         const std::function<void(benchmark::State &)> &run) {
    benchmark::RegisterBenchmark((name + "/" + input.name).c_str(), run)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

[[maybe_unused]] const bool added = [] {
    for (const NamedBytes &input : bench_inputs(kBlock)) {
        for (const Stage &stage : kStages) {
            const std::string name = stage.name;
            add(name + "/forward", input, [&](auto &state) { forward(state, stage, input.bytes); });
            add(name + "/inverse", input, [&](auto &state) { inverse(state, stage, input.bytes); });
        }
        add("RLE/forward", input, [&](auto &state) { forward(state, kRle, sorted(input)); });
        add("RLE/inverse", input, [&](auto &state) { inverse(state, kRle, sorted(input)); });
        add("checksum", input, [&](auto &state) { checksum(state, input.bytes); });
    }
    for (const std::uint32_t n : {kBlock, kLargeBlock}) {
        const std::string size = n == kBlock ? "/2 MiB" : "/16 MB";
        for (const NamedBytes &input : bench_inputs(n)) {
            add("inverse sort" + size, input, [&](auto &state) { inverse_sort(state, input); });
            add("inverse sort, plain" + size, input,
                [&](auto &state) { plain_inverse_sort(state, input); });
        }
    }
    return true;
}();

} // namespace
