// The command `list`: as a table, as charts, or for programs.
#include "archive/format.h"
#include "archive_blocks.h"
#include "velkinfo.h"

#include <algorithm>
#include <cstdio>

namespace {

using Number = unsigned long long; // what printf takes on every system

// Lengths of one block, or the sums over several.
struct Lengths {
    Number coded, original;
    // After each stage, trailers included; what a fallback took back counts as never done.
    Number after[STAGE_COUNT];
    bool applied[STAGE_COUNT];
};

Lengths lengths_of(const BlockReader &reader) {
    Lengths lengths{reader.coded_len, reader.context.out_len, {}, {}};
    const BlockTrace &trace = reader.trace;
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        const bool undone = trace.fallback && stage > STAGE_LZP;
        lengths.after[stage] = trace.coded_len[undone ? STAGE_LZP : stage];
        lengths.applied[stage] = trace.trailer[stage] != 0;
    }
    return lengths;
}

void add(Lengths &sum, const Lengths &block) {
    sum.coded += block.coded;
    sum.original += block.original;
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        sum.after[stage] += block.after[stage];
        sum.applied[stage] |= block.applied[stage];
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

void print_numbers(const Lengths &lengths) {
    std::printf("%10llu %11llu %7.2f%%", lengths.coded, lengths.original,
                percent(lengths.coded, lengths.original));
}

void print_changes(const Lengths &lengths) {
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        if (!lengths.applied[stage]) continue;
        const auto change = static_cast<long long>(lengths.after[stage]) -
                            static_cast<long long>(before(lengths, stage));
        std::printf(" %s %+lld", kStageTable[stage].name, change);
    }
    std::printf("\n");
}

void print_bar(const char *label, Number length, Number full) {
    constexpr int kFullBar = 50;
    const int bar = static_cast<int>(std::min(percent(length, full) / 100 * kFullBar, 59.0));
    static constexpr char kBar[] = "###########################################################";
    std::printf("  %-8s %11llu  %.*s\n", label, length, bar, kBar);
}

void print_chart(const Lengths &lengths) {
    print_bar("original", lengths.original, lengths.original);
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        if (lengths.applied[stage])
            print_bar(kStageTable[stage].name, lengths.after[stage], lengths.original);
    }
    print_bar("coded", lengths.coded, lengths.original);
}

void print_block(const BlockReader &reader, ListForm form) {
    const Lengths lengths = lengths_of(reader);
    const Number number = reader.number, offset = reader.offset;
    switch (form) {
    case ListForm::kTable:
        std::printf("%6llu %12llu ", number, offset);
        print_numbers(lengths);
        std::printf("  %-8s ", form_of(reader));
        print_changes(lengths);
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
                        lengths.applied[stage] ? "true" : "false", reader.trace.trailer[stage],
                        before(lengths, stage), lengths.after[stage]);
        }
        std::printf("]}");
        break;
    }
    std::fflush(stdout);
}

void print_start(const BlockReader &reader, ListForm form) {
    const bool json = form == ListForm::kJson;
    const Number size = reader.archive.size;
    const unsigned block_size = reader.context.capacity - kBlockSlack;
    if (json) {
        std::printf("{\n  \"archive_bytes\": %llu,\n  \"block_size\": %u,\n  \"stages_on\": [",
                    size, block_size);
    } else {
        std::printf("%s: %llu bytes, block size %u, stages on:", reader.archive.name.c_str(), size,
                    block_size);
    }
    const char *between = "";
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        if (reader.context.settings.*kStageTable[stage].off != 0) continue;
        std::printf(json ? "%s\"%s\"" : "%s %s", between, kStageTable[stage].name);
        between = json ? ", " : "";
    }
    std::printf(json ? "],\n  \"blocks\": [" : "\n");
    if (form == ListForm::kTable) {
        std::printf("%6s %12s %10s %11s %8s  %-8s  %s\n", "block", "offset", "coded", "original",
                    "ratio", "form", "change of length by each stage that applied");
    }
}

void print_end(Number blocks, const Lengths &total, ListForm form, const std::string &damage) {
    switch (form) {
    case ListForm::kTable:
        std::printf("%6llu %-12s ", blocks, blocks == 1 ? "block" : "blocks");
        print_numbers(total);
        std::printf("  %-8s ", "");
        print_changes(total);
        break;
    case ListForm::kStages:
        if (blocks == 1) break;
        std::printf("\nall %llu blocks, %.2f%%\n", blocks, percent(total.coded, total.original));
        print_chart(total);
        break;
    case ListForm::kJson:
        std::printf(
            "\n  ],\n  \"total\": {\"blocks\": %llu, \"coded\": %llu, \"original\": %llu},\n"
            "  \"damage\": %s%s%s\n}\n",
            blocks, total.coded, total.original, damage.empty() ? "null" : "\"", damage.c_str(),
            damage.empty() ? "" : "\"");
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
    print_start(reader, form);
    Lengths total{};
    while (next_block(reader, damage) == ArchiveStatus::kGood) {
        print_block(reader, form);
        add(total, lengths_of(reader));
    }
    print_end(reader.number, total, form, damage);
    if (!damage.empty()) complain(name, damage.c_str());
    return damage.empty() ? 0 : 1;
}
