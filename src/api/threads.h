// What systems with POSIX threads don't have in common.
#pragma once

#include <cstdint>
#include <pthread.h>

namespace velk {

// How many processors this process may use, at least 1.
[[nodiscard]] std::uint32_t processors();

// As pthread_create; the thread takes none of the program's signals. Returns whether it runs.
[[nodiscard]] bool start_thread(pthread_t &thread, void *(*work)(void *), void *argument);

} // namespace velk
