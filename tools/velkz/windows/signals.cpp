// Ctrl-C and closed consoles: the handler runs in a thread of its own.
#include "signals.h"

#include "progress.h"

#include <mutex>
#include <windows.h>

namespace {

std::mutex holding; // guards the name
const velk::Folder *folder;
const std::string *unfinished = nullptr;

// Runs in a thread of its own, and the program ends as it returns: what it removed is not to
// be given a name before.
BOOL WINAPI end_by(DWORD) {
    holding.lock();
    if (unfinished != nullptr) velk::remove_file(*folder, *unfinished);
    clear_progress();
    return FALSE;
}

} // namespace

void catch_signals() {
    SetConsoleCtrlHandler(end_by, TRUE);
}

void remove_on_signal(const velk::Folder *its_folder, const std::string *name) {
    folder = its_folder;
    unfinished = name;
}

SignalsHeld::SignalsHeld() {
    holding.lock();
}

SignalsHeld::~SignalsHeld() {
    holding.unlock();
}
