// Signals that end the program, and the one file that is to be removed then.
#pragma once

#include <csignal>

// SIGINT and its like remove the file and then do what they always do. What the caller had
// ignored stays ignored.
void catch_signals();

// The name of the file; null: none. It must stay where it is until the next call.
void remove_on_signal(const char *path);

// Holds those signals back, so that a file and the knowledge of it appear and vanish at once.
class SignalsHeld {
public:
    SignalsHeld();
    ~SignalsHeld();
    SignalsHeld(const SignalsHeld &) = delete;
    SignalsHeld &operator=(const SignalsHeld &) = delete;

private:
    sigset_t before_;
};
