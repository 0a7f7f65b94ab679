// velkinfo: looks into archives. The command line, and the command `test`.
#include "velkinfo.h"

#include "archive_reader.h"
#include "cli/standard_streams.h"

#include <cstdio>
#include <cstring>
#include <getopt.h>

namespace {

constexpr int kUsageStatus = 2;

constexpr const char *kHelp =
    "Usage: velkinfo list [--json | --quick | --stages] ARCHIVE\n"
    "       velkinfo test ARCHIVE...\n"
    "       velkinfo salvage [--force] [--fill] ARCHIVE OUTPUT\n"
    "\n"
    "list      show the header, the blocks and how much each stage took off\n"
    "  --json    all lengths, for programs\n"
    "  --quick   from the record heads alone, restoring nothing\n"
    "  --stages  the lengths as a chart\n"
    "test      restore every block in memory and tell whether all checks hold\n"
    "salvage   restore every intact block of a damaged archive\n"
    "  --force   overwrite OUTPUT if it exists\n"
    "  --fill    write zeros in the place of lost blocks of known length\n"
    "\n"
    "  --help     show this text\n"
    "  --version  show the version\n"
    "\n"
    "Exit status: 0 if all is well, 1 for damage or failure, 2 for a wrong command line.\n";

enum Option {
    OPTION_FIRST = 256,
    OPTION_JSON = 256,
    OPTION_QUICK,
    OPTION_STAGES,
    OPTION_FORCE,
    OPTION_FILL,
    OPTION_HELP,
    OPTION_VERSION,
    OPTION_END
};

constexpr option kOptions[] = {
    {"json", no_argument, nullptr, OPTION_JSON},
    {"quick", no_argument, nullptr, OPTION_QUICK},
    {"stages", no_argument, nullptr, OPTION_STAGES},
    {"force", no_argument, nullptr, OPTION_FORCE},
    {"fill", no_argument, nullptr, OPTION_FILL},
    {"help", no_argument, nullptr, OPTION_HELP},
    {"version", no_argument, nullptr, OPTION_VERSION},
    {nullptr, 0, nullptr, 0},
};

int usage_error(const char *subject, const char *message) {
    complain(subject, message);
    std::fprintf(stderr, "Try 'velkinfo --help'.\n");
    return kUsageStatus;
}

int run(int argument_count, char **arguments) {
    bool given[OPTION_END - OPTION_FIRST] = {};
    int chosen;
    while ((chosen = getopt_long(argument_count, arguments, "", kOptions, nullptr)) != -1) {
        if (chosen == '?') return usage_error("command line", "wrong option");
        given[chosen - OPTION_FIRST] = true;
    }
    const auto has = [&](Option wanted) { return given[wanted - OPTION_FIRST]; };
    if (has(OPTION_HELP)) {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (has(OPTION_VERSION)) {
        std::printf("velkinfo (VELK) %s\n", VELK_VERSION);
        return 0;
    }
    if (optind == argument_count) return usage_error("command line", "no command");
    const char *const command = arguments[optind];
    char **const names = arguments + optind + 1;
    const int name_count = argument_count - optind - 1;
    const int list_options = has(OPTION_JSON) + has(OPTION_QUICK) + has(OPTION_STAGES);
    const bool salvage_options = has(OPTION_FORCE) || has(OPTION_FILL);

    if (std::strcmp(command, "list") == 0) {
        if (name_count != 1) return usage_error(command, "takes one archive");
        if (salvage_options) return usage_error(command, "takes --json, --quick or --stages only");
        if (list_options > 1)
            return usage_error(command, "takes one of --json, --quick and --stages");
        return list_archive(names[0], has(OPTION_JSON)     ? ListForm::kJson
                                      : has(OPTION_QUICK)  ? ListForm::kQuick
                                      : has(OPTION_STAGES) ? ListForm::kStages
                                                           : ListForm::kTable);
    }
    if (std::strcmp(command, "test") == 0) {
        if (name_count < 1) return usage_error(command, "takes one archive or more");
        if (list_options != 0 || salvage_options) return usage_error(command, "takes no options");
        int status = 0;
        for (int i = 0; i < name_count; ++i)
            status |= test_archive(names[i]);
        return status;
    }
    if (std::strcmp(command, "salvage") == 0) {
        if (name_count != 2) return usage_error(command, "takes an archive and an output");
        if (list_options != 0) return usage_error(command, "takes --force and --fill only");
        return salvage_archive(names[0], names[1], {has(OPTION_FORCE), has(OPTION_FILL)});
    }
    return usage_error(command, "no such command");
}

} // namespace

void complain(const char *subject, const char *message) {
    std::fflush(stdout);
    std::fprintf(stderr, "velkinfo: %s: %s\n", subject, message);
}

int test_archive(const char *name) {
    BlockReader reader;
    std::string why;
    if (!open_blocks(reader, name, why)) {
        complain(name, why.c_str());
        return 1;
    }
    Step step;
    std::uint64_t original = 0;
    while ((step = next_block(reader, why)) == Step::kBlock)
        original += reader.block.original_len;
    if (step == Step::kDamage) {
        why = "block " + std::to_string(reader.block.number) + " at offset " +
              std::to_string(reader.block.offset) + ": " + why;
        complain(name, why.c_str());
        return 1;
    }
    const unsigned long long blocks = reader.block.number;
    std::printf("%s: good, %llu %s, %llu bytes\n", name, blocks, blocks == 1 ? "block" : "blocks",
                static_cast<unsigned long long>(original));
    return 0;
}

int main(int argument_count, char **arguments) {
    prepare_standard_streams();
    int status = run(argument_count, arguments);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("standard output", "write error");
        status = 1;
    }
    return status;
}
