#include "terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

int terminal_width() {
    winsize size;
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

bool is_watched() {
    return isatty(STDERR_FILENO) == 1;
}
