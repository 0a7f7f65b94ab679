// How long the inverse stages take for the worst blocks that we can think of, against
// blocks that a compressor writes, of the same block size:
//
//   hostile_bench
//
// Honest blocks are prose, and the slowest of all kinds of made-up data, that went
// through the stages between the sort and the one measured. `times` is the worst hostile
// block over the worst honest one; in the last line, all stages at their worst at once,
// which no block can reach, over the whole of a block of prose.
#include "archive/memory.h"
#include "dce/dce.h"
#include "filters/delta.h"
#include "filters/eol.h"
#include "filters/flt32.h"
#include "filters/lzp.h"
#include "sorting/bwt.h"
#include "sorting/rle.h"
#include "sorting/st.h"
#include "stage_call.h"
#include "worst_inputs.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

using namespace velk;

namespace {

enum StageIndex { EOL, FLT32, DELTA, LZP, BWT, ST, RLE, DCE }; // as in kStages

// The memory of a decompression run with the BWT on, or the ST.
class Run {
public:
    Run(std::uint32_t block_size, bool with_st) {
        context_.settings.bwt_off = with_st;
        context_.settings.st_off = !with_st;
        if (alloc_decompress(context_, block_size) == 0) std::abort();
    }
    ~Run() { free_decompress(context_); }

    // Milliseconds of the processor that the inverse takes, the best of some tries.
    double time(StageIndex stage, const Bytes &data) {
        double best = 1e9;
        for (int i = 0; i < 3; ++i) {
            std::copy(data.begin(), data.end(), context_.buf_in);
            const std::clock_t start = std::clock();
            call(stage, static_cast<std::uint32_t>(data.size()));
            const double ticks = static_cast<double>(std::clock() - start);
            best = std::min(best, 1000 * ticks / CLOCKS_PER_SEC);
        }
        return best;
    }

private:
    // An inverse that takes a work array, of whatever type of entries.
    template<typename Entry, typename... Rest>
    bool with(std::uint32_t *array, std::uint32_t n, bool (*inverse)(Entry *, Rest...)) {
        CoderContext &c = context_;
        return inverse(reinterpret_cast<Entry *>(array), c.buf_in, n, c.buf_out, c.out_len,
                       c.capacity);
    }

    bool call(StageIndex stage, std::uint32_t n) {
        CoderContext &c = context_;
        const auto plain = [&](auto inverse) {
            return inverse(c.buf_in, n, c.buf_out, c.out_len, c.capacity);
        };
        switch (stage) {
        case EOL:
            return plain(eol_decode);
        case FLT32:
            return plain(flt32_decode);
        case DELTA:
            return plain(delta_decode);
        case LZP:
            return with(c.work2, n, lzp_decode);
        case BWT:
            return with(c.work2, n, bwt_inverse);
        case ST:
            return with(c.work3, n, st_inverse);
        case RLE:
            return plain(rle_inverse);
        case DCE:
            return with(c.work3, n, dce_decode);
        }
        return false;
    }

    CoderContext context_{};
};

// What the stage's inverse gets when a compressor with the BWT on has coded the block.
Bytes honest(StageIndex stage, const Bytes &block) {
    if (stage == RLE) return kRle.forward(kBwt.forward(block));
    if (stage == DCE) return kDce.forward(kRle.forward(kBwt.forward(block)));
    return kStages[stage]->forward(block);
}

// Every byte, and byte pair, as the letters' weights say.
Bytes mix(std::size_t n, const std::string &letters, std::uint64_t seed) {
    Random random(seed);
    Bytes bytes(n);
    for (auto &b : bytes)
        b = static_cast<std::uint8_t>(letters[random.below(static_cast<unsigned>(letters.size()))]);
    return bytes;
}

std::vector<NamedBytes> hostile(StageIndex stage, std::size_t n) {
    const Bytes noise = random_bytes(n, 256, 1), few = random_bytes(n, 3, 2);
    const Bytes half(noise.begin(), noise.begin() + static_cast<std::ptrdiff_t>(n / 2));
    switch (stage) {
    case EOL: {
        // Lines of 18 columns: in the last one 16 others are searched, and often a line
        // break makes room among them.
        const Bytes lines = periodic("aaaaaaaaaaaaaaaaa\r", 360), end = {'~', 2};
        return {{"spaces and letters", join({lines, mix(n / 2, "a ", 1), end})},
                {"a space in 8", join({lines, mix(n / 2, "abcdefg ", 1), end})},
                {"a space in 16", join({lines, mix(n / 2, "abcdefghijklmno ", 1), end})},
                {"letters only", join({lines, mix(n / 2, "ab", 1), end})},
                {"escapes", join({lines, mix(n / 2, "a ~~\r", 1), end})}};
    }
    case FLT32: {
        const Bytes end = {0, 0, 1, 0, 0, 0, 0, 128, 1};
        return {{"calls", join({mix(n - 9, "\xE8zzzzyxw", 1), end})},
                {"noise", join({noise, end})}};
    }
    case DELTA:
        return {{"2", join({noise, {1}})}, {"3", join({noise, {2}})}, {"4", join({noise, {3}})}};
    case LZP:
        return {{"noise", join({half, half, {'E', 1}})},
                {"noise of few values", join({few, {1, 1}})},
                {"escapes", join({mix(n, "E\x01\x02\x03z", 1), {'E', 1}})},
                {"short matches",
                 join({mix(64, "abc", 1), periodic(std::string("E\x02", 2), n / 64), {'E', 1}})},
                {"every literal an escape", join({Bytes(n, 'E'), {'E', 1}})}};
    case BWT: {
        Bytes sorted = noise;
        std::sort(sorted.begin(), sorted.end());
        Bytes rotated = sorted;
        std::rotate(rotated.begin(), rotated.begin() + 1, rotated.end());
        const Bytes end = {1, 0, 0, 0, 1};
        return {{"noise", join({noise, end})},
                {"noise of few values", join({few, end})},
                {"sorted", join({sorted, end})},
                {"sorted and rotated", join({rotated, end})},
                {"rounds", join({rounds(n, 256, 0), end})},
                {"equal bytes", join({Bytes(n, 'a'), end})}};
    }
    case ST:
        return {{"noise", kSt.forward(noise)},
                {"rounds", kSt.forward(rounds(n, 256, 20))},
                {"noise as a column", join({noise, {0, 0, 0, 1}})}};
    case RLE: {
        Bytes bits(n / 2, 1), heads = periodic("aaabbb", n / 2 - 100);
        Bytes end = {0, 0, 0, 0, 1};
        for (unsigned i = 0; i < 4; ++i)
            end[i] = static_cast<std::uint8_t>(heads.size() >> 8 * i);
        return {{"noise", kRle.forward(noise)},
                {"shortest runs", join({heads, bits, end})},
                {"runs", kRle.forward(runs(n, 1))},
                {"noise of few values", kRle.forward(few)}};
    }
    case DCE: {
        // As much of it as still gets coded shorter than it is.
        const Bytes skewed = join({random_bytes(n / 2, 200, 5), rounds(n / 2, 256, 4)});
        return {{"rounds of all byte values", kDce.forward(rounds(n, 256, 0))},
                {"rounds with 8 exchanges", kDce.forward(rounds(n, 256, 8))},
                {"rounds with 40 exchanges", kDce.forward(rounds(n, 256, 40))},
                {"noise of 200 values", kDce.forward(random_bytes(n, 200, 5))},
                {"noise of 100 values", kDce.forward(random_bytes(n, 100, 5))},
                {"noise of 16 values", kDce.forward(random_bytes(n, 16, 5))},
                {"noise and rounds", kDce.forward(skewed)}};
    }
    }
    return {};
}

void compare(std::uint32_t n) {
    Run with_bwt(n, false), with_st(n, true);
    const Bytes text = prose(n, 72, "\r\n", 8);
    const auto kinds = all_kinds(n);
    std::printf("Block size %u, ms:\n%-8s%8s%14s%15s%9s\n", n, "", "prose", "worst honest",
                "worst hostile", "times");
    double prose_sum = 0, hostile_sum = 0;
    for (const StageIndex stage : {EOL, FLT32, DELTA, LZP, BWT, ST, RLE, DCE}) {
        Run &run = stage == ST ? with_st : with_bwt;
        const auto worst = [&](const std::vector<NamedBytes> &blocks, std::string &name) {
            double ms = 0;
            for (const auto &block : blocks) {
                const double t = run.time(stage, block.bytes);
                if (t > ms) ms = t, name = block.name;
            }
            return ms;
        };
        std::vector<NamedBytes> coded = {{"random", honest(stage, random_bytes(n, 200, 6))}};
        for (const auto &kind : kinds)
            coded.push_back({kind.name, honest(stage, kind.bytes)});
        std::string honest_name, hostile_name;
        const double prose_ms = run.time(stage, honest(stage, text));
        const double honest_ms = worst(coded, honest_name);
        const double hostile_ms = worst(hostile(stage, n), hostile_name);
        std::printf("%-8s%8.2f%14.2f%15.2f%9.1f   %s against %s\n", kStages[stage]->name.c_str(),
                    prose_ms, honest_ms, hostile_ms, hostile_ms / honest_ms, hostile_name.c_str(),
                    honest_name.c_str());
        if (stage == ST) continue; // never on with the BWT
        prose_sum += prose_ms;
        hostile_sum += hostile_ms;
    }
    std::printf("block   %8.2f%29.2f%9.1f\n", prose_sum, hostile_sum, hostile_sum / prose_sum);
}

} // namespace

int main() {
    for (const std::uint32_t n : {131072u, 2097152u})
        compare(n);
}
