#include "platform/streams.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace velk {
namespace {

HANDLE handle_of(int fd) {
    return reinterpret_cast<HANDLE>(_get_osfhandle(fd));
}

} // namespace

void prepare_standard_streams(bool) {
    for (int fd = kStandardInput; fd <= kStandardError; ++fd)
        _setmode(fd, _O_BINARY);
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
