#include "random_access.h"

#include "failure.h"
#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <memory>

using namespace velk;

namespace {

using Number = unsigned long long; // what printf takes on every system

struct Archive {
    const Input &input;
    const Options &options;
    velk_report told{};
    std::unique_ptr<velk_reader, void (*)(velk_reader *)> reader{nullptr, velk_reader_close};
};

std::int64_t read_at(void *user, std::uint64_t offset, void *buffer, std::size_t size) {
    const Input &input = *static_cast<const Input *>(user);
    return read_some_at(input.fd, input.start + offset, buffer, size);
}

Status report(const Archive &archive, velk_status status) {
    // Of an archive that was opened, it tells of blocks that are shorter than the others.
    if (status == VELK_ERROR_FORMAT && archive.reader != nullptr)
        return error(archive.input.name,
                     "has blocks of several sizes, which must be restored from the start");
    return report(archive.input.name, status, archive.told, archive.options);
}

Status open_archive(Archive &archive) {
    velk_reader *reader;
    // The callback only looks at the input.
    const velk_status status =
        velk_reader_open(&reader, &archive.options.library, read_at,
                         const_cast<Input *>(&archive.input), archive.input.size, &archive.told);
    archive.reader.reset(reader);
    return status == VELK_OK ? kSuccess : report(archive, status);
}

bool write_whole(const Output &output, const std::uint8_t *bytes, std::size_t size) {
    std::int64_t put = 0;
    for (std::size_t done = 0; done < size; done += static_cast<std::size_t>(put)) {
        put = write_some(output.fd, bytes + done, size - done);
        if (put <= 0) return false;
    }
    return true;
}

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

Status list_one(const std::string &path, const Options &options, Sizes &total) {
    Input input;
    Status status = open_input(input, path, options);
    if (status != kSuccess) return status;
    if (!input.regular()) return error(input.name, "can't be listed: is not a regular file");
    Archive archive{input, options};
    status = open_archive(archive);
    if (status != kSuccess) return status;
    const velk_report &told = archive.told;
    if (total.archives++ == 0) {
        std::printf("%14s %14s %9s %7s %10s  %s%s\n", "archive", "original", "ratio", "blocks",
                    "block size", options.verbose ? "crc-32    " : "", "name");
    }
    const Sizes sizes{input.opened.size - input.start, told.size, told.blocks, 1};
    print_sizes(sizes, std::to_string(told.block_size), crc_text(told, options), input.name);
    total.archive += sizes.archive;
    total.original += sizes.original;
    total.blocks += sizes.blocks;
    return told.bytes_follow == 0 ? kSuccess
                                  : warning(input.name, "more follows the archive's end");
}

// After a range that goes beyond the original, which one without a length may.
Status check_end(const Archive &archive) {
    const Options &o = archive.options;
    const std::uint64_t end = archive.told.size;
    if (o.range_length == UINT64_MAX && o.range_offset <= end) return kSuccess;
    return warning(archive.input.name, "the original ends at " + std::to_string(end) + " bytes");
}

} // namespace

Status restore_range(const Input &input, const Output &output, const Options &options) {
    Archive archive{input, options};
    const Status status = open_archive(archive);
    if (status != kSuccess) return status;
    std::vector<std::uint8_t> buffer(std::size_t{1} << 18);
    std::uint64_t left = options.range_length, offset = options.range_offset;
    for (std::size_t got; left != 0; left -= got, offset += got) {
        const std::size_t wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer.size()));
        const velk_status answer =
            velk_reader_read(archive.reader.get(), offset, buffer.data(), wanted, &got);
        if (!write_whole(output, buffer.data(), got))
            return error(output.name, "can't be written: " + errno_text());
        if (answer != VELK_OK) return report(archive, answer);
        if (got != wanted) return check_end(archive);
    }
    return kSuccess;
}

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
