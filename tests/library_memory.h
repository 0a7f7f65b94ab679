// Upsets and counts what libvelk takes: the tests are linked so that its calls of malloc,
// calloc, posix_memalign, realloc, free and pthread_create come here.
#pragma once

#include <atomic>

// Since the last `restart`.
struct MemoryWatch {
    std::atomic<int> good_allocations = -1, good_threads = -1; // then all fail; -1: none does
    std::atomic<bool> failed = false;
    std::atomic<long> held = 0, most_held = 0; // bytes
    std::atomic<int> started = 0;              // threads
    std::atomic<bool> waiting = false;         // threads set to work when it is false again
    void restart(int allocations, int threads);
};

extern MemoryWatch memory_watch;
