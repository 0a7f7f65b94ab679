// Trains the built-in count table (docs/count-table.md):
//
//   train_counts OUTPUT TRAIN VALIDATE [flat|frequencies|strength|shape] [SHARE]
//
// Runs the files of both folders through the chain up to the coder, finds the table
// that codes those of TRAIN best, step by step up to the one named, prints what each
// step is worth on both, and writes the table to OUTPUT (src/dce/builtin_counts.inc).
#include "archive/memory.h"
#include "pipeline/block.h"
#include "row_fitting.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>

using namespace velk;

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kDefaultBlock = 2048 * 1024;
// The total of all rows in the step `frequencies`.
constexpr double kFrequencyTotal = 4096;
// How much of a block's weight comes from its file's bits per byte (all files alike);
// the rest comes from its bytes (all bytes alike).
constexpr double kSmallFileShare = 0.2;

// A way to compress a file, and what it counts beside the default.
struct Variation {
    std::uint32_t max_block_size;
    std::uint8_t st_off, rle_off;
    double share;
};

constexpr Variation kDefault{kDefaultBlock, 1, 0, 1};
constexpr Variation kLargeBlock{kMaxBlockSize, 1, 0, 0.25};
// One of these for each file.
constexpr Variation kOthers[] = {
    {kDefaultBlock, 0, 0, 0.25}, {kDefaultBlock, 1, 1, 0.25}, {kDefaultBlock, 0, 1, 0.25}};

// The blocks of a folder.
struct BlockSet {
    EventLog log;
    std::vector<double> file_bytes; // for each block, that of its file
    std::vector<double> share;      // for each block, that of its variation
    std::vector<CodedBits> bits;    // for each block, with the table that was given
};

std::vector<char> read_file(const fs::path &path) {
    std::vector<char> bytes(static_cast<std::size_t>(fs::file_size(path)));
    std::ifstream(path, std::ios::binary)
        .read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

// Adds the blocks of a file, compressed in one way, but for those that the coder would
// not shorten.
void add_file(BlockSet &set, const Table &table, const std::vector<char> &file,
              const Variation &variation) {
    CoderContext c{};
    c.settings.bwt_off = 1 - variation.st_off;
    c.settings.st_off = variation.st_off;
    c.settings.rle_off = variation.rle_off;
    c.settings.dce_off = 1;
    c.settings.no_fallback = 1;
    c.file_size = static_cast<std::uint32_t>(file.size() + 1);
    const std::size_t block_size =
        std::clamp<std::size_t>(file.size(), kMinBlockSize, variation.max_block_size);
    if (alloc_compress(c, static_cast<std::uint32_t>(block_size)) == 0) std::abort();
    for (std::size_t p = 0; p < file.size(); p += block_size) {
        c.in_len = static_cast<std::uint32_t>(std::min(block_size, file.size() - p));
        std::memcpy(c.buf_in, file.data() + p, c.in_len);
        if (!compress_block(c)) std::abort();
        const std::uint32_t n = c.out_len - 5; // without the DCE trailer and the CRC
        const CodedBits bits = coded_bits(table, c.buf_out, n);
        if (bits.all() > 8.0 * n) continue;
        add_block(set.log, c.buf_out, n, 0);
        set.file_bytes.push_back(static_cast<double>(file.size()));
        set.share.push_back(variation.share);
        set.bits.push_back(bits);
    }
    free_compress(c);
}

BlockSet read_folder(const char *folder, const Table &table, bool all_variations) {
    std::vector<fs::path> paths;
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() && entry.file_size() > 0 && entry.file_size() <= kMaxBlockSize)
            paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    BlockSet set;
    std::size_t number = 0;
    for (const fs::path &path : paths) {
        const std::vector<char> file = read_file(path);
        add_file(set, table, file, kDefault);
        if (!all_variations) continue;
        add_file(set, table, file, kOthers[number++ % std::size(kOthers)]);
        if (file.size() > kDefaultBlock) add_file(set, table, file, kLargeBlock);
    }
    return set;
}

// Sets the weights so that all bits with the start table come to 1.
void weigh(BlockSet &set, double small_file_share) {
    double files = 0, bytes = 0;
    for (std::size_t i = 0; i < set.bits.size(); ++i) {
        files += set.share[i] * set.bits[i].all() / set.file_bytes[i];
        bytes += set.share[i] * set.bits[i].all();
    }
    for (std::size_t i = 0; i < set.bits.size(); ++i) {
        set.log.weight[i] = set.share[i] * (small_file_share / set.file_bytes[i] / files +
                                            (1 - small_file_share) / bytes);
    }
}

// What a table saves against the start table, in percent.
double gain(const BlockSet &set, const Table &table) {
    static const Table start = start_table();
    double saved = 0;
    for (std::uint32_t c = 0; c < kContexts; ++c) {
        if (table[c] == start[c]) continue;
        saved += coded_bits(set.log, c, start[c], SIZE_MAX);
        saved -= coded_bits(set.log, c, table[c], SIZE_MAX);
    }
    return 100 * saved;
}

void report(const char *name, BlockSet *sets, const Table &table, double small_file_share) {
    std::printf("%-12s", name);
    for (BlockSet *set : {&sets[0], &sets[1]}) {
        for (const double share : {1.0, 0.0}) {
            weigh(*set, share);
            std::printf(" %12.3f", gain(*set, table));
        }
    }
    std::printf("\n");
    std::fflush(stdout);
    weigh(sets[0], small_file_share);
}

// Prints what the coded blocks of the validation files consist of.
void report_parts(const BlockSet &set) {
    double bytes[5] = {}, files[5] = {};
    for (std::size_t i = 0; i < set.bits.size(); ++i) {
        const CodedBits &b = set.bits[i];
        const double parts[] = {b.distances, b.two_bits, b.raw, b.header, b.all()};
        for (std::size_t k = 0; k < std::size(parts); ++k) {
            bytes[k] += parts[k] / 8;
            files[k] += parts[k] / set.file_bytes[i];
        }
    }
    const char *const names[] = {"distance symbols", "two-bit symbols", "raw bits", "header list"};
    std::printf("\n%-25s %12s %12s\n", "part of the coded bytes", "all bytes", "files' mean");
    for (std::size_t k = 0; k < std::size(names); ++k) {
        std::printf("%-25s %10.1f %% %10.1f %%\n", names[k], 100 * bytes[k] / bytes[4],
                    100 * files[k] / files[4]);
    }
}

void write_table(const char *path, const Table &table) {
    std::ofstream out(path);
    out << "// One context a line, from 0 to 149: its total, then the counts of symbols 0 to 31,\n"
           "// each number 1 below the counter that it starts. Written by tools/train_counts.\n";
    for (const Row &row : table) {
        out << std::accumulate(row.begin(), row.end(), 0u) - 1 << ',';
        for (const std::uint32_t count : row)
            out << count - 1 << ',';
        out << '\n';
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 4) {
        std::fprintf(stderr, "train_counts OUTPUT TRAIN VALIDATE [STEP] [SHARE]\n");
        return 1;
    }
    const std::string last_step = argc > 4 ? argv[4] : "shape";
    const double share = argc > 5 ? std::atof(argv[5]) : kSmallFileShare;
    Table table = start_table();
    BlockSet sets[] = {read_folder(argv[2], table, true), read_folder(argv[3], table, false)};
    std::printf("%zu and %zu blocks. Percent saved, against a table that is flat but for the "
                "given rows:\n%-12s %25s %25s\n%-12s %12s %12s %12s %12s\n",
                sets[0].bits.size(), sets[1].bits.size(), "", "training", "validation", "step",
                "files' mean", "bytes", "files' mean", "bytes");
    for (const std::string step : {"flat", "frequencies", "strength", "shape"}) {
        for (std::uint32_t c = 0; c < kContexts; ++c) {
            if (is_flat_context(c) || is_given_context(c)) continue;
            if (step == "frequencies") table[c] = frequency_row(sets[0].log, c, kFrequencyTotal);
            if (step == "strength") table[c] = fit_strength(sets[0].log, c);
            if (step == "shape") table[c] = fit_shape(sets[0].log, c, table[c]);
        }
        report(step.c_str(), sets, table, share);
        if (step == last_step) break;
    }
    write_table(argv[1], table);
    report_parts(read_folder(argv[3], table, false));
    return 0;
}
