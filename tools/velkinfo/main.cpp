// velkinfo: looks into archives. The command line, and the command `test`.
#include "platform/printable.h"
#include "platform/streams.h"
#include "velkinfo/block_walk.h"
#include "velkinfo/commands.h"
#include "velkinfo/progress.h"

#include <cstdio>
#include <cstring>
#include <getopt.h>

using namespace velk;

namespace {

constexpr int kUsageStatus = 2;

constexpr const char *kHelp =
    "Usage: velkinfo list [--json | --quick | --stages] ARCHIVE\n"
    "       velkinfo test ARCHIVE...\n"
    "       velkinfo salvage [--force] [--fill | --no-fill] ARCHIVE OUTPUT\n"
    "\n"
    "list      show the header, the blocks and how much each stage took off\n"
    "  --json    all lengths, for programs\n"
    "  --quick   from indexes or record heads alone\n"
    "  --stages  the lengths as a chart\n"
    "test      restore every block in memory and tell whether all checks hold\n"
    "salvage   restore every intact block of a damaged archive\n"
    "  --force   overwrite OUTPUT if it exists\n"
    "  --fill    write zeros in the place of lost blocks even without an index\n"
    "  --no-fill leave them out even with an index, which tells their places\n"
    "\n"
    "ARCHIVE may be a pipe; - is the standard input.\n"
    "\n"
    "  --help     show this text\n"
    "  --version  show the version\n"
    "\n"
    "Exit status: 0 if all is well, 1 for damage or failure, 2 for a wrong command line.\n";

int usage_error(const char *subject, const char *message) {
    complain(subject, message);
    std::fprintf(stderr, "Try 'velkinfo --help'.\n");
    return kUsageStatus;
}

struct Options {
    int json, quick, stages, force, fill, no_fill, help, version;
};

// names: what follows the command.
int run_command(const char *command, char **names, int name_count, const Options &o) {
    const int list_options = o.json + o.quick + o.stages;
    const bool salvage_options = o.force + o.fill + o.no_fill != 0;

    if (std::strcmp(command, "list") == 0) {
        if (name_count != 1) return usage_error(command, "takes one archive");
        if (salvage_options) return usage_error(command, "takes --json, --quick or --stages only");
        if (list_options > 1)
            return usage_error(command, "takes one of --json, --quick and --stages");
        return list_archive(names[0], o.json != 0     ? ListForm::kJson
                                      : o.quick != 0  ? ListForm::kQuick
                                      : o.stages != 0 ? ListForm::kStages
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
        if (list_options != 0)
            return usage_error(command, "takes --force, --fill and --no-fill only");
        if (o.fill + o.no_fill > 1) return usage_error(command, "takes --fill or --no-fill");
        return salvage_archive(names[0], names[1], {o.force != 0, o.fill != 0, o.no_fill != 0});
    }
    return usage_error(command, "no such command");
}

int run(int argument_count, char **arguments) {
    Options o{};
    const option options[] = {
        {"json", no_argument, &o.json, 1},
        {"quick", no_argument, &o.quick, 1},
        {"stages", no_argument, &o.stages, 1},
        {"force", no_argument, &o.force, 1},
        {"fill", no_argument, &o.fill, 1},
        {"help", no_argument, &o.help, 1},
        {"version", no_argument, &o.version, 1},
        {"no-fill", no_argument, &o.no_fill, 1},
        {nullptr, 0, nullptr, 0},
    };
    int chosen;
    opterr = 0; // its own messages have names as they are
    while ((chosen = getopt_long(argument_count, arguments, "", options, nullptr)) != -1) {
        if (chosen == '?') return usage_error(arguments[optind - 1], "unknown option");
    }
    if (o.help != 0) {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (o.version != 0) {
        std::printf("velkinfo (VELK) %s\n", VELK_VERSION);
        return 0;
    }
    if (optind == argument_count) return usage_error("command line", "no command");
    return run_command(arguments[optind], arguments + optind + 1, argument_count - optind - 1, o);
}

} // namespace

void complain(const std::string &subject, const std::string &message) {
    clear_progress();
    std::fflush(stdout);
    put_message("velkinfo: " + printable(subject) + ": " + message + "\n");
}

int test_archive(const char *name) {
    Restorer restorer;
    BlockWalk walk(restorer);
    const BlockReader &reader = walk.reader;
    std::string why;
    walk.reader.archive.watch = show_progress;
    if (!walk.open(name, next_block, why)) {
        complain(reader.archive.name, why);
        return 1;
    }
    bool good = true;
    unsigned long long blocks = 0, original = 0;
    for (Finding found; walk.next(found);) {
        ++blocks;
        original += found.size;
        if (found.damage.empty()) continue;
        good = false;
        complain(reader.archive.name, found.damage);
    }
    clear_progress();
    if (!good) return 1;
    std::printf("%s: good, %llu %s, %llu bytes%s\n", printable(reader.archive.name).c_str(), blocks,
                blocks == 1 ? "block" : "blocks", original,
                reader.whole ? ""
                             : ", a plain archive, which can't tell whether its end was cut off");
    if (reader.bytes_follow) complain(reader.archive.name, kBytesFollow);
    return 0;
}

int main(int argument_count, char **arguments) {
    prepare_standard_streams(false);
    int status = run(argument_count, arguments);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("standard output", "write error");
        status = 1;
    }
    return status;
}
