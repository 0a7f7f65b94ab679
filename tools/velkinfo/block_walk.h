// The walk through all blocks of an archive, behind damage by what is left of it.
#pragma once

#include "velkinfo/index_part.h"
#include "velkinfo/survey.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velk {

// A block, or damage to anything else.
struct Finding {
    std::uint64_t begin, end;  // bytes of the archive: the record, or what is damaged
    std::uint64_t number;      // of the block, counted from 1 over all members; 0: it is none
    std::uint64_t size;        // of the block, bytes of the original; 0: not known
    std::uint32_t most;        // N, which it can't exceed; 0: not known
    bool head_left;            // of a lost block; or else it may be several
    bool by_index;             // an index tells of it
    bool last;                 // if none does: the last one of its member, perhaps a shorter one
    const std::uint8_t *bytes; // of the block, until the next step; nullptr: not restored
    BlockTrace trace;          // as far as it was restored
    std::string damage;        // in words, with the place and what is lost; empty: none
};

// By the reader as far as the archive is whole. Behind that every member at the archive's end
// whose index can be used tells of its blocks, which are found even where bytes got lost or were
// put in; all before those is surveyed.
class BlockWalk {
public:
    using Step = ArchiveStatus (*)(BlockReader &reader, std::string &why); // next_block, skip_block

    // restorer: for what is left; its memory is taken when it is needed.
    explicit BlockWalk(Restorer &restorer) : restorer_(restorer) {}

    // Opens the archive. step: nullptr goes by what is left from the start on. False, with the
    // reason in `why`, when it can't be read or, but for nullptr, is no archive.
    [[nodiscard]] bool open(const char *name, Step step, std::string &why);
    // The same of an archive that the reader has open.
    [[nodiscard]] bool start(Step step, std::string &why);

    // The next block, or damage. False at the archive's end.
    [[nodiscard]] bool next(Finding &found);

    BlockReader reader; // members behind damage are counted, too

private:
    bool start_left(std::uint64_t from, bool header_holds);
    void find_parts();
    bool next_whole(Finding &found);
    bool next_left(Finding &found);
    bool next_surveyed(Finding &found);
    bool take_frame(Finding &found);
    void take_lost(Extent &extent, Finding &found);
    bool next_entry(IndexedPart &part, Finding &found);
    bool restore(std::uint64_t data, Finding &found);

    Step step_ = nullptr; // nullptr: by what is left
    std::uint64_t numbers_ = 0;
    std::uint64_t start_ = 0; // where the next block begins in the original ...
    bool placed_ = true;      // ... if that is known

    // What is left.
    std::uint64_t from_ = 0;                // all before it has been read
    ArchiveStatus met_{};                   // there
    std::uint64_t size_ = 0;                // of the archive
    std::optional<Survey> survey_;          // of what is before the parts
    Extent rest_{};                         // that it found last
    Member member_{};                       // where it is
    bool closed_ = false;                   // that member, by an end mark
    std::vector<IndexedPart> parts_;        // the first one last
    std::size_t entry_ = 0;                 // of that, the next one
    std::uint64_t record_ = 0, behind_ = 0; // where it begins by the sums, by what is before it
    Restorer &restorer_;
};

} // namespace velk
