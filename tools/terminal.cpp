#include "terminal.h"

#include <cstdio>
#ifdef _WIN32
#include <io.h>
#include <windows.h>
#else
#include <sys/ioctl.h>
#include <unistd.h>
#endif

#ifdef _WIN32

int terminal_width() {
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info)) return 0;
    return info.srWindow.Right - info.srWindow.Left + 1;
}

bool is_watched() {
    return _isatty(_fileno(stderr)) != 0;
}

#else

int terminal_width() {
    winsize size;
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

bool is_watched() {
    return isatty(STDERR_FILENO) == 1;
}

#endif
