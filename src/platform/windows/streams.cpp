#include "platform/streams.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace velk {
namespace {

HANDLE handle_of(int fd) {
    return reinterpret_cast<HANDLE>(_get_osfhandle(fd));
}

UINT console_had; // a code page

void restore_console() {
    SetConsoleOutputCP(console_had);
}

BOOL WINAPI restore_at_end(DWORD) {
    restore_console();
    return FALSE; // ends the program
}

// Names are in UTF-8, whatever code page the console has before and behind this program.
void prepare_console() {
    console_had = GetConsoleOutputCP();
    if (console_had == CP_UTF8 || !SetConsoleOutputCP(CP_UTF8)) return;
    std::atexit(restore_console);
    SetConsoleCtrlHandler(restore_at_end, TRUE);
}

} // namespace

void prepare_standard_streams(bool) {
    for (int fd = kStandardInput; fd <= kStandardError; ++fd)
        _setmode(fd, _O_BINARY);
    if (is_terminal(kStandardOutput) || is_terminal(kStandardError)) prepare_console();
    // Or else a console gets names byte by byte.
    if (is_terminal(kStandardOutput)) std::setvbuf(stdout, nullptr, _IOFBF, 4096);
}

bool is_terminal(int fd) {
    DWORD mode;
    return GetConsoleMode(handle_of(fd), &mode) != 0;
}

std::size_t terminal_width(int fd) {
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (!GetConsoleScreenBufferInfo(handle_of(fd), &info)) return 0;
    return static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left + 1);
}

void prepare_terminal() {
    DWORD mode;
    const HANDLE terminal = handle_of(kStandardError);
    if (GetConsoleMode(terminal, &mode))
        SetConsoleMode(terminal, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

} // namespace velk
