// The command `salvage`.
#include "platform/files.h"
#include "velkinfo/archive_blocks.h"
#include "velkinfo/commands.h"
#include "velkinfo/index_part.h"
#include "velkinfo/progress.h"
#include "velkinfo/survey.h"

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
    const bool known = header_holds && !is_marked(block_size);
    if (!known) block_size = 0;
    Survey survey(archive, header_holds);
    bool intact = false, empty = header_holds;
    for (Extent extent; survey.next(extent);) {
        empty = empty && extent.kind == ExtentKind::kFrame;
        if (extent.data == 0) continue;
        intact = true;
        if (known) break;
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

// Intact blocks where the entries put them, up to `most`.
std::uint64_t count_placed(ArchiveFile &archive, const IndexedPart &part, std::uint64_t most) {
    std::uint64_t count = 0, record = first_record(part);
    for (const IndexEntry &entry : part.entries) {
        if (count == most) break;
        count += place_of(archive, part, entry, record) != 0;
        record += kRecordHeadBytes + entry.data_len;
    }
    return count;
}

// Whether blocks lie where the entries put them, and a survey would find no more: then the
// entries are right, even where the index CRC can't tell, as the header is lost.
bool can_be_used(ArchiveFile &archive, const IndexedPart &part) {
    if (part.whole) return true;
    std::uint64_t found = 0;
    const std::uint64_t size = std::exchange(archive.size, part.end);
    Survey survey(archive, false, part.begin);
    for (Extent extent; survey.next(extent);)
        found += extent.data != 0;
    archive.size = size;
    const std::uint64_t placed = count_placed(archive, part, UINT64_MAX);
    return placed != 0 && placed >= found;
}

// Takes the members off the archive's end whose indexes can be used. Returns where the first of
// them, which comes last, begins.
std::uint64_t find_parts(ArchiveFile &archive, std::vector<IndexedPart> &parts) {
    std::uint64_t begin = archive.size;
    for (IndexedPart part;
         begin != 0 && find_part(archive, begin, part) && can_be_used(archive, part);) {
        begin = part.begin;
        parts.push_back(std::move(part));
    }
    clear_progress();
    return begin;
}

struct Tally {
    Number blocks, bytes; // restored
    Number lost_bytes;    // of the archive
    Number zeros;         // written for what a survey finds lost
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
    tally.zeros += zeros;
    return zeros;
}

// The one whose header is at `offset`, as far as it tells whether an index must come.
Member member_at(ArchiveFile &archive, std::uint64_t offset) {
    std::uint8_t start[kFirstRecord];
    Settings settings{};
    std::uint32_t block_size;
    const bool holds =
        read_at(archive, offset, start, kFirstRecord) &&
        parse_start(start, kFirstRecord, settings, block_size) == ArchiveStatus::kGood;
    return holds ? start_member(start, block_size) : Member{};
}

bool write_extents(Restorer &restorer, ArchiveFile &archive, bool header_holds, std::uint32_t fill,
                   std::FILE *output, Tally &tally) {
    Survey survey(archive, header_holds);
    Member member = member_at(archive, 0);
    const auto end_member_at = [&](std::uint64_t offset) {
        if (!needs_index(member)) return;
        tally.whole = false;
        std::printf("an index is missing at offset %llu: cut short, or damaged\n",
                    static_cast<Number>(offset));
    };
    for (Extent extent; survey.next(extent);) {
        std::uint32_t length = 0;
        if (extent.kind == ExtentKind::kFrame) {
            IndexedMember indexed;
            if (extent.end - extent.begin == kFirstRecord) {
                end_member_at(extent.begin);
                member = member_at(archive, extent.begin);
            } else if (!needs_index(member) || find_indexed(places_of(archive), extent.end,
                                                            indexed) == ArchiveStatus::kGood) {
                member = {};
            }
            continue;
        }
        const std::uint8_t *const block =
            extent.data != 0 ? restorer.restore(archive, extent.data, extent.end, length) : nullptr;
        if (block != nullptr) {
            if (std::fwrite(block, 1, length, output) != length) return false;
            ++tally.blocks;
            tally.bytes += length;
            if (++member.sum.records == 1) member.first_len = length;
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
    end_member_at(archive.size);
    clear_progress();
    return true;
}

// Writes the blocks of a member that its index tells of. start: of its bytes in the original.
bool write_part(Restorer &restorer, ArchiveFile &archive, const IndexedPart &part, bool fill,
                std::FILE *output, Tally &tally, std::uint64_t &start) {
    if (!part.whole) {
        tally.whole = false;
        std::printf("member at offset %llu: header, end mark or index is damaged; blocks are found "
                    "by the index\n",
                    static_cast<Number>(part.begin));
    }
    std::uint64_t record = first_record(part);
    for (const IndexEntry &entry : part.entries) {
        const std::uint64_t data = place_of(archive, part, entry, record);
        std::uint32_t length = 0, head_length;
        const std::uint8_t *const block =
            data != 0 ? restorer.restore(archive, data, data + entry.data_len, length) : nullptr;
        const Number first = start, last = start + entry.block_len - 1;
        if (block != nullptr && length == entry.block_len) {
            std::uint8_t head[kRecordHeadBytes];
            const bool head_holds = read_at(archive, data - kRecordHeadBytes, head, sizeof head) &&
                                    get_record_head(head, head_length) &&
                                    head_length == entry.data_len;
            const bool crc_holds = crc32_append(0, block, length) == entry.block_crc;
            if (!head_holds || !crc_holds) {
                tally.whole = false;
                std::printf("bytes %llu to %llu of the original restored, but %s\n", first, last,
                            crc_holds ? "the record head is lost"
                                      : "the index has another CRC for them");
            }
            if (std::fwrite(block, 1, length, output) != length) return false;
            ++tally.blocks;
            tally.bytes += length;
        } else {
            tally.whole = false;
            tally.lost_bytes += kRecordHeadBytes + entry.data_len;
            std::printf("bytes %llu to %llu of the original lost: %s\n", first, last,
                        fill ? "zeros written" : "left out");
            if (fill && !write_zeros(output, entry.block_len)) return false;
        }
        record += kRecordHeadBytes + entry.data_len;
        start += entry.block_len;
    }
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
    // What is before the members that have usable indexes is surveyed.
    std::vector<IndexedPart> parts;
    const std::uint64_t size = archive.size, front = find_parts(archive, parts);
    bool any = std::any_of(parts.begin(), parts.end(), [&](const IndexedPart &part) {
        return part.entries.empty() || count_placed(archive, part, 1) != 0;
    });
    archive.size = front;
    if (front != 0 || parts.empty()) any |= look_ahead(restorer, archive, header_holds, block_size);
    if (!any) {
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
    bool written =
        front == 0 || write_extents(restorer, archive, header_holds, fill, output, tally);
    archive.size = size;
    std::uint64_t start = tally.bytes + tally.zeros;
    for (std::size_t i = parts.size(); written && i-- > 0;)
        written = write_part(restorer, archive, parts[i], !options.no_fill, output, tally, start);
    written = written && std::fflush(output) == 0;
    clear_progress();
    if (std::fclose(output) != 0 || !written) {
        complain(output_name, "write error");
        return 1;
    }
    std::printf("%llu %s restored, %llu bytes; %llu bytes of the archive lost\n", tally.blocks,
                tally.blocks == 1 ? "block" : "blocks", tally.bytes, tally.lost_bytes);
    return tally.whole ? 0 : 1;
}
