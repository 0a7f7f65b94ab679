// The command `list`: as a table, as charts, or for programs.
#include "archive/format.h"
#include "platform/printable.h"
#include "platform/streams.h"
#include "velkinfo/block_walk.h"
#include "velkinfo/commands.h"
#include "velkinfo/progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

using namespace velk;

namespace {

using Number = unsigned long long; // what printf takes on every system

// Lengths of one block, or the sums over several.
struct Lengths {
    Number coded, original;
    // After each stage, trailers included; what a fallback took back counts as never done.
    Number after[STAGE_COUNT];
    std::uint8_t trailer[STAGE_COUNT]; // 0: did not apply
};

struct Tally {
    Number blocks, damaged; // of which some can be restored
    Lengths total;          // of those restored
    std::string damage;     // that is met first
};

// How the table is laid out: columns of characters.
struct Layout {
    int offset, coded, original; // as wide as the archive's size asks for
    int stages;                  // where the stages begin
    int width;                   // of the terminal; 0: lines of any length
};

Layout layout_of(const BlockReader &reader) {
    const int digits = static_cast<int>(std::to_string(reader.archive.size).size());
    const int offset = std::max(digits, 6), coded = std::max(digits, 5);
    const int original = std::max(digits + 1, 8);
    return {offset, coded, original, 6 + offset + 1 + coded + 1 + original + 10,
            static_cast<int>(terminal_width(kStandardOutput))};
}

Lengths lengths_of(const Finding &block) {
    const BlockTrace trace = block.bytes != nullptr ? block.trace : BlockTrace{};
    Lengths lengths{block.end - block.begin, block.size, {}, {}};
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        const bool undone = trace.fallback && stage > STAGE_LZP;
        lengths.after[stage] = trace.coded_len[undone ? STAGE_LZP : stage];
        lengths.trailer[stage] = trace.trailer[stage];
    }
    return lengths;
}

void add(Lengths &sum, const Lengths &block) {
    sum.coded += block.coded;
    sum.original += block.original;
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        sum.after[stage] += block.after[stage];
        sum.trailer[stage] |= block.trailer[stage];
    }
}

Number before(const Lengths &lengths, unsigned stage) {
    return stage == 0 ? lengths.original : lengths.after[stage - 1];
}

double percent(Number part, Number whole) {
    return whole == 0 ? 0 : 100 * static_cast<double>(part) / static_cast<double>(whole);
}

const char *form_of(const Finding &block) {
    return block.trace.fallback ? "fallback" : "normal";
}

const char *mark_of(const Finding &block) {
    return block.damage.empty() ? "" : "damaged";
}

void print_numbers(const Lengths &lengths, const Layout &layout) {
    std::printf(" %*llu %*llu %7.2f%%", layout.coded, lengths.coded, layout.original,
                lengths.original, percent(lengths.coded, lengths.original));
}

// The stages that did something, each with the share of the original that it took off, if
// any. The EOL filter's trailer 1 is of a block in which it found no text.
std::vector<std::string> stages_of(const Lengths &lengths, bool fallback) {
    std::vector<std::string> words;
    if (fallback) words.emplace_back("fallback");
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        if (lengths.trailer[stage] < (stage == STAGE_EOL ? 2 : 1)) continue;
        words.emplace_back(kStageTable[stage].name);
        const double saved = percent(before(lengths, stage), lengths.original) -
                             percent(lengths.after[stage], lengths.original);
        if (saved >= 0.5) words.back() += ' ' + std::to_string(std::lround(saved)) + '%';
    }
    return words;
}

// Ends a line of the table; what is too wide for the terminal goes on the next.
void print_stages(const Lengths &lengths, bool fallback, const std::string &damaged,
                  const Layout &layout) {
    int column = layout.stages;
    std::vector<std::string> words = stages_of(lengths, fallback);
    if (!damaged.empty()) words.push_back(damaged);
    for (const std::string &word : words) {
        const int length = 1 + static_cast<int>(word.size());
        if (layout.width != 0 && column + length > layout.width) {
            std::printf("\n%*s", layout.stages, "");
            column = layout.stages;
        }
        std::printf(" %s", word.c_str());
        column += length;
    }
    std::printf("\n");
}

void print_bar(const char *label, Number length, Number full) {
    constexpr int kFullBar = 50;
    const int bar = static_cast<int>(std::min(percent(length, full) / 100 * kFullBar, 55.0));
    static constexpr char kBar[] = "#######################################################";
    std::printf("  %-8s %11llu  %.*s\n", label, length, bar, kBar);
}

void print_chart(const Lengths &lengths) {
    print_bar("original", lengths.original, lengths.original);
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        if (lengths.trailer[stage] != 0)
            print_bar(kStageTable[stage].name, lengths.after[stage], lengths.original);
    }
    print_bar("coded", lengths.coded, lengths.original);
}

void print_block(const Finding &block, ListForm form, const Layout &layout) {
    const Lengths lengths = lengths_of(block);
    const BlockTrace &trace = block.trace;
    const Number number = block.number, offset = block.begin;
    const bool restored = block.bytes != nullptr, damaged = !block.damage.empty();
    const std::string size = block.size == 0 ? "" : std::to_string(block.size);
    switch (form) {
    case ListForm::kTable:
        std::printf("%6llu %*llu", number, layout.offset, offset);
        if (restored) {
            print_numbers(lengths, layout);
        } else {
            std::printf(" %*llu %*s %8s", layout.coded, lengths.coded, layout.original,
                        size.empty() ? "-" : size.c_str(), "-");
        }
        print_stages(lengths, restored && block.trace.fallback, mark_of(block), layout);
        break;
    case ListForm::kQuick:
        std::printf("%6llu %*llu %*llu%s%s\n", number, layout.offset, offset, layout.coded,
                    lengths.coded, damaged ? " " : "", mark_of(block));
        break;
    case ListForm::kStages:
        std::printf("\nblock %llu at offset %llu%s%s", number, offset, damaged ? ", " : "",
                    mark_of(block));
        if (restored)
            std::printf(", %s, %.2f%%", form_of(block), percent(lengths.coded, lengths.original));
        std::printf("\n");
        if (restored) print_chart(lengths);
        break;
    case ListForm::kJson:
        std::printf("%s\n    {\"number\": %llu, \"offset\": %llu, \"coded\": %llu, "
                    "\"original\": %s, ",
                    number == 1 ? "" : ",", number, offset, lengths.coded,
                    size.empty() ? "null" : size.c_str());
        if (damaged) std::printf("\"damaged\": true, ");
        std::printf(restored ? "\"form\": \"%s\", \"stages\": [" : "\"form\": null, \"stages\": [",
                    form_of(block));
        for (unsigned stage = 0; restored && stage < (trace.fallback ? STAGE_BWT : STAGE_COUNT);
             ++stage) {
            std::printf("%s\n      {\"name\": \"%s\", \"applied\": %s, \"trailer\": %d, "
                        "\"before\": %llu, \"after\": %llu}",
                        stage == 0 ? "" : ",", kStageTable[stage].name,
                        lengths.trailer[stage] != 0 ? "true" : "false", trace.trailer[stage],
                        before(lengths, stage), lengths.after[stage]);
        }
        std::printf("]}");
        break;
    }
    std::fflush(stdout);
}

void print_start(const BlockReader &reader, ListForm form, const Layout &layout) {
    const bool json = form == ListForm::kJson;
    const Number size = reader.archive.size;
    const bool known = reader.context.capacity != 0; // or else the header is damaged
    const unsigned block_size =
        known ? block_size_of(reader.context) - (reader.indexed ? kIndexMark : 0) : 0;
    if (json) {
        std::printf("{\n  \"archive_bytes\": %llu,\n  \"indexed\": %s,\n  \"block_size\": %u,\n"
                    "  \"stages_on\": [",
                    size, reader.indexed ? "true" : "false", block_size);
    } else {
        std::printf("%s: %llu bytes, index: %s\nblock size %u, stages on:",
                    printable(reader.archive.name).c_str(), size, reader.indexed ? "yes" : "no",
                    block_size);
    }
    const char *between = "";
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        if (reader.context.settings.*kStageTable[stage].off != 0) continue;
        std::printf(json ? "%s\"%s\"" : "%s %s", between, kStageTable[stage].name);
        between = json ? ", " : "";
    }
    std::printf(json ? "],\n  \"blocks\": [" : "\n");
    const bool quick = form == ListForm::kQuick;
    if (form != ListForm::kTable && !quick) return;
    std::printf("%6s %*s %*s", "block", layout.offset, "offset", layout.coded, "coded");
    if (!quick) std::printf(" %*s %8s %s", layout.original, "original", "ratio", "stages: saved");
    std::printf("\n");
}

void print_end(const BlockReader &reader, const Tally &tally, ListForm form, const Layout &layout) {
    const Number blocks = tally.blocks, least = reader.least_size, most = reader.most_size;
    const Lengths &total = tally.total;
    const bool good = tally.damage.empty();
    const std::string damaged =
        tally.damaged == 0 ? "" : std::to_string(tally.damaged) + " damaged";
    switch (form) {
    case ListForm::kTable:
        std::printf("%6llu %-*s", blocks, layout.offset, blocks == 1 ? "block" : "blocks");
        print_numbers(total, layout);
        print_stages(total, false, damaged, layout);
        break;
    case ListForm::kQuick:
        std::printf("%6llu %-*s %*llu", blocks, layout.offset, blocks == 1 ? "block" : "blocks",
                    layout.coded, total.coded);
        if (good && least == most) std::printf(" of %llu bytes", most);
        if (good && least != most) std::printf(" of %llu to %llu bytes", least, most);
        std::printf("%s%s\n", damaged.empty() ? "" : ", ", damaged.c_str());
        break;
    case ListForm::kStages:
        if (blocks == 1) break;
        std::printf("\nall %llu blocks%s%s, %.2f%%\n", blocks, damaged.empty() ? "" : ", ",
                    damaged.c_str(), percent(total.coded, total.original));
        print_chart(total);
        break;
    case ListForm::kJson:
        std::printf("\n  ],\n  \"total\": {\"blocks\": %llu, ", blocks);
        if (tally.damaged != 0) std::printf("\"damaged\": %llu, ", tally.damaged);
        std::printf("\"coded\": %llu, \"original\": %llu},\n  \"members\": %llu,\n"
                    "  \"damage\": %s%s%s\n}\n",
                    total.coded, total.original, static_cast<Number>(reader.members),
                    good ? "null" : "\"", good ? "" : tally.damage.c_str(), good ? "" : "\"");
        break;
    }
}

} // namespace

int list_archive(const char *name, ListForm form) {
    Restorer restorer;
    BlockWalk walk(restorer);
    BlockReader &reader = walk.reader;
    std::string why;
    const bool quick = form == ListForm::kQuick;
    if (!walk.open(name, quick ? skip_block : next_block, why)) {
        complain(reader.archive.name, why);
        return 1;
    }
    const Layout layout = layout_of(reader);
    // On a terminal the lines themselves show how far it is.
    if (layout.width == 0) reader.archive.watch = show_progress;
    if (quick) use_indexes(reader);
    Tally tally{};
    Finding found;
    // The first block may tell whether there is an index.
    bool more = walk.next(found);
    print_start(reader, form, layout);
    for (; more; more = walk.next(found)) {
        if (found.number != 0) {
            ++tally.blocks;
            tally.damaged += !found.damage.empty();
            print_block(found, form, layout);
            if (quick || found.bytes != nullptr) add(tally.total, lengths_of(found));
        }
        if (found.damage.empty()) continue;
        if (tally.damage.empty()) tally.damage = found.damage;
        complain(reader.archive.name, found.damage);
    }
    clear_progress();
    print_end(reader, tally, form, layout);
    if (reader.bytes_follow) complain(reader.archive.name, kBytesFollow);
    return tally.damage.empty() ? 0 : 1;
}
