// The command `salvage`.
#include "platform/files.h"
#include "velkinfo/block_walk.h"
#include "velkinfo/commands.h"
#include "velkinfo/progress.h"

#include <algorithm>
#include <cstdio>
#include <utility>
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
    FileFacts there;
    if (look_at(name, true, there)) {
        const bool same = same_file(there, archive.facts);
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

} // namespace

int salvage_archive(const char *name, const char *output_name, const SalvageOptions &options) {
    Restorer restorer;
    BlockWalk walk(restorer);
    const ArchiveFile &archive = walk.reader.archive;
    std::string why;
    walk.reader.archive.watch = show_progress;
    if (!walk.open(name, nullptr, why)) {
        complain(archive.name, why);
        return 1;
    }
    std::FILE *output = nullptr;
    bool whole = true, written = true;
    Number blocks = 0, bytes = 0, lost = 0, all_zeros = 0;
    // Zeros before the next block, and lost blocks of an unknown length N, which every block but
    // the last restores to: the first that restores and is not the last tells it.
    std::uint64_t zeros = 0, unsized = 0, block_size = 0;
    const auto open = [&] {
        if (output == nullptr) output = open_output(output_name, archive, options.force, why);
        if (output == nullptr) complain(output_name, why);
        return output != nullptr;
    };
    for (Finding found; written && walk.next(found);) {
        if (!found.damage.empty()) {
            whole = false;
            clear_progress();
            std::printf("%s\n", found.damage.c_str());
        }
        if (found.bytes == nullptr) {
            lost += found.end - found.begin;
            const bool fill = found.by_index ? !options.no_fill : options.fill && !found.last;
            if (found.number == 0 || !fill) continue;
            const std::uint32_t n = is_marked(found.most) ? 0 : found.most;
            const std::uint64_t size = found.size != 0 ? found.size : n != 0 ? n : block_size;
            zeros += size;
            unsized += size == 0;
            continue;
        }
        if (block_size == 0 && !found.last && !found.by_index) block_size = found.size;
        if (!open()) return 1;
        zeros += std::exchange(unsized, 0) * block_size;
        const std::size_t size = static_cast<std::size_t>(found.size);
        written = write_zeros(output, zeros) && std::fwrite(found.bytes, 1, size, output) == size;
        all_zeros += std::exchange(zeros, 0);
        bytes += found.size;
        ++blocks;
    }
    clear_progress();
    if (blocks == 0 && !whole) {
        complain(archive.name, "no intact block; nothing written");
        return 1;
    }
    if (!open()) return 1;
    written = written && write_zeros(output, zeros) && std::fflush(output) == 0;
    if (std::fclose(output) != 0 || !written) {
        complain(output_name, "write error");
        return 1;
    }
    std::printf("%llu %s restored, %llu bytes; %llu bytes of the archive lost", blocks,
                blocks == 1 ? "block" : "blocks", bytes, lost);
    if (all_zeros + zeros != 0) std::printf(", %llu zeros written", all_zeros + zeros);
    std::printf("\n");
    return whole ? 0 : 1;
}
