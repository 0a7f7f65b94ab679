// velkz: VELK archives as streams and beside their files, by all processors.
#include "random_access.h"
#include "signals.h"
#include "work.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

// A standard stream that the caller closed leaves its number free, and the next file opened
// would get it. What takes its place here fails to read or write, as a closed one does.
void occupy_standard_streams() {
    for (int fd = 0; fd < 3; ++fd) {
        if (fcntl(fd, F_GETFD) == -1) open("/dev/null", fd == 0 ? O_WRONLY : O_RDONLY);
    }
}

} // namespace

int main(int argument_count, char **arguments) {
    occupy_standard_streams();
    catch_signals();
    Options options;
    Status status = kSuccess;
    if (parse_options(argument_count, arguments, options, status)) {
        if (options.quiet) silence_warnings();
        if (options.mode == Mode::kList) {
            status = list_archives(options);
        } else {
            for (const std::string &name : options.names)
                status = worse(status, process(name, options));
        }
    }
    // A full disk may only show now.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || close(STDOUT_FILENO) != 0)
        status = error("standard output", "can't be written: " + reason());
    return status;
}
