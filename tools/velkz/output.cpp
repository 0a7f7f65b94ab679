#include "output.h"

#include "signals.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr std::size_t kMostAtOnce = std::size_t{1} << 30; // what all systems take

std::string folder_of(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

// A question on the error stream; only "y" is a yes.
bool agrees(const std::string &name) {
    std::fprintf(stderr, "velkz: %s exists; overwrite it? (y/N) ", printable(name).c_str());
    char answer = 'n', byte = 0;
    for (bool first = true; read(STDIN_FILENO, &byte, 1) == 1 && byte != '\n'; first = false) {
        if (first) answer = byte;
    }
    if (byte != '\n') std::fputc('\n', stderr);
    return answer == 'y' || answer == 'Y';
}

// A stream or device takes the bytes as they come.
Status open_in_place(Output &output, const Input &input, const Options &options) {
    struct stat found;
    if (output.path == kStandardStream) {
        output.fd = STDOUT_FILENO;
        output.name = "standard output";
    } else {
        output.fd = open(output.path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    }
    if (output.fd < 0 || fstat(output.fd, &found) != 0) return error(output.name, reason());
    if (S_ISREG(found.st_mode) && same_file(found, input.opened))
        return error(output.name, "is the input itself");
    if (options.mode == Mode::kCompress && isatty(output.fd) != 0)
        return error(output.name, "archives are not written to a terminal; -h for help");
    return kSuccess;
}

// The file is the user's alone until it gets the input's mode. Its name is short enough
// wherever the output's is.
Status open_temporary(Output &output) {
    std::string name = folder_of(output.path) + ".velkz-" + std::string(6, 'X');
    const SignalsHeld held;
    output.fd = mkstemp(name.data());
    if (output.fd < 0) return error(output.name, "can't be made: " + reason());
    output.temporary = name;
    remove_on_signal(output.temporary.c_str());
    fcntl(output.fd, F_SETFD, FD_CLOEXEC);
    return kSuccess;
}

mode_t usual_mode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// Nobody may read the output who may not read the input: where the group is another one,
// it and all others get what both had. The set-id bits are not for other bytes.
void copy_attributes(int fd, const struct stat &from) {
    if (S_ISFIFO(from.st_mode) || S_ISSOCK(from.st_mode)) {
        fchmod(fd, usual_mode());
        return;
    }
    if (!S_ISREG(from.st_mode)) {
        fchmod(fd, from.st_mode & usual_mode());
        return;
    }
    mode_t mode = from.st_mode & 0777;
    [[maybe_unused]] const int owner_kept = fchown(fd, from.st_uid, static_cast<gid_t>(-1));
    if (fchown(fd, static_cast<uid_t>(-1), from.st_gid) != 0) {
        const mode_t common = (mode >> 3) & mode & 7;
        mode = (mode & 0700) | common << 3 | common;
    }
    fchmod(fd, mode);
    const Times times = times_of(from);
    const timespec both[2] = {times.access, times.change};
    futimens(fd, both);
}

// Some file systems have no fsync, and write at once.
bool on_disk(int fd) {
    return fsync(fd) == 0 || errno == EINVAL || errno == ENOTSUP || errno == ENOSYS;
}

// The name is on the disk only with its folder.
bool folder_on_disk(const std::string &path) {
    const int fd = open(folder_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool safe = on_disk(fd);
    close(fd);
    return safe;
}

// link(2), other than rename(2), fails where a file has come to be meanwhile; but not all
// file systems have it.
bool take_name(const Output &output) {
    const char *const from = output.temporary.c_str(), *const to = output.path.c_str();
    struct stat found;
    if (!output.replaces) {
        if (link(from, to) == 0) return unlink(from) == 0;
        if (errno == EEXIST || lstat(to, &found) == 0) {
            errno = EEXIST;
            return false;
        }
    }
    return rename(from, to) == 0;
}

Status give_name(Output &output) {
    const SignalsHeld held;
    if (!take_name(output)) {
        return error(output.name, errno == EEXIST ? "exists by now; -f overwrites it" : reason());
    }
    output.temporary.clear();
    remove_on_signal(nullptr);
    return kSuccess;
}

} // namespace

Output::~Output() {
    if (fd >= 0 && fd != STDOUT_FILENO) close(fd);
    if (temporary.empty()) return;
    const SignalsHeld held;
    unlink(temporary.c_str());
    remove_on_signal(nullptr);
}

Status open_output(Output &output, const std::string &path, const Input &input,
                   const Options &options) {
    output.path = output.name = path;
    struct stat there, messages;
    if (path == kStandardStream) return open_in_place(output, input, options);
    if (lstat(path.c_str(), &there) != 0) {
        // Known now rather than when all is done: a name that is too long, for one.
        return errno == ENOENT ? open_temporary(output) : error(output.name, reason());
    }
    if (stat(path.c_str(), &there) == 0) {
        if (S_ISDIR(there.st_mode)) return error(output.name, "is a folder");
        if (same_file(there, input.opened)) return error(output.name, "is the input itself");
        const bool chosen = !options.output.empty();
        // By another name, such as /dev/stdout.
        if (chosen && fstat(STDOUT_FILENO, &messages) == 0 && same_file(there, messages)) {
            output.path = kStandardStream;
            return open_in_place(output, input, options);
        }
        const bool harmless = S_ISCHR(there.st_mode) || S_ISFIFO(there.st_mode);
        if (chosen && (harmless || (options.force && S_ISBLK(there.st_mode))))
            return open_in_place(output, input, options);
        if (!S_ISREG(there.st_mode)) return error(output.name, "is not a regular file");
    }
    if (!options.force) {
        const bool can_ask = !input.standard() && isatty(STDIN_FILENO) && isatty(STDERR_FILENO);
        if (!can_ask) return error(output.name, "exists; -f overwrites it");
        if (!agrees(output.name)) return warning(output.name, "exists, skipped");
    }
    output.replaces = true;
    return open_temporary(output);
}

std::int64_t write_some(const Output &output, const void *buffer, std::size_t size) {
    ssize_t put;
    do
        put = write(output.fd, buffer, std::min(size, kMostAtOnce));
    while (put < 0 && wait_for(output.fd, POLLOUT));
    return put;
}

Status keep_output(Output &output, const Input &input) {
    if (output.fd == STDOUT_FILENO) return kSuccess; // closed when all is done
    const bool named_later = !output.temporary.empty();
    if (named_later) copy_attributes(output.fd, input.opened);
    bool safe = !named_later || on_disk(output.fd);
    safe = close(output.fd) == 0 && safe;
    output.fd = -1;
    if (!safe) return error(output.name, "can't be written: " + reason());
    if (!named_later) return kSuccess;
    const Status status = give_name(output);
    if (status != kSuccess) return status;
    return folder_on_disk(output.path)
               ? kSuccess
               : warning(output.name, "written, but its folder can't be synchronised");
}
