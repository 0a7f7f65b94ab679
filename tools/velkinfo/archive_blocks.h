// An archive file and its blocks: one after the other while it is whole, or from any place.
#pragma once

#include "archive/archive_io.h"
#include "archive/member.h"
#include "archive/memory.h"
#include "platform/files.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace velk {

struct ArchiveFile {
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> file{nullptr, std::fclose};
    std::uint64_t size = 0;     // bytes
    std::uint64_t position = 0; // of the next byte to be read in order
    std::string name;           // for messages
    FileFacts facts{};
    // Called before bytes at `offset` are read; may be null.
    void (*watch)(const ArchiveFile &archive, std::uint64_t offset) = nullptr;
};

// Opens a file, or for "-" the standard input. What can't be read at any place, as a pipe, is
// copied to a temporary file first. Returns false, with the reason in `why`, when it can't.
[[nodiscard]] bool open_archive(ArchiveFile &archive, const char *name, std::string &why);

// Its bytes, in order and from any place.
[[nodiscard]] ByteSource source_of(ArchiveFile &archive);
[[nodiscard]] PlacedSource places_of(ArchiveFile &archive);

// What is wrong, in words. length, trace: of a record's data and of its block.
[[nodiscard]] std::string text_of(ArchiveStatus status, std::uint32_t length = 0,
                                  const BlockTrace &trace = {});

// A context that gives its memory back.
struct RestoringContext : CoderContext {
    // cppcheck-suppress uninitDerivedMemberVar // a fault of the check: {} sets them
    RestoringContext() : CoderContext{} {}
    ~RestoringContext() { free_decompress(*this); }
    RestoringContext(const RestoringContext &) = delete;
    RestoringContext &operator=(const RestoringContext &) = delete;
};

// The walk through a whole archive from its first block to its last, and where it is.
struct BlockReader {
    ArchiveFile archive;
    RestoringContext context;    // buf_out holds the block
    RecordWalk walk;             // where skip_block is
    std::uint64_t number = 0;    // of the block, counted from 1 over all members
    std::uint64_t offset = 0;    // of its record in the archive
    std::uint32_t coded_len = 0; // bytes of the record, its head included
    BlockTrace trace{};          // what each stage made of its length when it was written

    std::uint8_t start[kFirstRecord] = {}; // the header of the member
    std::uint64_t begin = 0;               // its offset
    Member member{};
    std::vector<IndexedMember> found; // all members that skip_block has yet to take, the first
    std::uint32_t taken = 0;          // one last, where all have an index; entries of that taken

    // Of the members so far; the sizes of the original are known when the walk is over.
    std::uint64_t members = 0, least_size = 0, most_size = 0;
    bool indexed = false; // the first one
    bool whole = true;    // or else one may have been cut between two records
    bool bytes_follow = false;
};

// Reads the header of an archive that is open and takes the memory that its blocks need.
[[nodiscard]] ArchiveStatus start_blocks(BlockReader &reader);

// Restores the next block in memory. Returns kGood, kEnd, or what is wrong at the reader's
// `offset`, with the words for it in `why`; the walk is then over.
[[nodiscard]] ArchiveStatus next_block(BlockReader &reader, std::string &why);

// The same without restoring, by the indexes after use_indexes, else from head to head; the
// trace is left alone. Restored is only a block by which a plain member's end is known.
[[nodiscard]] ArchiveStatus skip_block(BlockReader &reader, std::string &why);
void use_indexes(BlockReader &reader);

// Restores blocks of any size and any stages: a header that is lost can't tell them.
class Restorer {
public:
    // Once more does nothing. False when there is not the memory.
    [[nodiscard]] bool prepare();
    // Restores the block whose data go from `begin` to `end`. Returns it, and its length,
    // or nullptr when it can't be undone.
    [[nodiscard]] const std::uint8_t *restore(ArchiveFile &archive, std::uint64_t begin,
                                              std::uint64_t end, std::uint32_t &length,
                                              BlockTrace &trace);

private:
    RestoringContext bwt_, st_; // memory for blocks sorted in one way or the other
    bool bwt_taken_ = false, st_taken_ = false;
};

// Reads `count` bytes at `offset`; false when they are not all there.
[[nodiscard]] bool read_at(ArchiveFile &archive, std::uint64_t offset, void *bytes,
                           std::uint32_t count);

} // namespace velk
