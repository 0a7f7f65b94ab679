// The command `salvage`.
#include "platform/files.h"
#include "velkinfo/archive_blocks.h"
#include "velkinfo/commands.h"
#include "velkinfo/progress.h"
#include "velkinfo/survey.h"

#include <algorithm>
#include <cstdio>
#include <vector>
#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#endif

using namespace velk;

namespace {

using Number = unsigned long long; // what printf takes on every system

// As fopen with "wbx", which not every system knows: a file that appeared just now is not
// overwritten either.
std::FILE *create(const char *name) {
#ifdef _WIN32
    const int file = _open(name, _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
    return file < 0 ? nullptr : _fdopen(file, "wb");
#else
    return std::fopen(name, "wbx");
#endif
}

// Opens the output, which must not exist or, with `force`, not be the archive.
std::FILE *open_output(const char *name, const ArchiveFile &archive, bool force, std::string &why) {
    FileFacts there, facts;
    if (look_at(name, true, there)) {
        const bool same = !look_at(archive.name, true, facts) || same_file(there, facts);
        why = same ? "is the archive itself" : "exists; --force overwrites it";
        if (same || !force) return nullptr;
    }
    std::FILE *file = force ? std::fopen(name, "wb") : create(name);
    if (file == nullptr) why = "can't be written";
    return file;
}

bool write_zeros(std::FILE *output, std::uint64_t count) {
    const std::vector<char> zeros(65536);
    while (count != 0) {
        const std::size_t n =
            static_cast<std::size_t>(std::min<std::uint64_t>(count, zeros.size()));
        if (std::fwrite(zeros.data(), 1, n, output) != n) return false;
        count -= n;
    }
    return true;
}

// Whether there is an intact block, or nothing at all behind a header. Where the header
// does not tell it, sets N, which every block but the last restores to: from the first
// that restores and is not the last.
bool look_ahead(Restorer &restorer, ArchiveFile &archive, bool header_holds,
                std::uint32_t &block_size) {
    if (!header_holds) block_size = 0;
    Survey survey(archive, header_holds);
    bool intact = false, empty = header_holds;
    for (Extent extent; survey.next(extent); empty = false) {
        if (extent.data == 0) continue;
        intact = true;
        if (header_holds) break;
        std::uint32_t length;
        if (extent.end != archive.size &&
            restorer.restore(archive, extent.data, extent.end, length) != nullptr) {
            block_size = length;
            break;
        }
    }
    clear_progress();
    return intact || empty;
}

struct Tally {
    Number blocks, bytes; // restored
    Number lost_bytes;    // of the archive
    bool whole;           // no damage met
};

// Reports a lost extent; returns how many bytes of zeros stand for it.
std::uint64_t report_loss(const Extent &extent, bool at_end, std::uint32_t fill, Tally &tally) {
    tally.whole = false;
    tally.lost_bytes += extent.end - extent.begin;
    std::printf("bytes %llu to %llu lost, ", static_cast<Number>(extent.begin),
                static_cast<Number>(extent.end - 1));
    if (extent.heads != 0) {
        std::printf("%u block%s", extent.heads, extent.heads == 1 ? "" : "s");
    } else {
        std::printf("no head left, taken for one block");
    }
    // The last block of an archive may be of any length.
    const std::uint64_t blocks = std::max(extent.heads, 1u) - (at_end ? 1u : 0u);
    const std::uint64_t zeros = blocks * fill;
    if (zeros != 0) std::printf(", %llu zeros written", static_cast<Number>(zeros));
    std::printf("\n");
    return zeros;
}

bool write_extents(Restorer &restorer, ArchiveFile &archive, bool header_holds, std::uint32_t fill,
                   std::FILE *output, Tally &tally) {
    Survey survey(archive, header_holds);
    for (Extent extent; survey.next(extent);) {
        std::uint32_t length = 0;
        const std::uint8_t *const block =
            extent.data != 0 ? restorer.restore(archive, extent.data, extent.end, length) : nullptr;
        if (block != nullptr) {
            if (std::fwrite(block, 1, length, output) != length) return false;
            ++tally.blocks;
            tally.bytes += length;
            if (extent.kind == ExtentKind::kHeadLost) {
                tally.whole = false;
                std::printf("bytes %llu to %llu: the record head is lost, the block restored\n",
                            static_cast<Number>(extent.begin), static_cast<Number>(extent.end - 1));
            }
        } else {
            const std::uint64_t zeros =
                report_loss(extent, extent.end == archive.size, fill, tally);
            if (!write_zeros(output, zeros)) return false;
        }
    }
    clear_progress();
    return true;
}

} // namespace

int salvage_archive(const char *name, const char *output_name, const SalvageOptions &options) {
    ArchiveFile archive;
    Restorer restorer;
    std::string why;
    if (!open_archive(archive, name, why)) {
        complain(name, why.c_str());
        return 1;
    }
    archive.watch = show_progress;
    if (!restorer.prepare()) {
        complain(name, "not enough memory");
        return 1;
    }
    Settings settings{};
    std::uint32_t block_size = 0;
    const ArchiveStatus header = read_start(source_of(archive), settings, block_size);
    const bool header_holds = header == ArchiveStatus::kGood;
    if (!header_holds) std::printf("header lost: %s\n", text_of(header));
    if (!look_ahead(restorer, archive, header_holds, block_size)) {
        complain(name, "no intact block; nothing written");
        return 1;
    }

    std::FILE *const output = open_output(output_name, archive, options.force, why);
    if (output == nullptr) {
        complain(output_name, why.c_str());
        return 1;
    }
    Tally tally{};
    tally.whole = header_holds;
    const std::uint32_t fill = options.fill ? block_size : 0;
    const bool written = write_extents(restorer, archive, header_holds, fill, output, tally) &&
                         std::fflush(output) == 0;
    if (std::fclose(output) != 0 || !written) {
        complain(output_name, "write error");
        return 1;
    }
    std::printf("%llu %s restored, %llu bytes; %llu bytes of the archive lost\n", tally.blocks,
                tally.blocks == 1 ? "block" : "blocks", tally.bytes, tally.lost_bytes);
    return tally.whole ? 0 : 1;
}
