// Keeps large arrays that are given back for the next run, as mapping them, clearing them and
// returning them to the system takes longer than a short run. A kept array is poisoned and fits a
// later one to the byte, so the address sanitizer sees what it saw before. But the bytes in it
// are an earlier run's, as they may be in any memory of malloc: a fault that comes of reading
// them need not repeat from its input alone.
#include <algorithm>
#include <cstdlib>
#include <malloc.h>
#include <mutex>
#include <sanitizer/asan_interface.h>

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives the names

void *__real_malloc(std::size_t size);
int __real_posix_memalign(void **memory, std::size_t alignment, std::size_t size);
void __real_free(void *memory);

} // extern "C"

namespace {

constexpr std::size_t kSmallest = 1 << 16, kLargest = 1 << 24; // bytes
constexpr std::size_t kMost = 24;

struct Array {
    void *memory;
    std::size_t size;
};

std::mutex mutex;
Array kept[kMost]; // the one kept longest first
std::size_t count;

// Leaves nothing behind that would hide a leak.
void *take(std::size_t place) {
    const Array array = kept[place];
    std::copy(kept + place + 1, kept + count, kept + place);
    kept[--count] = {};
    ASAN_UNPOISON_MEMORY_REGION(array.memory, array.size);
    return array.memory;
}

void *take_kept(std::size_t alignment, std::size_t size) {
    if (size < kSmallest) return nullptr;
    const std::lock_guard lock(mutex);
    for (std::size_t place = count; place-- > 0;) {
        const auto address = reinterpret_cast<std::size_t>(kept[place].memory);
        if (kept[place].size == size && address % alignment == 0) return take(place);
    }
    return nullptr;
}

} // namespace

extern "C" {

void *__wrap_malloc(std::size_t size) {
    void *const memory = take_kept(1, size);
    return memory != nullptr ? memory : __real_malloc(size);
}

int __wrap_posix_memalign(void **memory, std::size_t alignment, std::size_t size) {
    *memory = take_kept(alignment, size);
    return *memory != nullptr ? 0 : __real_posix_memalign(memory, alignment, size);
}

void __wrap_free(void *memory) {
    const std::size_t size = malloc_usable_size(memory);
    if (size >= kSmallest && size <= kLargest) {
        const std::lock_guard lock(mutex);
        for (const Array &array : kept) {
            if (array.memory == memory) std::abort(); // given back twice
        }
        void *const oldest = count == kMost ? take(0) : nullptr;
        ASAN_POISON_MEMORY_REGION(memory, size);
        kept[count++] = {memory, size};
        memory = oldest;
    }
    __real_free(memory);
}

// NOLINTEND(bugprone-reserved-identifier)
} // extern "C"
