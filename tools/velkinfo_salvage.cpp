// The command `salvage`.
#include "archive/memory.h"
#include "archive_reader.h"
#include "cli/file_names.h"
#include "pipeline/crc32.h"
#include "velkinfo.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <utility>
#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#endif

namespace {

namespace fs = std::filesystem;

using Number = unsigned long long; // what printf takes on every system

// Restores blocks of any size and any stages: a header that is lost can't tell them.
class Restorer {
public:
    ~Restorer() {
        free_decompress(bwt_);
        free_decompress(st_);
    }
    // False when there is not the memory.
    bool prepare() {
        bwt_.settings.st_off = 1;
        st_.settings.bwt_off = 1;
        return alloc_decompress(bwt_, kMaxBlockSize) != 0 &&
               alloc_decompress(st_, kMaxBlockSize) != 0;
    }
    // The restored block and its length; nullptr when it can't be undone.
    const std::uint8_t *restore(ArchiveFile &archive, const Extent &extent, std::uint32_t &length) {
        for (CoderContext *context : {&bwt_, &st_}) {
            context->in_len = static_cast<std::uint32_t>(extent.end - extent.data);
            if (read_at(archive, extent.data, context->buf_in, context->in_len) &&
                decompress_block(*context)) {
                length = context->out_len;
                return context->buf_out;
            }
        }
        return nullptr;
    }
    std::uint8_t *buffer() { return bwt_.buf_in; }

private:
    CoderContext bwt_{}, st_{}; // memory for blocks sorted in one way or the other
};

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
    std::error_code error;
    if (fs::exists(path_of(name), error)) {
        const bool same = fs::equivalent(path_of(archive.name), path_of(name), error);
        why = same || error ? "is the archive itself" : "exists; --force overwrites it";
        if (same || error || !force) return nullptr;
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

// N, which every block but the last restores to: from the header or else from the
// first intact block that is not the last. 0: unknown.
std::uint32_t find_block_size(Restorer &restorer, ArchiveFile &archive,
                              const std::vector<Extent> &extents) {
    for (std::size_t i = 0; i + 1 < extents.size(); ++i) {
        std::uint32_t length;
        if (extents[i].data != 0 && restorer.restore(archive, extents[i], length) != nullptr)
            return length;
    }
    return 0;
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

bool write_extents(Restorer &restorer, ArchiveFile &archive, const std::vector<Extent> &extents,
                   std::uint32_t fill, std::FILE *output, Tally &tally) {
    for (const Extent &extent : extents) {
        std::uint32_t length = 0;
        const std::uint8_t *const block =
            extent.data != 0 ? restorer.restore(archive, extent, length) : nullptr;
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
                report_loss(extent, &extent == &extents.back(), fill, tally);
            if (!write_zeros(output, zeros)) return false;
        }
        show_progress(archive, extent.begin);
    }
    show_progress(archive, archive.size);
    return true;
}

} // namespace

int salvage_archive(const char *name, const char *output_name, const SalvageOptions &options) {
    crc32_init();
    ArchiveFile archive;
    Restorer restorer;
    std::string why;
    if (!open_archive(archive, name, why)) {
        complain(name, why.c_str());
        return 1;
    }
    if (!restorer.prepare()) {
        complain(name, "not enough memory");
        return 1;
    }
    Settings settings{};
    std::uint32_t block_size = 0;
    const bool header_holds = read_header(archive, settings, block_size, why);
    if (!header_holds) std::printf("header lost: %s\n", why.c_str());
    const std::vector<Extent> extents = survey(archive, header_holds, restorer.buffer());
    if (!header_holds) block_size = find_block_size(restorer, archive, extents);
    const auto lost = [](const Extent &extent) { return extent.kind == ExtentKind::kLost; };
    const bool empty_archive = header_holds && extents.empty();
    if (!empty_archive && std::all_of(extents.begin(), extents.end(), lost)) {
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
    const bool written =
        write_extents(restorer, archive, extents, fill, output, tally) && std::fflush(output) == 0;
    if (std::fclose(output) != 0 || !written) {
        complain(output_name, "write error");
        return 1;
    }
    std::printf("%llu %s restored, %llu bytes; %llu bytes of the archive lost\n", tally.blocks,
                tally.blocks == 1 ? "block" : "blocks", tally.bytes, tally.lost_bytes);
    return tally.whole ? 0 : 1;
}
