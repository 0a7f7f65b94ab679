// How long compressing and restoring take at worst, against bzip2 -9 on the same bytes:
//
//   worst_bench [MIB]...                   the table, of 2 MiB and the largest blocks
//   worst_bench quick [MIB]...             with default switches only
//   worst_bench search MINUTES [MIB]       random members of the inputs' families, the
//                                          worst of each
//
// Times are processor time, the best of some tries. Every block runs on a stack that is
// painted first, which shows how much of it has been used.
#include "archive_call.h"
#include "base/block_size.h"
#include "inputs.h"
#include "worst_inputs.h"

#include <algorithm>
#include <bit>
#include <bzlib.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <pthread.h>
#include <utility>

using namespace velk;

namespace {

struct Switches {
    const char *name;
    std::uint8_t flags;
};
constexpr Switches kSwitches[] = {{"", 0x20}, {" -z", 0x28}, {" -r", 0x60}, {" -t", 0x10}};

// A stack to run functions on.
class PaintedStack {
public:
    PaintedStack() : bytes_(kBytes, kPaint) {
        const auto nothing = [](void *) -> void * { return nullptr; };
        run(nothing, nullptr);
        own_ = std::exchange(most_, 0);
    }

    void run(void *(*function)(void *), void *argument) {
        pthread_attr_t attributes;
        pthread_t thread;
        if (pthread_attr_init(&attributes) != 0 ||
            pthread_attr_setstack(&attributes, bytes_.data(), kBytes) != 0 ||
            pthread_create(&thread, &attributes, function, argument) != 0 ||
            pthread_join(thread, nullptr) != 0) {
            std::abort();
        }
        pthread_attr_destroy(&attributes);
        const auto deepest = std::find_if(bytes_.begin(), bytes_.end(),
                                          [](std::uint8_t byte) { return byte != kPaint; });
        most_ = std::max(most_, static_cast<std::size_t>(bytes_.end() - deepest));
        std::fill(deepest, bytes_.end(), kPaint);
    }

    // The most bytes that functions have used so far, without what a thread takes itself.
    std::size_t most() const { return most_ - std::min(most_, own_); }

private:
    static constexpr std::size_t kBytes = 64 << 20;
    static constexpr std::uint8_t kPaint = 0xA5;
    Bytes bytes_;
    std::size_t own_ = 0;
    std::size_t most_ = 0;
};

struct Times {
    double compress = 0, restore = 0; // seconds, or in multiples of those of bzip2
    double worst() const { return std::max(compress, restore); }
};

// One length and set of switches.
class Setting {
public:
    Setting(PaintedStack &stack, std::uint32_t n, const Switches &switches, unsigned tries)
        : stack_(stack), chain_(switches.flags, false, 0, n), tries_(tries) {
        if (!chain_.usable()) std::abort();
    }

    Times relative(const Bytes &input) {
        Times best{1e9, 1e9};
        Times bzip2{1e9, 1e9};
        for (unsigned i = 0; i < tries_; ++i) {
            keep_least(best, measure(input));
            keep_least(bzip2, measure_bzip2(input));
        }
        return {best.compress / bzip2.compress, best.restore / bzip2.restore};
    }

private:
    struct Job {
        Chain &chain;
        const Bytes &input;
        Times times;
    };

    static void keep_least(Times &best, const Times &times) {
        best.compress = std::min(best.compress, times.compress);
        best.restore = std::min(best.restore, times.restore);
    }

    static void *run(void *argument) {
        Job &job = *static_cast<Job *>(argument);
        Bytes data;
        std::optional<Bytes> restored;
        job.times.compress = seconds([&] { data = job.chain.compress(job.input); });
        job.times.restore = seconds([&] { restored = job.chain.decompress(data); });
        if (restored != job.input) {
            std::fprintf(stderr, "A block did not come back\n");
            std::exit(EXIT_FAILURE);
        }
        return nullptr;
    }

    Times measure(const Bytes &input) {
        Job job = {chain_, input, {}};
        stack_.run(run, &job);
        return job.times;
    }

    static Times measure_bzip2(const Bytes &input) {
        std::string data(input.size() + input.size() / 100 + 600, 0);
        std::string restored(input.size(), 0);
        auto data_size = static_cast<unsigned>(data.size());
        auto size = static_cast<unsigned>(restored.size());
        std::string bytes(input.begin(), input.end());
        int status = BZ_OK;
        Times times;
        times.compress = seconds([&] {
            status |=
                BZ2_bzBuffToBuffCompress(data.data(), &data_size, bytes.data(), size, 9, 0, 0);
        });
        times.restore = seconds([&] {
            status |=
                BZ2_bzBuffToBuffDecompress(restored.data(), &size, data.data(), data_size, 0, 0);
        });
        if (status != BZ_OK) std::abort();
        return times;
    }

    PaintedStack &stack_;
    Chain chain_;
    unsigned tries_;
};

// Table ----------------------------------------------------------------------------

struct Row {
    std::string name;
    std::vector<Times> cells;
    double worst = 0;
};

std::string text(double ratio) {
    constexpr double kGoal = 1;
    char number[32];
    std::snprintf(number, sizeof number, ratio > kGoal ? "**%.1f**" : "%.1f", ratio);
    return number;
}

void print_row(const Row &row) {
    std::printf("| %s |", row.name.c_str());
    for (const Times &times : row.cells)
        std::printf(" %s / %s |", text(times.compress).c_str(), text(times.restore).c_str());
    std::printf("\n");
}

// What is measured for the table so far.
struct Table {
    std::vector<WorstInput> inputs = worst_inputs();
    std::vector<Row> rows;
    std::string head = "| Input |", line = "|---|";
    PaintedStack stack;
    std::string deepest = "prose"; // input
};

void add_column(Table &table, std::uint32_t mib, const Switches &switches) {
    const std::uint32_t n = std::min(mib << 20, kMaxBlockSize);
    Setting setting(table.stack, n, switches, 3);
    for (std::size_t i = 0; i < table.inputs.size(); ++i) {
        const std::size_t stack_before = table.stack.most();
        const Times times = setting.relative(table.inputs[i].make(n));
        Row &row = table.rows[i];
        row.cells.push_back(times);
        row.worst = std::max(row.worst, times.worst());
        if (table.stack.most() > stack_before) table.deepest = row.name + switches.name;
        std::fprintf(stderr, "%u MiB%s, %s: %.2f %.2f\n", mib, switches.name, row.name.c_str(),
                     times.compress, times.restore);
    }
    table.head += " " + std::to_string(mib) + " MiB" + switches.name + " |";
    table.line += "---|";
}

void print_table(const std::vector<std::uint32_t> &sizes, bool all_switches) {
    Table table;
    for (const WorstInput &input : table.inputs)
        table.rows.push_back({input.name, {}});
    for (const std::uint32_t mib : sizes) {
        for (const Switches &switches : kSwitches)
            if (all_switches || &switches == kSwitches) add_column(table, mib, switches);
    }
    std::stable_sort(table.rows.begin(), table.rows.end(),
                     [](const Row &a, const Row &b) { return a.worst > b.worst; });
    std::printf("%s\n%s\n", table.head.c_str(), table.line.c_str());
    for (const Row &row : table.rows)
        print_row(row);
    std::printf("\nDeepest stack: %.1f kB (%s).\n", static_cast<double>(table.stack.most()) / 1000,
                table.deepest.c_str());
}

// Search ---------------------------------------------------------------------------

struct Found {
    std::string name;
    std::size_t family = 0, switches = 0;
    std::uint32_t parameters[3] = {};
    std::uint32_t copies = 0; // whole periods, 0 for a file that is none
    Times times;
};

// A number up to `limit`, every order of magnitude as often.
std::uint32_t draw(Random &random, std::uint32_t limit) {
    const auto magnitudes = static_cast<std::uint32_t>(std::bit_width(limit));
    return 1 + random.below(limit >> random.below(magnitudes));
}

// Another member of a family, or one near `bad`.
Found next_try(Random &random, const Found &bad, std::uint32_t n) {
    const bool vary = bad.times.worst() > 0 && random.below(2) == 0;
    Found next = bad;
    next.name.clear();
    if (!vary) next.copies = random.below(3) == 0 ? 1 + draw(random, 30) : 0;
    if (next.copies != 0) next.name = std::to_string(next.copies) + " whole ";
    const Family &family = kFamilies[next.family];
    next.name += family.name;
    for (int i = 0; i < 3; ++i) {
        const std::uint32_t limit = family.limits[i] == 0 ? n / 2 : family.limits[i];
        if (!vary || random.below(3) == 0) next.parameters[i] = draw(random, limit);
        next.name += (i == 0 ? "(" : ", ") + std::to_string(next.parameters[i]);
    }
    next.name += std::string(")") + kSwitches[next.switches].name;
    return next;
}

Bytes make(const Found &found, std::uint32_t n) {
    const Family &family = kFamilies[found.family];
    if (found.copies == 0) return family.make(n, found.parameters);
    Bytes word = family.make(n / found.copies - 4, found.parameters);
    for (auto &byte : word)
        if (byte == 0 || byte == '\n' || byte == '\r') byte = ' '; // else FLT32 or EOL apply
    std::fill_n(word.begin(), std::min<std::size_t>(word.size(), 4), ' ');
    return whole_copies(word, n);
}

// Keeps the worst of each family, with and without copies, and switches.
void search(double minutes, std::uint32_t n) {
    PaintedStack stack;
    std::vector<std::unique_ptr<Setting>> settings;
    for (const Switches &switches : kSwitches)
        settings.push_back(std::make_unique<Setting>(stack, n, switches, 2));
    Random random(static_cast<std::uint64_t>(std::time(nullptr)));
    std::vector<Found> worst(kFamilies.size() * 2 * std::size(kSwitches));
    const auto now = std::chrono::steady_clock::now;
    const auto end = now() + std::chrono::duration<double>(60 * minutes);
    for (std::size_t tries = 0; now() < end; ++tries) {
        const std::size_t kind = tries % worst.size();
        Found bad = worst[kind];
        bad.switches = kind % std::size(kSwitches);
        bad.family = kind / std::size(kSwitches) / 2;
        Found found = next_try(random, bad, n);
        found.times = settings[found.switches]->relative(make(found, n));
        Found &kept =
            worst[(found.family * 2 + (found.copies != 0)) * std::size(kSwitches) + found.switches];
        if (found.times.worst() > kept.times.worst()) kept = found;
    }
    std::sort(worst.begin(), worst.end(),
              [](const Found &a, const Found &b) { return a.times.worst() > b.times.worst(); });
    for (const Found &found : worst)
        if (found.times.worst() > 0) print_row({found.name, {found.times}});
    std::printf("Deepest stack: %.1f kB\n", static_cast<double>(stack.most()) / 1000);
}

} // namespace

int main(int argc, char **argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "search" && argc > 2) {
        const double mib = argc > 3 ? std::strtod(argv[3], nullptr) : 2;
        search(std::strtod(argv[2], nullptr), static_cast<std::uint32_t>(mib * (1 << 20)));
    } else {
        const bool quick = mode == "quick";
        std::vector<std::uint32_t> sizes;
        for (int i = quick ? 2 : 1; i < argc; ++i)
            sizes.push_back(static_cast<std::uint32_t>(std::strtoul(argv[i], nullptr, 10)));
        print_table(sizes.empty() ? std::vector<std::uint32_t>{2, 16} : sizes, !quick);
    }
    return EXIT_SUCCESS;
}
