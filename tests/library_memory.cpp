#include "library_memory.h"

#include <atomic>
#include <cerrno>
#include <malloc.h>
#include <pthread.h>

namespace {

std::atomic<bool> watching, any_failed;
std::atomic<int> good_allocations_left, good_threads_left;
std::atomic<std::size_t> bytes_held, most_bytes_held;

bool may_go_well(std::atomic<int> &left) {
    if (!watching || left < 0 || left-- > 0) return true;
    left = 0;
    any_failed = true;
    return false;
}

void *taken(void *memory) {
    if (!watching || memory == nullptr) return memory;
    const std::size_t held = bytes_held += malloc_usable_size(memory);
    std::size_t most = most_bytes_held;
    while (held > most && !most_bytes_held.compare_exchange_weak(most, held)) {
    }
    return memory;
}

void given_back(void *memory) {
    if (watching && memory != nullptr) bytes_held -= malloc_usable_size(memory);
}

} // namespace

MemoryWatch::MemoryWatch(int good_allocations, int good_threads) {
    good_allocations_left = good_allocations;
    good_threads_left = good_threads;
    bytes_held = most_bytes_held = 0;
    any_failed = false;
    watching = true;
}

MemoryWatch::~MemoryWatch() {
    watching = false;
}

bool MemoryWatch::failed() const {
    return any_failed;
}

std::size_t MemoryWatch::held() const {
    return bytes_held;
}

std::size_t MemoryWatch::most_held() const {
    return most_bytes_held;
}

extern "C" {

using ThreadMain = void *(void *);
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *memory, std::size_t size);
void __real_free(void *memory);
int __real_pthread_create(pthread_t *, const pthread_attr_t *, ThreadMain *, void *);

void *__wrap_malloc(std::size_t size) {
    return may_go_well(good_allocations_left) ? taken(__real_malloc(size)) : nullptr;
}

void *__wrap_calloc(std::size_t count, std::size_t size) {
    return may_go_well(good_allocations_left) ? taken(__real_calloc(count, size)) : nullptr;
}

void *__wrap_realloc(void *memory, std::size_t size) {
    if (!may_go_well(good_allocations_left)) return nullptr;
    given_back(memory);
    return taken(__real_realloc(memory, size));
}

void __wrap_free(void *memory) {
    given_back(memory);
    __real_free(memory);
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, ThreadMain *main,
                          void *argument) {
    if (!may_go_well(good_threads_left)) return EAGAIN;
    return __real_pthread_create(thread, attributes, main, argument);
}

} // extern "C"
