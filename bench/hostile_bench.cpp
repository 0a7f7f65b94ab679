// How long the inverse stages take for the worst blocks that we can think of, against
// blocks that a compressor writes, of the same block size:
//
//   hostile_bench
//
// Honest blocks are prose, and the slowest of all kinds of made-up data, that went
// through the stages between the sort and the one measured. `times` is the worst hostile
// block over the worst honest one; in the last line, all stages at their worst at once,
// which no block can reach, over the whole of a block of prose.
#include "base/byte_order.h"
#include "inputs.h"
#include "worst_inputs.h"

#include <algorithm>
#include <cstdio>

using namespace velk;

namespace {

// Milliseconds of the processor that the inverse takes, the best of some tries.
double time_inverse(const Stage &stage, const Bytes &data, std::uint32_t n) {
    double best = 1e9;
    for (int i = 0; i < 3; ++i) {
        static_cast<void>(stage.inverse(data, n + kForwardSlack));
        best = std::min(best, 1000 * stage_seconds);
    }
    return best;
}

struct HostileBlock {
    const Stage &stage;
    const char *name;
    Bytes bytes;
};

std::vector<HostileBlock> hostile_blocks(std::size_t n) {
    const Bytes noise = random_bytes(n, 256, 1), few = random_bytes(n, 3, 2);
    const Bytes half(noise.begin(), noise.begin() + static_cast<std::ptrdiff_t>(n / 2));
    // Lines of 18 columns: in the last one 16 others are searched, and often a line break
    // makes room among them.
    const Bytes lines = periodic("aaaaaaaaaaaaaaaaa\r", 360), eol_end = {'~', 2};
    const Bytes flt32_end = {0, 0, 1, 0, 0, 0, 0, 128, 1}, bwt_end = {1, 0, 0, 0, 1};
    Bytes sorted = noise;
    std::sort(sorted.begin(), sorted.end());
    Bytes rotated = sorted;
    std::rotate(rotated.begin(), rotated.begin() + 1, rotated.end());
    const Bytes bits(n / 2, 1), heads = periodic("aaabbb", n / 2 - 100);
    Bytes rle_end = {0, 0, 0, 0, 1};
    put_u32(rle_end.data(), static_cast<std::uint32_t>(heads.size()));
    // As much noise as still gets coded shorter than it is.
    const Bytes skewed = join({random_bytes(n / 2, 200, 5), rounds(n / 2, 256, 4)});
    return {
        {kEol, "spaces and letters", join({lines, mix(n / 2, "a ", 1), eol_end})},
        {kEol, "a space in 8", join({lines, mix(n / 2, "abcdefg ", 1), eol_end})},
        {kEol, "a space in 16", join({lines, mix(n / 2, "abcdefghijklmno ", 1), eol_end})},
        {kEol, "letters only", join({lines, mix(n / 2, "ab", 1), eol_end})},
        {kEol, "escapes", join({lines, mix(n / 2, "a ~~\r", 1), eol_end})},
        {kFlt32, "calls", join({mix(n - 9, "\xE8zzzzyxw", 1), flt32_end})},
        {kFlt32, "noise", join({noise, flt32_end})},
        {kDelta, "2", join({noise, {1}})},
        {kDelta, "3", join({noise, {2}})},
        {kDelta, "4", join({noise, {3}})},
        {kLzp, "noise", join({half, half, {'E', 1}})},
        {kLzp, "noise of few values", join({few, {1, 1}})},
        {kLzp, "escapes", join({mix(n, "E\x01\x02\x03z", 1), {'E', 1}})},
        {kLzp, "short matches", join({mix(64, "abc", 1), periodic("E\x02", n / 64), {'E', 1}})},
        {kLzp, "every literal an escape", join({Bytes(n, 'E'), {'E', 1}})},
        {kBwt, "noise", join({noise, bwt_end})},
        {kBwt, "noise of few values", join({few, bwt_end})},
        {kBwt, "sorted", join({sorted, bwt_end})},
        {kBwt, "sorted and rotated", join({rotated, bwt_end})},
        {kBwt, "rounds", join({rounds(n, 256, 0), bwt_end})},
        {kBwt, "equal bytes", join({Bytes(n, 'a'), bwt_end})},
        {kSt, "noise", kSt.forward(noise)},
        {kSt, "rounds", kSt.forward(rounds(n, 256, 20))},
        {kSt, "noise as a column", join({noise, {0, 0, 0, 1}})},
        {kRle, "noise", kRle.forward(noise)},
        {kRle, "shortest runs", join({heads, bits, rle_end})},
        {kRle, "runs", kRle.forward(runs(n, 1))},
        {kRle, "noise of few values", kRle.forward(few)},
        {kDce, "rounds of all byte values", kDce.forward(rounds(n, 256, 0))},
        {kDce, "rounds with 8 exchanges", kDce.forward(rounds(n, 256, 8))},
        {kDce, "rounds with 40 exchanges", kDce.forward(rounds(n, 256, 40))},
        {kDce, "noise of 200 values", kDce.forward(random_bytes(n, 200, 5))},
        {kDce, "noise of 100 values", kDce.forward(random_bytes(n, 100, 5))},
        {kDce, "noise of 16 values", kDce.forward(random_bytes(n, 16, 5))},
        {kDce, "noise and rounds", kDce.forward(skewed)},
    };
}

struct Worst {
    double ms = 0;
    std::string name;
    void take(double block_ms, const std::string &block_name) {
        if (block_ms > ms) *this = {block_ms, block_name};
    }
};

void compare(std::uint32_t n) {
    const Bytes text = prose(n, 72, "\r\n", 8);
    const auto kinds = all_kinds(n);
    const auto blocks = hostile_blocks(n);
    std::printf("Block size %u, ms:\n%-8s%8s%14s%15s%9s\n", n, "", "prose", "worst honest",
                "worst hostile", "times");
    double prose_sum = 0, hostile_sum = 0;
    for (const Stage *stage : kStages) {
        const auto coded_ms = [&](const Bytes &block) {
            return time_inverse(*stage, stage->forward(stage_input(*stage, block)), n);
        };
        const double prose_ms = coded_ms(text);
        Worst honest, hostile;
        honest.take(coded_ms(random_bytes(n, 200, 6)), "random");
        for (const auto &kind : kinds)
            honest.take(coded_ms(kind.bytes), kind.name);
        for (const auto &block : blocks)
            if (&block.stage == stage)
                hostile.take(time_inverse(*stage, block.bytes, n), block.name);
        std::printf("%-8s%8.2f%14.2f%15.2f%9.1f   %s against %s\n", stage->name.c_str(), prose_ms,
                    honest.ms, hostile.ms, hostile.ms / honest.ms, hostile.name.c_str(),
                    honest.name.c_str());
        if (stage == &kSt) continue; // never on with the BWT
        prose_sum += prose_ms;
        hostile_sum += hostile.ms;
    }
    std::printf("block   %8.2f%29.2f%9.1f\n", prose_sum, hostile_sum, hostile_sum / prose_sum);
}

} // namespace

int main() {
    for (const std::uint32_t n : {131072u, 2097152u})
        compare(n);
}
