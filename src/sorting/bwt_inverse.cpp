// The walk back through the LF mapping.
//
//   LF vector, row r:  | LF(r) (24) | byte (8) |
//
// A row's byte, from the last column, precedes the row's rotation; LF(r) is the row of
// the rotation that begins with it. LF is a permutation of the rows, whatever the column.
//
// A walk waits for memory at every step. So it is cut into segments, and 32 lanes walk in
// lockstep, each a segment of its own: 4 to 14 times as fast as one walk at 2 MiB, 6 to 13
// times at 16 MB, by how busy memory is. The entries of the rows where segments start are
// saved and replaced by markers; a lane that meets a marker has found that the marker's
// segment follows its own, and takes another that no lane has walked yet. What the lanes
// read fills chunks in the buffer of the column, each from its last byte to its first:
//
//   | lane 0 | lane 1 | ... | lane 31 | lane 0 | lane 1 | ...
//
// From the chunks the block is stitched together in the other buffer.
#include "pipeline/byte_order.h"
#include "pipeline/stage.h"
#include "sorting/bwt.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace velk {
namespace {

// 16 MB took 2.2 times as long with 8 lanes, 1.25 times with 16, 1.05 times with 48.
constexpr std::uint32_t kLanes = 32;
// With more segments the end, when lanes find none left, is shorter.
constexpr std::uint32_t kMaxSegments = 1024;
constexpr std::uint32_t kChunkBytes = 128;
// A block is cut from this length on; the vector of a shorter one is close at hand.
constexpr std::uint32_t kMinCut = 16384;

// Entries from here on are markers. All others are below n * 256, and with its trailer the
// column is shorter than 2^24 bytes.
constexpr std::uint32_t kFirstMarker = 0u - kMaxSegments;
static_assert(kMaxSegments <= 256 * (kBwtTrailerBytes + 1));

// The bytes of one walk: in a chunk, then in every chunk `stride` further on.
struct Segment {
    std::uint32_t entry; // the saved entry of its first row
    std::uint32_t chunk;
    std::uint32_t length;
    std::uint16_t next; // the segment that follows
    std::uint8_t skip;  // bytes of the segment before it in its first chunk
    std::uint8_t stride;
};
static_assert(kChunkBytes <= 256);

struct Lane {
    std::uint32_t entry; // of the row that it has come to
    std::uint32_t start; // of its segment, in bytes of the epoch
    std::uint16_t segment;
    bool idle;
};

// An epoch is a time during which the same lanes are at work.
struct Walks {
    std::uint32_t starts = 0;  // segments with a start row
    std::uint32_t begun = 0;   // those that a lane has begun
    std::uint32_t records = 0; // those and their continuations in later epochs
    std::uint32_t lanes = 0;   // at work in this epoch
    std::uint32_t epoch_chunk = 0;
    Lane lane[kLanes];
    // An epoch ends with a lane, so that of its k lanes at most k - 1 need a continuation.
    Segment segment[kMaxSegments + kLanes * (kLanes - 1) / 2];
};

// Chunks 0 to `split` - 1 are in the column's buffer, the others in `overflow`.
//
// Each lane wastes less than a chunk, so that (n - 1) / kChunkBytes + kLanes chunks are
// enough. From the first row of chunks on that no longer fits the column's buffer, they go
// to the overflow; up to kLanes - 1 chunks of the buffer are then left unused.
struct Chunks {
    std::uint8_t *buffer;
    std::uint32_t split = 0;
    std::uint8_t overflow[2 * kLanes * kChunkBytes];
};

// Whether `buffer` begins in the first `bytes` bytes of `work_area`. The difference
// wraps around for one that begins before it.
bool overlaps(const std::uint8_t *buffer, const std::uint32_t *work_area, std::uint32_t bytes) {
    const auto offset =
        reinterpret_cast<std::uintptr_t>(buffer) - reinterpret_cast<std::uintptr_t>(work_area);
    return offset < bytes;
}

// Fills the LF vector, in four streams with counters of their own: next to each other,
// equal bytes would wait for their common counter. (A sixth less time at 2 MiB.)
void make_lf_vector(const std::uint8_t *last_column, std::uint32_t n, std::uint32_t *lf) {
    constexpr std::uint32_t kStreams = 4;
    std::uint32_t next_row[kStreams][256] = {};
    const std::uint32_t part = n / kStreams;
    const auto for_each_row = [=](auto visit) {
        for (std::uint32_t row = 0; row < part; ++row) {
            for (std::uint32_t stream = 0; stream < kStreams; ++stream)
                visit(stream, row + stream * part);
        }
        for (std::uint32_t row = kStreams * part; row < n; ++row)
            visit(kStreams - 1, row);
    };
    for_each_row(
        [&](std::uint32_t stream, std::uint32_t row) { ++next_row[stream][last_column[row]]; });
    std::uint32_t sum = 0;
    for (unsigned v = 0; v < 256; ++v) {
        for (auto &rows : next_row)
            sum += std::exchange(rows[v], sum);
    }
    for_each_row([&](std::uint32_t stream, std::uint32_t row) {
        const std::uint8_t v = last_column[row];
        lf[row] = next_row[stream][v]++ << 8 | v;
    });
}

// Restores a block by a single walk.
void walk(const std::uint32_t *lf, std::uint32_t n, std::uint32_t primary_row,
          std::uint8_t *block) {
    std::uint32_t entry = lf[primary_row];
    block[0] = static_cast<std::uint8_t>(entry); // the walk begins with the first byte
    for (std::uint32_t p = n - 1; p > 0; --p) {
        entry = lf[entry >> 8];
        block[p] = static_cast<std::uint8_t>(entry);
    }
}

// Sets the markers: the primary row's segment is the first; a row of each of the
// `kMaxSegments - 1` equal parts of the vector starts one more. Where in its part, varies:
// rows at equal distances lie close together in blocks of a regular structure.
void cut(std::uint32_t *lf, std::uint32_t n, std::uint32_t primary_row, Walks &w) {
    const auto start_at = [&](std::uint32_t row) {
        if (lf[row] >= kFirstMarker) return;
        w.segment[w.starts].entry = lf[row];
        lf[row] = kFirstMarker + w.starts++;
    };
    start_at(primary_row);
    const std::uint32_t part = n / (kMaxSegments - 1);
    for (std::uint32_t i = 0; i < kMaxSegments - 1; ++i)
        start_at(i * part + i * 0x9E3779B1u % part);
    w.records = w.starts;
}

// Has lane `i` begin a segment `time` bytes after the start of the epoch.
void begin(Walks &w, std::uint32_t i, std::uint32_t segment, std::uint32_t time) {
    w.lane[i].segment = static_cast<std::uint16_t>(segment);
    w.lane[i].start = time;
    Segment &s = w.segment[segment];
    s.chunk = w.epoch_chunk + time / kChunkBytes * w.lanes + i;
    s.skip = static_cast<std::uint8_t>(time % kChunkBytes);
    s.stride = static_cast<std::uint8_t>(w.lanes);
}

void end(Walks &w, std::uint32_t i, std::uint32_t next, std::uint32_t time) {
    Segment &s = w.segment[w.lane[i].segment];
    s.length = time - w.lane[i].start;
    s.next = static_cast<std::uint16_t>(next);
}

// Lane `i` has met the marker of `next`. Returns the entry with which it goes on: a new
// segment's, or, if there is none, that of the row with the marker.
std::uint32_t turn(Walks &w, std::uint32_t i, std::uint32_t next, std::uint32_t time) {
    if (!w.lane[i].idle) {
        end(w, i, next, time);
        w.lane[i].idle = w.begun == w.starts;
        if (!w.lane[i].idle) {
            begin(w, i, w.begun, time);
            return w.segment[w.begun++].entry;
        }
    }
    return w.segment[next].entry;
}

// Has all lanes at work fill a chunk each. `width` is their number; a constant makes the
// loop over the lanes straight.
inline void fill_chunks(Walks &w, const std::uint32_t *lf, std::uint8_t *chunks, std::uint32_t time,
                        std::uint32_t width) {
    std::uint32_t entries[kLanes];
    for (std::uint32_t i = 0; i < width; ++i)
        entries[i] = w.lane[i].entry;
    for (std::uint32_t k = 1; k <= kChunkBytes; ++k) {
        for (std::uint32_t i = 0; i < width; ++i) {
            std::uint32_t entry = entries[i];
            chunks[(i + 1) * kChunkBytes - k] = static_cast<std::uint8_t>(entry);
            entry = lf[entry >> 8];
            if (entry >= kFirstMarker) entry = turn(w, i, entry - kFirstMarker, time + k);
            entries[i] = entry;
        }
    }
    for (std::uint32_t i = 0; i < width; ++i)
        w.lane[i].entry = entries[i];
}

// Begins a new epoch with the lanes that still have a segment. Those go on with a
// continuation of it.
void drop_idle_lanes(Walks &w, std::uint32_t &time) {
    const std::uint32_t lanes = static_cast<std::uint32_t>(
        std::count_if(w.lane, w.lane + w.lanes, [](const Lane &lane) { return !lane.idle; }));
    if (lanes == w.lanes) return;
    w.epoch_chunk += time / kChunkBytes * w.lanes;
    const std::uint32_t before = std::exchange(w.lanes, lanes);
    std::uint32_t i = 0;
    for (std::uint32_t from = 0; from < before; ++from) {
        if (w.lane[from].idle) continue;
        end(w, from, w.records, time);
        w.lane[i] = w.lane[from];
        begin(w, i++, w.records++, 0);
    }
    time = 0;
}

// Walks all segments. Every step of a lane that is not idle takes a row of its own.
void walk_segments(Walks &w, const std::uint32_t *lf, std::uint32_t n, Chunks &chunks) {
    w.lanes = std::min(w.starts, kLanes);
    for (std::uint32_t i = 0; i < w.lanes; ++i) {
        begin(w, i, w.begun, 0);
        w.lane[i].entry = w.segment[w.begun++].entry;
        w.lane[i].idle = false;
    }
    bool in_buffer = true;
    for (std::uint32_t time = 0; w.lanes > 0; drop_idle_lanes(w, time)) {
        const std::uint32_t chunk = w.epoch_chunk + time / kChunkBytes * w.lanes;
        if (in_buffer && chunk + w.lanes > n / kChunkBytes) {
            in_buffer = false;
            chunks.split = chunk;
        }
        std::uint8_t *const row = in_buffer
                                      ? chunks.buffer + chunk * kChunkBytes
                                      : chunks.overflow + (chunk - chunks.split) * kChunkBytes;
        if (w.lanes == kLanes) {
            fill_chunks(w, lf, row, time, kLanes);
        } else {
            fill_chunks(w, lf, row, time, w.lanes);
        }
        time += kChunkBytes;
    }
    if (in_buffer) chunks.split = w.epoch_chunk;
}

// Copies the segments of the primary row's cycle to the places before `block_end`, from
// the last to the first. Returns their length.
std::uint32_t stitch(const Walks &w, const Chunks &chunks, std::uint8_t *block_end) {
    std::uint8_t *to = block_end;
    std::uint32_t segment = 0;
    do {
        const Segment &s = w.segment[segment];
        std::uint32_t skip = s.skip;
        std::uint32_t rest = s.length;
        for (std::uint32_t chunk = s.chunk; rest > 0; chunk += s.stride) {
            const std::uint8_t *const from =
                chunk < chunks.split ? chunks.buffer + chunk * kChunkBytes
                                     : chunks.overflow + (chunk - chunks.split) * kChunkBytes;
            const std::uint32_t bytes = std::min(kChunkBytes - skip, rest);
            to -= bytes;
            std::memcpy(to, from + (kChunkBytes - skip - bytes), bytes);
            rest -= bytes;
            skip = 0;
        }
        segment = s.next;
    } while (segment != 0);
    return static_cast<std::uint32_t>(block_end - to);
}

// Restores a block by walks from many rows. chunks: n bytes. block: n + 1 bytes.
void walk_in_lanes(std::uint32_t *lf, std::uint32_t n, std::uint32_t primary_row,
                   std::uint8_t *buffer, std::uint8_t *block) {
    Walks walks;
    Chunks chunks;
    chunks.buffer = buffer;
    cut(lf, n, primary_row, walks);
    walk_segments(walks, lf, n, chunks);

    // The first byte is at the end until all are there. A cycle shorter than the block
    // (of a periodic block or a damaged column) is gone round again and again.
    const std::uint32_t cycle = stitch(walks, chunks, block + n + 1);
    for (std::uint32_t p = n - cycle; p > 0; --p)
        block[p] = block[p + cycle];
    block[0] = block[n];
}

} // namespace

bool bwt_inverse(std::uint32_t *work_area, std::uint8_t *&in, std::uint32_t len, std::uint8_t *&out,
                 std::uint32_t &out_len, std::uint32_t capacity) {
    if (len == 0 || len > capacity) return false;
    if (in[len - 1] == 0) {
        drop_trailer(in, len, out, out_len);
        return true;
    }
    if (len < kBwtTrailerBytes || work_area == nullptr) return false;
    const std::uint32_t n = len - kBwtTrailerBytes;
    const std::uint32_t primary_index = get_u32(in + n);
    if (primary_index < 1 || primary_index > n) return false;

    // The vector may reach into the lower buffer of the pair. The column must stay clear of
    // it, and its buffer then takes what the walks read.
    if (overlaps(in, work_area, 4 * n)) {
        std::memcpy(out, in, n);
        std::swap(in, out);
    }
    make_lf_vector(in, n, work_area);
    if (n < kMinCut) {
        walk(work_area, n, primary_index - 1, in);
        std::swap(in, out);
    } else {
        walk_in_lanes(work_area, n, primary_index - 1, in, out);
    }
    out_len = n;
    return true;
}

} // namespace velk
