// Threads that code blocks, and the blocks on their way, which leave in the order in which
// they came.
//
//   caller                                workers
//   free_slot -> fills `data` -> submit -> copied in, coded, copied out
//   oldest_done -> uses `results` -> retire
//
// Only the caller of `open_queue` calls the functions below. Each worker brings memory for
// one block and two slots, so that it finds its next block when the one before is done. Of one
// thread alone that is the caller's: `submit` codes, and there is one slot.
#pragma once

#include "api/coder.h"

#include <cstddef>
#include <cstdint>
#include <pthread.h>

namespace velk {

// A block, or several together, on the way: what was read, then what it became.
struct Slot {
    std::uint8_t *data; // room for what is submitted
    BlockGroup blocks;
    const std::uint8_t *results; // in a row; null: a record that can't be restored
    bool done;                   // coded, or found damaged
    Slot *next;                  // in the list of free slots, or the next block
};

struct BlockQueue;

struct Worker {
    BlockQueue *queue;
    CoderContext context;
    std::uint8_t *memory; // of slots and trials
    std::uint8_t *trials; // memory for them; null: there are none
    pthread_t thread;
    Slot slots[2];
    Worker *next;
};

// Told by a worker that a block is done, while others are at work.
struct Notice {
    void (*tell)(void *user) = nullptr; // null: nobody is told
    void *user = nullptr;
};

struct BlockQueue {
    const Coder *coder = nullptr;
    CoderContext model{};         // of a worker's memory: settings and file size
    std::uint32_t block_size = 0; // bytes
    bool tries = false;           // how to cut what a slot holds into blocks
    Notice notice{};
    Worker own{}; // without a thread: the caller's, where it is alone
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

[[nodiscard]] inline bool is_alone(const BlockQueue &queue) {
    return queue.workers == &queue.own;
}

// queue: as constructed, and not to be moved until it is closed.
// Starts the first worker, or without a second one has the caller alone; either takes over
// `first`, the memory set up for one block. Returns false, with nothing taken over and nothing to
// close, when there is no memory for that.
[[nodiscard]] bool open_queue(BlockQueue &queue, const Coder &coder, const CoderContext &first,
                              bool tries, std::uint32_t max_workers, const Notice &notice);

// Bytes of memory that a worker takes beside that of its context.
[[nodiscard]] std::uint64_t worker_bytes(std::uint32_t block_size, bool tries, bool alone);

// A slot for the next block; null while all are under way. Starts another worker when all
// have work and one can be had.
Slot *free_slot(BlockQueue &queue);

// data: the slot's, or others', of which nothing is needed when this returns.
void submit(BlockQueue &queue, Slot *slot, const std::uint8_t *data);

// Makes a slot free that was not submitted.
void give_back(BlockQueue &queue, Slot *slot);

// The oldest block under way, once it is done; null when there is none, or when it is not
// done and `wait` is false.
Slot *oldest_done(BlockQueue &queue, bool wait);

// Makes the slot of the oldest block free.
void retire(BlockQueue &queue, Slot *slot);

// Waits for the blocks that workers have begun, and gives all memory back. The queue is as
// constructed again.
void close_queue(BlockQueue &queue);

} // namespace velk
