// The command `list`: as a table, as charts, or for programs.
#include "archive/format.h"
#include "platform/printable.h"
#include "platform/streams.h"
#include "velkinfo/archive_blocks.h"
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

Lengths lengths_of(const BlockReader &reader) {
    Lengths lengths{reader.coded_len, reader.context.out_len, {}, {}};
    const BlockTrace &trace = reader.trace;
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

const char *form_of(const BlockReader &reader) {
    return reader.trace.fallback ? "fallback" : "normal";
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
void print_stages(const Lengths &lengths, bool fallback, const Layout &layout) {
    int column = layout.stages;
    for (const std::string &word : stages_of(lengths, fallback)) {
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

void print_block(const BlockReader &reader, ListForm form, const Layout &layout) {
    const Lengths lengths = lengths_of(reader);
    const Number number = reader.number, offset = reader.offset;
    switch (form) {
    case ListForm::kTable:
        std::printf("%6llu %*llu", number, layout.offset, offset);
        print_numbers(lengths, layout);
        print_stages(lengths, reader.trace.fallback, layout);
        break;
    case ListForm::kQuick:
        std::printf("%6llu %*llu %*llu\n", number, layout.offset, offset, layout.coded,
                    lengths.coded);
        break;
    case ListForm::kStages:
        std::printf("\nblock %llu at offset %llu, %s, %.2f%%\n", number, offset, form_of(reader),
                    percent(lengths.coded, lengths.original));
        print_chart(lengths);
        break;
    case ListForm::kJson:
        std::printf("%s\n    {\"number\": %llu, \"offset\": %llu, \"coded\": %llu, "
                    "\"original\": %llu, \"form\": \"%s\", \"stages\": [",
                    number == 1 ? "" : ",", number, offset, lengths.coded, lengths.original,
                    form_of(reader));
        for (unsigned stage = 0; stage < (reader.trace.fallback ? STAGE_BWT : STAGE_COUNT);
             ++stage) {
            std::printf("%s\n      {\"name\": \"%s\", \"applied\": %s, \"trailer\": %d, "
                        "\"before\": %llu, \"after\": %llu}",
                        stage == 0 ? "" : ",", kStageTable[stage].name,
                        lengths.trailer[stage] != 0 ? "true" : "false", reader.trace.trailer[stage],
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
    const unsigned block_size = block_size_of(reader.context) - (reader.indexed ? kIndexMark : 0);
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

void print_end(const BlockReader &reader, const Lengths &total, ListForm form, const Layout &layout,
               const std::string &damage) {
    const Number blocks = reader.number, least = reader.least_size, most = reader.most_size;
    switch (form) {
    case ListForm::kTable:
        std::printf("%6llu %-*s", blocks, layout.offset, blocks == 1 ? "block" : "blocks");
        print_numbers(total, layout);
        print_stages(total, false, layout);
        break;
    case ListForm::kQuick:
        std::printf("%6llu %-*s %*llu", blocks, layout.offset, blocks == 1 ? "block" : "blocks",
                    layout.coded, total.coded);
        if (damage.empty() && least == most) std::printf(" of %llu bytes", most);
        if (damage.empty() && least != most) std::printf(" of %llu to %llu bytes", least, most);
        std::printf("\n");
        break;
    case ListForm::kStages:
        if (blocks == 1) break;
        std::printf("\nall %llu blocks, %.2f%%\n", blocks, percent(total.coded, total.original));
        print_chart(total);
        break;
    case ListForm::kJson:
        std::printf(
            "\n  ],\n  \"total\": {\"blocks\": %llu, \"coded\": %llu, \"original\": %llu},\n"
            "  \"members\": %llu,\n  \"damage\": %s%s%s\n}\n",
            blocks, total.coded, total.original, static_cast<Number>(reader.members),
            damage.empty() ? "null" : "\"", damage.c_str(), damage.empty() ? "" : "\"");
        break;
    }
}

} // namespace

int list_archive(const char *name, ListForm form) {
    BlockReader reader;
    std::string why, damage;
    if (!open_blocks(reader, name, why)) {
        complain(name, why.c_str());
        return 1;
    }
    const Layout layout = layout_of(reader);
    // On a terminal the lines themselves show how far it is.
    if (layout.width == 0) reader.archive.watch = show_progress;
    const auto step_on = form == ListForm::kQuick ? skip_block : next_block;
    if (form == ListForm::kQuick) use_indexes(reader);
    // The first block may tell whether there is an index.
    ArchiveStatus status = step_on(reader, damage);
    print_start(reader, form, layout);
    Lengths total{};
    for (; status == ArchiveStatus::kGood; status = step_on(reader, damage)) {
        print_block(reader, form, layout);
        add(total, lengths_of(reader));
    }
    clear_progress();
    print_end(reader, total, form, layout, damage);
    if (!damage.empty()) complain(name, damage.c_str());
    if (reader.bytes_follow) complain(name, kBytesFollow);
    return damage.empty() ? 0 : 1;
}
