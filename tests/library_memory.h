// Watches, and upsets, the memory and the threads that libvelk takes: the tests are linked
// so that its calls of malloc, calloc, realloc, free and pthread_create come here.
#pragma once

#include <cstddef>

struct MemoryWatch {
    MemoryWatch(int good_allocations, int good_threads); // then all fail; below 0: none does
    ~MemoryWatch();
    MemoryWatch(const MemoryWatch &) = delete;
    MemoryWatch &operator=(const MemoryWatch &) = delete;

    bool failed() const;      // whether a call was made to fail
    std::size_t held() const; // bytes not given back
    std::size_t most_held() const;
};
