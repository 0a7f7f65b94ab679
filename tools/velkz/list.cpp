#include "list.h"

#include "failure.h"
#include "progress.h"
#include "random_access.h"
#include "work.h"

#include <cstdio>

using namespace velk;

namespace {

using Number = unsigned long long; // what printf takes on every system

struct Sizes {
    Number archive, original, blocks, archives;
};

void print_sizes(const Sizes &sizes, const std::string &block_size, const std::string &crc,
                 const std::string &name) {
    std::printf("%14llu %14llu %8.2f%% %7llu %10s  %s%s\n", sizes.archive, sizes.original,
                percent(sizes.archive, sizes.original), sizes.blocks, block_size.c_str(),
                crc.c_str(), printable(name).c_str());
    std::fflush(stdout); // before messages about the next archive
}

// What `-v` adds: the CRC of the original, or why there is none.
std::string crc_text(const velk_report &told, const Options &options) {
    if (!options.verbose) return "";
    if (told.has_crc == 0) return told.whole != 0 ? "plain     " : "plain, cut?  ";
    char text[16];
    std::snprintf(text, sizeof text, "%08x  ", static_cast<unsigned>(told.crc));
    return text;
}

// What a file tells by its index or its record heads, and a stream by all of its blocks.
Status survey(const Input &input, const Options &options, velk_report &told) {
    if (!input.regular()) return transfer(input, nullptr, options, told);
    Archive archive{input, options};
    const velk_status status = open_reader(archive);
    told = archive.told;
    if (status != VELK_OK) return report(archive, status);
    return told.bytes_follow == 0 ? kSuccess
                                  : warning(input.name, "more follows the archive's end");
}

Status list_one(const std::string &path, const Options &options, Sizes &total) {
    Input input;
    Status status = open_input(input, path, options);
    if (status != kSuccess) return status;
    velk_report told{};
    status = survey(input, options, told);
    if (status == kError) return status;
    if (total.archives++ == 0) {
        std::printf("%14s %14s %9s %7s %10s  %s%s\n", "archive", "original", "ratio", "blocks",
                    "block size", options.verbose ? "crc-32    " : "", "name");
    }
    const Number archive_size =
        input.regular() ? input.opened.size - input.start : told.archive_size;
    const Sizes sizes{archive_size, told.size, told.blocks, 1};
    print_sizes(sizes, std::to_string(told.block_size), crc_text(told, options), input.name);
    total.archive += sizes.archive;
    total.original += sizes.original;
    total.blocks += sizes.blocks;
    return status;
}

} // namespace

Status list_archives(const Options &options) {
    Status status = kSuccess;
    Sizes total{0, 0, 0, 0};
    for (const std::string &name : options.names)
        status = worse(status, list_one(name, options, total));
    if (total.archives > 1)
        print_sizes(total, "", options.verbose ? "          " : "",
                    std::to_string(total.archives) + " archives");
    return status;
}
