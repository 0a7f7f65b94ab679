#include "signals.h"

#include "progress.h"

#include <atomic>
#include <csignal>

namespace {

// All that end a program unasked, but for faults of its own and SIGKILL.
constexpr int kDeadly[] = {
    SIGHUP,  SIGINT,  SIGQUIT, SIGPIPE,   SIGTERM, SIGXCPU,
    SIGALRM, SIGUSR1, SIGUSR2, SIGVTALRM, SIGPROF,
#ifdef SIGPOLL
    SIGPOLL,
#endif
#ifdef SIGPWR
    SIGPWR,
#endif
};

// Written while the signals are held.
const velk::Folder *folder;
std::atomic<const std::string *> unfinished = nullptr;
static_assert(std::atomic<const std::string *>::is_always_lock_free); // for the handler

sigset_t before_held;

sigset_t deadly_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : kDeadly)
        sigaddset(&set, number);
    return set;
}

// SA_RESETHAND has restored the default, which ends the program as this returns.
void end_by(int number) {
    const std::string *const name = unfinished;
    if (name != nullptr) velk::remove_file(*folder, *name);
    clear_progress();
    raise(number);
}

} // namespace

void catch_signals() {
    struct sigaction action = {}, before;
    action.sa_handler = end_by;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    action.sa_mask = deadly_signals();
    for (const int number : kDeadly) {
        if (sigaction(number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            sigaction(number, &action, nullptr);
    }
    // A limit on file sizes is to be met as a full disk is: by a message.
    std::signal(SIGXFSZ, SIG_IGN);
}

void remove_on_signal(const velk::Folder *its_folder, const std::string *name) {
    folder = its_folder;
    unfinished = name;
}

SignalsHeld::SignalsHeld() {
    const sigset_t set = deadly_signals();
    sigprocmask(SIG_BLOCK, &set, &before_held);
}

SignalsHeld::~SignalsHeld() {
    sigprocmask(SIG_SETMASK, &before_held, nullptr);
}
