// Threads that code blocks, and the blocks on their way, which leave in the order in which
// they came.
//
//   caller                                workers
//   free_slot -> fills `data` -> submit -> copied in, coded, copied out
//   oldest_done -> uses `data` -> retire
//
// Only the caller of `open_queue` calls the functions below. Each worker brings memory for
// one block and two slots, so that it finds its next block when the one before is done.
#pragma once

#include "api/coder.h"

#include <cstddef>
#include <cstdint>
#include <pthread.h>

namespace velk {

// A block, or several together, on the way: what was read, then what it became.
struct Slot {
    std::uint8_t *data;     // `slot_room` bytes
    BlockGroup blocks;      // in `data`
    std::uint64_t bytes_in; // of the input, up to their end
    bool done;              // coded, or found damaged
    bool whole;             // not damaged
    Slot *next;             // in the list of free slots, or the next block
};

struct Worker;

struct BlockQueue {
    const Coder *coder = nullptr;
    CoderContext model{};         // of a worker's memory: settings and file size
    std::uint32_t block_size = 0; // bytes
    bool tries = false;           // how to cut what a slot holds into blocks
    std::uint32_t max_workers = 0;
    std::uint32_t worker_count = 0;
    std::uint32_t under_way = 0; // blocks
    Worker *workers = nullptr;   // a list
    Slot *free_slots = nullptr;  // a list
    Slot *oldest = nullptr;      // the blocks under way, in order
    Slot *newest = nullptr;

    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;   // guards the rest, and in the slots
    pthread_cond_t submitted = PTHREAD_COND_INITIALIZER; // under way all but their data
    pthread_cond_t coded = PTHREAD_COND_INITIALIZER;
    Slot *waiting = nullptr; // the first block that no worker has taken
    bool closing = false;
};

// queue: as constructed, and not to be moved until it is closed.
// Starts the first worker, which takes over `first`, the memory set up for one block.
// Returns false, with nothing taken over and nothing to close, when there can be none.
[[nodiscard]] bool open_queue(BlockQueue &queue, const Coder &coder, const CoderContext &first,
                              bool tries, std::uint32_t max_workers);

// Bytes of memory that a worker takes beside that of its context.
[[nodiscard]] std::uint64_t worker_bytes(std::uint32_t block_size, bool tries);

// A slot for the next block; null while all are under way. Starts another worker when all
// have work and one can be had.
Slot *free_slot(BlockQueue &queue);

void submit(BlockQueue &queue, Slot *slot);

// Makes a slot free that was not submitted.
void give_back(BlockQueue &queue, Slot *slot);

// The oldest block under way, once it is done; null when there is none, or when it is not
// done and `wait` is false.
Slot *oldest_done(BlockQueue &queue, bool wait);

// Makes the slot of the oldest block free.
void retire(BlockQueue &queue, Slot *slot);

// Waits for the blocks that workers have begun, and gives all memory back.
void close_queue(BlockQueue &queue);

} // namespace velk
