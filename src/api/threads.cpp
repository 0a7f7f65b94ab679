// The processors and the signals, which each system counts and masks in its own way.
#include "api/threads.h"

#ifdef __linux__
#include <sched.h>
#endif
#ifndef _WIN32
#include <csignal>
#include <unistd.h>
#endif

namespace velk {

#ifdef _WIN32 // threads of MinGW's winpthreads

std::uint32_t processors() {
    return static_cast<std::uint32_t>(pthread_num_processors_np());
}

bool start_thread(pthread_t &thread, void *(*work)(void *), void *argument) {
    return pthread_create(&thread, nullptr, work, argument) == 0;
}

#else

std::uint32_t processors() {
#ifdef __linux__
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) == 0)
        return static_cast<std::uint32_t>(CPU_COUNT(&set));
#endif
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    return online < 1 ? 1 : static_cast<std::uint32_t>(online);
}

bool start_thread(pthread_t &thread, void *(*work)(void *), void *argument) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const bool started = pthread_create(&thread, nullptr, work, argument) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

#endif

} // namespace velk
