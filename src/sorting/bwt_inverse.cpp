// The walk back through the LF mapping.
//
//   LF vector, row r:  | LF(r) (24) | byte (8) |
//
// A row's byte, from the last column, precedes the row's rotation; LF(r) is the row of
// the rotation that begins with it. LF is a permutation of the rows, whatever the column.
//
// A walk waits for memory at every step. So it is cut into segments, and 32 lanes walk in
// lockstep, each a segment of its own: 6 to 14 times as fast as one walk, by how busy memory
// is. A segment's first row has its entry saved and replaced by a marker. A lane that meets a
// marker knows which segment follows its own, and takes another that none has walked yet. The
// bytes that the lanes read fill chunks, each from its last byte to its first:
//
//   | lane 0 | lane 1 | ... | lane 31 | lane 0 | lane 1 | ...
//
// The first chunk of each lane is on the stack, the others are in the buffer of the column.
// From the chunks the block is stitched together in the other buffer.
#include "base/byte_order.h"
#include "base/prefetch.h"
#include "pipeline/stage.h"
#include "sorting/bwt.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace velk {
namespace {

// 16 MB took 1.15 times as long with 24 lanes, and no less with 40 or 48.
constexpr std::uint32_t kLanes = 32;
// With more segments the end, when lanes find none left, is shorter.
constexpr std::uint32_t kMaxSegments = 1024;
constexpr std::uint32_t kChunkBytes = 128;

// Entries from here on are markers. Others are below 256 * n, and n + kBwtTrailerBytes below 2^24.
constexpr std::uint32_t kFirstMarker = 0u - kMaxSegments;
static_assert(kMaxSegments <= 256 * (kBwtTrailerBytes + 1));

// Steps are counted from the start of all walks. In each, every lane reads a byte.
struct Segment {
    std::uint32_t entry; // of its first row, where the marker is now
    std::uint32_t begin; // the first step of its lane in it
    std::uint32_t end;   // the first step behind it
    std::uint32_t next;  // the segment that follows
    std::uint32_t lane;  // the number of the lane that walked it
};

struct Lane {
    std::uint32_t entry; // of the row that it has come to
    std::uint32_t number;
    std::uint32_t segment;
    bool idle; // no segment was left for it
};

// A time during which the same lanes are at work. Each fills one chunk in every kChunkBytes steps.
struct Epoch {
    std::uint32_t begin;         // its first step
    std::uint32_t chunk;         // its first chunk
    std::uint32_t lanes;         // at work
    std::uint32_t place[kLanes]; // by the number of a lane: its place among those at work
};

struct Walks {
    std::uint32_t starts = 0;    // the number of segments
    std::uint32_t begun = 0;     // the number of segments that a lane has begun
    std::uint32_t all_lanes = 0; // at work at the start
    std::uint8_t *buffer;
    std::uint8_t first_chunks[kLanes * kChunkBytes];
    Segment segment[kMaxSegments];
    Lane lane[kLanes];       // those at work
    Epoch epoch[kLanes + 1]; // each with fewer lanes than the one before, the last with none
};

// Fills the LF vector, in six streams with counters of their own: next to each other,
// equal bytes would wait for their common counter. (1.6 times as fast.)
void make_lf_vector(const std::uint8_t *last_column, std::uint32_t n, std::uint32_t *lf) {
    constexpr std::uint32_t kStreams = 6;
    std::uint32_t next[kStreams][256] = {}; // first the number of rows, then the next entry
    const std::uint32_t part = n / kStreams;
    const auto for_each_row = [=](auto visit) {
        for (std::uint32_t row = 0; row < part; ++row) {
#pragma GCC unroll 6
            for (std::uint32_t stream = 0; stream < kStreams; ++stream)
                visit(stream, row + stream * part);
        }
        for (std::uint32_t row = kStreams * part; row < n; ++row)
            visit(kStreams - 1, row);
    };
    for_each_row(
        [&](std::uint32_t stream, std::uint32_t row) { ++next[stream][last_column[row]]; });
    std::uint32_t sum = 0;
    for (unsigned v = 0; v < 256; ++v) {
        for (auto &entries : next)
            sum += std::exchange(entries[v], sum << 8 | v);
    }
    for_each_row([&](std::uint32_t stream, std::uint32_t row) {
        std::uint32_t &entry = next[stream][last_column[row]];
        lf[row] = entry;
        entry += 1u << 8;
    });
}

// Sets the markers. The first segment starts at the primary row, and one more at a row of each
// of the other equal parts of the vector. The place in the part varies: in blocks of a regular
// structure, rows at equal distances lie close together on the walk.
void cut(std::uint32_t *lf, std::uint32_t n, std::uint32_t primary_row, Walks &w) {
    for (std::uint32_t i = 0; i < kMaxSegments; ++i) {
        const std::uint64_t row = (std::uint64_t{i} * n + i * 0x9E3779B1u % n) / kMaxSegments;
        std::uint32_t &entry = lf[i == 0 ? primary_row : row];
        if (entry >= kFirstMarker) continue;
        w.segment[w.starts].entry = entry;
        entry = kFirstMarker + w.starts++;
    }
}

// Has a lane begin the next segment. Returns the segment's first entry.
std::uint32_t begin(Walks &w, Lane &lane, std::uint32_t step) {
    lane.segment = w.begun++;
    Segment &s = w.segment[lane.segment];
    s.begin = step;
    s.lane = lane.number;
    return s.entry;
}

// The lane has met the marker of segment `next`. Returns the entry with which it goes on: that of
// a new segment or, if none is left, that of the row with the marker.
std::uint32_t meet_marker(Walks &w, Lane &lane, std::uint32_t next, std::uint32_t step) {
    if (!lane.idle) {
        w.segment[lane.segment].end = step;
        w.segment[lane.segment].next = next;
        if (w.begun < w.starts) return begin(w, lane, step);
        lane.idle = true;
    }
    return w.segment[next].entry;
}

// In its last chunk a lane wastes less than all of it. So behind the first chunk of each lane,
// n / kChunkBytes are enough, and the buffer holds them.
std::uint8_t *chunk_at(Walks &w, std::uint32_t chunk) {
    return chunk < w.all_lanes ? w.first_chunks + chunk * kChunkBytes
                               : w.buffer + (chunk - w.all_lanes) * kChunkBytes;
}

// Has the lanes at work fill a chunk each. Without the prefetch it takes 1.2 times as long, and
// as much when inlined: the caller's variables then take the registers.
[[gnu::noinline]] void fill_chunks(Walks &w, std::uint32_t lanes, const std::uint32_t *lf,
                                   std::uint8_t *chunks, std::uint32_t step) {
    for (std::uint32_t k = 1; k <= kChunkBytes; ++k) {
        for (std::uint32_t i = 0; i < lanes; ++i) {
            std::uint32_t entry = w.lane[i].entry;
            chunks[(i + 1) * kChunkBytes - k] = static_cast<std::uint8_t>(entry);
            entry = lf[entry >> 8];
            if (entry >= kFirstMarker) [[unlikely]]
                entry = meet_marker(w, w.lane[i], entry - kFirstMarker, step + k);
            prefetch(lf, std::uintptr_t{entry >> 8} * 4);
            w.lane[i].entry = entry;
        }
    }
}

// Walks all segments. All steps of lanes that are not idle take different rows.
void walk_segments(Walks &w, const std::uint32_t *lf) {
    std::uint32_t lanes = std::min(w.starts, kLanes);
    w.all_lanes = lanes;
    for (std::uint32_t i = 0; i < lanes; ++i) {
        w.lane[i] = {0, i, 0, false};
        w.lane[i].entry = begin(w, w.lane[i], 0);
    }
    std::uint32_t step = 0;
    std::uint32_t chunk = 0;
    for (Epoch *epoch = w.epoch;; ++epoch) {
        *epoch = {step, chunk, lanes, {}};
        for (std::uint32_t i = 0; i < lanes; ++i)
            epoch->place[w.lane[i].number] = i;
        if (lanes == 0) return;
        for (; lanes == epoch->lanes; step += kChunkBytes, chunk += epoch->lanes) {
            fill_chunks(w, lanes, lf, chunk_at(w, chunk), step);
            const auto idle = [](const Lane &lane) { return lane.idle; };
            lanes =
                static_cast<std::uint32_t>(std::remove_if(w.lane, w.lane + lanes, idle) - w.lane);
        }
    }
}

// Copies the segments of the primary row's cycle to the places before `block_end`, from
// the last to the first. Returns their length.
std::uint32_t stitch(Walks &w, std::uint8_t *block_end) {
    std::uint8_t *to = block_end;
    std::uint32_t segment = 0;
    do {
        const Segment &s = w.segment[segment];
        const Epoch *epoch = w.epoch;
        std::uint32_t bytes;
        for (std::uint32_t step = s.begin; step < s.end; step += bytes) {
            while (epoch[1].begin <= step)
                ++epoch;
            const std::uint32_t row = (step - epoch->begin) / kChunkBytes;
            const std::uint32_t chunk = epoch->chunk + row * epoch->lanes + epoch->place[s.lane];
            const std::uint32_t rest = kChunkBytes - step % kChunkBytes;
            bytes = std::min(rest, s.end - step);
            to -= bytes;
            // Not memcpy: GCC makes a slow loop of one of so few bytes.
            std::copy_n(chunk_at(w, chunk) + (rest - bytes), bytes, to);
        }
        segment = s.next;
    } while (segment != 0);
    return static_cast<std::uint32_t>(block_end - to);
}

// Restores a block from its LF vector. buffer: n bytes. block: n + 1 bytes.
void walk_in_lanes(std::uint32_t *lf, std::uint32_t n, std::uint32_t primary_row,
                   std::uint8_t *buffer, std::uint8_t *block) {
    Walks walks;
    walks.buffer = buffer;
    cut(lf, n, primary_row, walks);
    walk_segments(walks, lf);

    // The block's first byte is at block[n] until the end. A cycle shorter than the block (of a
    // periodic block or a damaged column) is repeated.
    const std::uint32_t cycle = stitch(walks, block + n + 1);
    for (std::uint32_t p = n - cycle; p > 0; --p)
        block[p] = block[p + cycle];
    block[0] = block[n];
}

} // namespace

bool bwt_inverse(std::uint32_t *work_area, std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                 std::uint32_t &out_len, std::uint32_t capacity) {
    if (undo_pass_on(in, len, out, out_len)) return true;
    if (len < kBwtTrailerBytes || len > capacity || work_area == nullptr) return false;
    const std::uint32_t n = len - kBwtTrailerBytes;
    const std::uint32_t primary_index = get_u32(in + n);
    if (primary_index < 1 || primary_index > n) return false;

    // The vector may reach into the lower buffer of the pair. The column goes to the upper one,
    // which then takes what the walks read.
    if (in < out) {
        std::memcpy(out, in, n);
        std::swap(in, out);
    }
    make_lf_vector(in, n, work_area);
    walk_in_lanes(work_area, n, primary_index - 1, in, out);
    out_len = n;
    return true;
}

} // namespace velk
