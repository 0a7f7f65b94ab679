#include "library_memory.h"

#include <cerrno>
#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

MemoryWatch memory_watch;

void MemoryWatch::restart(int allocations, int threads) {
    good_allocations = allocations;
    good_threads = threads;
    failed = false;
    held = most_held = 0;
    started = 0;
}

namespace {

bool goes_well(std::atomic<int> &left) {
    if (left < 0 || left-- > 0) return true;
    left = 0;
    memory_watch.failed = true;
    return false;
}

void *taken(void *memory) {
    const long held = memory_watch.held += static_cast<long>(malloc_usable_size(memory));
    for (long most = memory_watch.most_held; held > most;) {
        if (memory_watch.most_held.compare_exchange_weak(most, held)) break;
    }
    return memory;
}

void given_back(void *memory) {
    memory_watch.held -= static_cast<long>(malloc_usable_size(memory));
}

} // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives the names

using ThreadMain = void *(void *);
std::atomic<ThreadMain *> thread_main;
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
int __real_posix_memalign(void **memory, std::size_t alignment, std::size_t size);
void *__real_realloc(void *memory, std::size_t size);
void __real_free(void *memory);
int __real_pthread_create(pthread_t *, const pthread_attr_t *, ThreadMain *, void *);

void *__wrap_malloc(std::size_t size) {
    return goes_well(memory_watch.good_allocations) ? taken(__real_malloc(size)) : nullptr;
}

void *__wrap_calloc(std::size_t count, std::size_t size) {
    return goes_well(memory_watch.good_allocations) ? taken(__real_calloc(count, size)) : nullptr;
}

int __wrap_posix_memalign(void **memory, std::size_t alignment, std::size_t size) {
    if (!goes_well(memory_watch.good_allocations)) return ENOMEM;
    const int status = __real_posix_memalign(memory, alignment, size);
    if (status == 0) taken(*memory);
    return status;
}

void *__wrap_realloc(void *memory, std::size_t size) {
    if (!goes_well(memory_watch.good_allocations)) return nullptr;
    given_back(memory);
    return taken(__real_realloc(memory, size));
}

void __wrap_free(void *memory) {
    given_back(memory);
    __real_free(memory);
}

void *wait_and_work(void *argument) {
    for (int i = 0; memory_watch.waiting && i < 1000; ++i)
        usleep(10000);
    return thread_main.load()(argument);
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, ThreadMain *main,
                          void *argument) {
    if (!goes_well(memory_watch.good_threads)) return EAGAIN;
    ++memory_watch.started;
    thread_main = main;
    return __real_pthread_create(thread, attributes, wait_and_work, argument);
}

// NOLINTEND(bugprone-reserved-identifier)
} // extern "C"
