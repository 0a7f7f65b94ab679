// What threads bring, and what the library itself costs: files compressed and restored in
// memory, with the block chain alone and with libvelk.
//
//   library_bench FILE...
//
// Each line is the shortest of three runs by the clock; the processor time shows what
// stands in the way of the threads.
#include "archive/memory.h"
#include "pipeline/block.h"
#include "velk.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

using namespace velk;

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kBlock = 2 << 20;
constexpr int kRuns = 3;

Bytes read_all(const char *name) {
    std::ifstream file(name, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

struct Time {
    double wall, processor; // seconds
};

template<typename Run>
Time shortest(Run run) {
    Time best = {1e9, 1e9};
    for (int i = 0; i < kRuns; ++i) {
        const auto start = std::chrono::steady_clock::now();
        const std::clock_t ticks = std::clock();
        run();
        const double processor = static_cast<double>(std::clock() - ticks) / CLOCKS_PER_SEC;
        const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
        if (wall.count() < best.wall) best = {wall.count(), processor};
    }
    return best;
}

void require(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "library_bench: %s\n", what);
    std::exit(EXIT_FAILURE);
}

// The blocks of `whole` one by one, as the program does it.
Time chain_alone(const Bytes &whole, std::vector<Bytes> &records, bool restoring) {
    return shortest([&] {
        CoderContext context{};
        context.settings.st_off = 1;
        context.file_size = static_cast<std::uint32_t>(whole.size() + 1);
        if (restoring) {
            require(alloc_decompress(context, kBlock) != 0, "no memory");
            for (const Bytes &record : records) {
                std::copy(record.begin(), record.end(), context.buf_in);
                context.in_len = static_cast<std::uint32_t>(record.size());
                require(decompress_block(context), "a block was not restored");
            }
            free_decompress(context);
            return;
        }
        records.clear();
        require(alloc_compress(context, kBlock) != 0, "no memory");
        for (std::size_t at = 0; at < whole.size(); at += kBlock) {
            context.in_len =
                static_cast<std::uint32_t>(std::min<std::size_t>(kBlock, whole.size() - at));
            std::copy_n(&whole[at], context.in_len, context.buf_in);
            compress_block(context);
            records.emplace_back(context.buf_out, context.buf_out + context.out_len);
        }
        free_compress(context);
    });
}

void print(const std::string &what, const Time &compression, const Time &restoring,
           const Time *one) {
    std::printf("%-16s %8.3f %8.3f %8.3f %8.3f", what.c_str(), compression.wall,
                compression.processor, restoring.wall, restoring.processor);
    if (one != nullptr)
        std::printf("   x%.2f x%.2f", one[0].wall / compression.wall, one[1].wall / restoring.wall);
    std::printf("\n");
    std::fflush(stdout);
}

void measure(const char *name) {
    const Bytes whole = read_all(name);
    velk_options options;
    velk_options_init(&options);
    Bytes archive(velk_compress_bound(whole.size(), &options)), restored(whole.size());
    std::size_t archive_size = 0, size = 0;
    std::printf("%s, %zu bytes\n%-16s %17s %17s\n%-16s %8s %8s %8s %8s\n", name, whole.size(), "",
                "compression", "restoring", "", "s", "proc. s", "s", "proc. s");
    std::vector<Bytes> records;
    const Time chain[] = {chain_alone(whole, records, false), chain_alone(whole, records, true)};
    print("chain alone", chain[0], chain[1], nullptr);

    Time one[2] = {};
    for (options.threads = 1; options.threads <= std::max(2u, std::thread::hardware_concurrency());
         ++options.threads) {
        const Time compression = shortest([&] {
            require(velk_compress(&options, whole.data(), whole.size(), archive.data(),
                                  archive.size(), &archive_size) == VELK_OK,
                    "compression failed");
        });
        const Time restoring = shortest([&] {
            require(velk_decompress(&options, archive.data(), archive_size, restored.data(),
                                    restored.size(), &size) == VELK_OK &&
                        restored == whole,
                    "restoring failed");
        });
        if (options.threads == 1) {
            one[0] = compression;
            one[1] = restoring;
        }
        print(std::to_string(options.threads) + " threads", compression, restoring, one);
    }
}

} // namespace

int main(int argument_count, char **arguments) {
    require(argument_count > 1, "FILE...");
    for (int i = 1; i < argument_count; ++i)
        measure(arguments[i]);
}
