// Rings through a pipe, for which poll waits.
#include "bell.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

Bell::Bell() {
    int ends[2];
    if (pipe(ends) != 0) return;
    out_ = ends[0];
    in_ = ends[1];
    for (const int end : ends) {
        fcntl(end, F_SETFL, O_NONBLOCK);
        fcntl(end, F_SETFD, FD_CLOEXEC);
    }
}

Bell::~Bell() {
    if (out_ < 0) return;
    close(out_);
    close(in_);
}

void Bell::ring(void *bell) {
    // If the pipe is full it has rung already.
    [[maybe_unused]] const ssize_t written = write(static_cast<Bell *>(bell)->in_, "", 1);
}

bool Bell::wait_for_input(int fd) {
    pollfd waits[] = {{fd, POLLIN, 0}, {out_, POLLIN, 0}}; // a negative one is left out
    if (poll(waits, 2, -1) < 0) return true;               // what is wrong, read will say
    char rung[64];
    while (waits[1].revents != 0 && read(out_, rung, sizeof rung) == sizeof rung) {
    }
    return waits[0].revents != 0;
}
