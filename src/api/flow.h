// An archive on its way, compressed or restored, by whoever holds the loop: the callbacks of a
// stream (stream.cpp), or a caller with buffers (flow.cpp, buffers.cpp). Nothing here waits but
// wait_for_output:
//
//   start_flow
//       next_output -> takes bytes from there -> take_output
//       next_input  -> puts bytes there       -> take_input
//       wait_for_output, where there is neither
//   end_flow
#pragma once

#include "api/block_queue.h"
#include "api/block_reader.h"
#include "api/growth.h"
#include "archive/member.h"

#include <cstdint>

struct velk_flow {
    velk::CheckedOptions options;
    const velk::Coder *coder;
    std::uint64_t input_size;   // as told
    velk::Notice notice;        // for the queue
    velk::CoderContext context; // as the threads have it; its memory is theirs
    velk::BlockQueue queue;
    enum class Phase { kStart, kBlocks, kEnd } phase; // of the member
    velk_status status;                               // but for VELK_OK, of all that is to come

    // What comes in: the blocks of an original, or the header, the records and the end of a member.
    velk::BlockReader reader;
    std::uint8_t start[velk::kFirstRecord];
    std::uint32_t start_len; // bytes of it
    velk::Slot *slot;        // for the record; null: none was free
    velk::RecordIntake intake;
    velk::MemberEnd end;
    bool last_submitted;     // no more blocks come: by the end of all,
    velk::ArchiveStatus met; // by bytes in place of a record, or
    velk_status failed;      // by a fault, which counts when all before it has been given

    // What goes out, piece by piece.
    const std::uint8_t *piece;
    std::uint32_t piece_left;    // bytes
    velk::Slot *oldest;          // whose blocks are given; null: none is done
    std::uint32_t number;        // of the block in it
    const std::uint8_t *result;  // of that block
    bool head_given, data_given; // of its record, or just the block
    std::uint8_t bytes[4096];    // of header, record head or index
    std::uint64_t entries_given;

    velk::Member member;                     // that is read or written
    velk::Growing<velk::IndexEntry> entries; // of the blocks written
    std::uint64_t entries_limit;             // bytes for them
    std::uint64_t archive_bytes;             // written
    velk_report report;                      // so far
    bool has_news; // in the report, of a block, an index or a member; for the loop to take back

    [[nodiscard]] bool compresses() const { return coder == &velk::kCompressor; }
};

namespace velk {

// flow: value-initialised; but for its `notice`. After anything but VELK_OK there is nothing to
// end.
[[nodiscard]] velk_status start_flow(velk_flow &flow, const Coder &coder,
                                     const velk_options *options, std::uint64_t input_size);
void end_flow(velk_flow &flow);

// Goes on as far as that needs neither input nor a wait. count: bytes that are to be taken now,
// with VELK_OK; 0: none. VELK_DONE when all is out, or what is wrong.
[[nodiscard]] velk_status next_output(velk_flow &flow, const std::uint8_t *&bytes,
                                      std::uint32_t &count);
void take_output(velk_flow &flow, std::uint32_t count);

// Called when no output is left. Where the next bytes of the input go, and how many at most;
// wanted = 0: none until a worker is done.
[[nodiscard]] std::uint8_t *next_input(velk_flow &flow, std::uint32_t &wanted);
// 0: the input ends.
void take_input(velk_flow &flow, std::uint32_t count);
// In place of that: it can't be read.
void fail_input(velk_flow &flow);

void wait_for_output(velk_flow &flow);

[[nodiscard]] velk_report report_of(const velk_flow &flow);

} // namespace velk
