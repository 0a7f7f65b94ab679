// In place of POSIX threads, which WebAssembly has none of: locks that are never contended, and
// waits that never come.
#pragma once

using pthread_t = int;
struct pthread_mutex_t {};
struct pthread_cond_t {};
#define PTHREAD_MUTEX_INITIALIZER                                                                  \
    {}
#define PTHREAD_COND_INITIALIZER                                                                   \
    {}

inline void pthread_mutex_lock(pthread_mutex_t *) {}
inline void pthread_mutex_unlock(pthread_mutex_t *) {}
inline void pthread_mutex_destroy(pthread_mutex_t *) {}
inline void pthread_cond_wait(pthread_cond_t *, pthread_mutex_t *) {}
inline void pthread_cond_signal(pthread_cond_t *) {}
inline void pthread_cond_broadcast(pthread_cond_t *) {}
inline void pthread_cond_destroy(pthread_cond_t *) {}
inline void pthread_join(pthread_t, void **) {}
