#include "platform/streams.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace velk {

void prepare_standard_streams(bool closed_fail) {
    for (int fd = kStandardInput; fd <= kStandardError; ++fd) {
        if (fcntl(fd, F_GETFD) != -1) continue;
        const int failing = fd == kStandardInput ? O_WRONLY : O_RDONLY;
        open("/dev/null", closed_fail ? failing : O_RDWR); // gets the lowest free number
    }
}

bool is_terminal(int fd) {
    return isatty(fd) != 0;
}

std::size_t terminal_width(int fd) {
    winsize size{};
    return ioctl(fd, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

void prepare_terminal() {}

} // namespace velk
