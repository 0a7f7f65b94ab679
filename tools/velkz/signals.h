// Signals that end the program, and the one file that is to be removed then.
#pragma once

#include "platform/files.h"

// SIGINT and its like, or what ends programs of a Windows console, remove the file and then
// do what they always do. What the caller had ignored stays ignored.
void catch_signals();

// A file in a folder; null: none. Both must stay where they are until the next call.
void remove_on_signal(const velk::Folder *folder, const std::string *name);

// Holds those signals back, once at a time, so that a file and the knowledge of it appear and
// vanish at once.
class SignalsHeld {
public:
    SignalsHeld();
    ~SignalsHeld();
    SignalsHeld(const SignalsHeld &) = delete;
    SignalsHeld &operator=(const SignalsHeld &) = delete;
};
