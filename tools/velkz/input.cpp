#include "input.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr std::size_t kMostAtOnce = std::size_t{1} << 30; // what all systems take

// Null for what may be read.
const char *reason_to_skip(mode_t mode, bool any_kind) {
    if (S_ISDIR(mode)) return "is a folder, skipped";
    if (any_kind || S_ISREG(mode)) return nullptr;
    return S_ISLNK(mode) ? "is a symbolic link, skipped" : "is not a regular file, skipped";
}

Status find_size(Input &input) {
    if (!input.regular()) return kSuccess;
    const off_t start = lseek(input.fd, 0, SEEK_CUR);
    if (start < 0) return error(input.name, reason());
    input.start = static_cast<std::uint64_t>(start);
    const std::uint64_t end = static_cast<std::uint64_t>(input.opened.st_size);
    // Files that the system makes up as they are read say that they are empty.
    if (end > input.start) input.size = end - input.start;
    return kSuccess;
}

// The kind is looked at before the file is opened, as to open some devices does something,
// and again after, as the name may stand for another file by then.
Status open_named(Input &input, bool any_kind) {
    const char *const path = input.path.c_str();
    struct stat found;
    if ((any_kind ? stat(path, &found) : lstat(path, &found)) != 0)
        return error(input.name, reason());
    const char *why = reason_to_skip(found.st_mode, any_kind);
    if (why != nullptr) return warning(input.name, why);
    const int careful = any_kind ? 0 : O_NOFOLLOW | O_NONBLOCK;
    input.fd = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | careful);
    if (input.fd < 0 || fstat(input.fd, &input.opened) != 0) return error(input.name, reason());
    why = reason_to_skip(input.opened.st_mode, any_kind);
    return why != nullptr ? warning(input.name, why) : kSuccess;
}

} // namespace

Input::~Input() {
    if (fd >= 0 && !standard()) close(fd);
}

Status open_input(Input &input, const std::string &path, const Options &options) {
    input.path = path;
    input.name = input.standard() ? "standard input" : path;
    Status status = kSuccess;
    if (input.standard()) {
        input.fd = STDIN_FILENO;
        if (fstat(input.fd, &input.opened) != 0) return error(input.name, reason());
        if (S_ISDIR(input.opened.st_mode)) return warning(input.name, "is a folder, skipped");
        if (options.mode != Mode::kCompress && isatty(input.fd) != 0)
            return error(input.name, "archives are not read from a terminal; -h for help");
    } else {
        const bool names_output = !options.to_stdout && options.output.empty() &&
                                  options.mode != Mode::kTest && options.mode != Mode::kList;
        status = open_named(input, options.force || !names_output);
    }
    return status == kSuccess ? find_size(input) : status;
}

bool wait_for(int fd, short events) {
    if (errno == EINTR) return true;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
    pollfd ready{fd, events, 0};
    return poll(&ready, 1, -1) > 0 || errno == EINTR;
}

std::int64_t read_some(const Input &input, void *buffer, std::size_t size) {
    ssize_t got;
    do
        got = read(input.fd, buffer, std::min(size, kMostAtOnce));
    while (got < 0 && wait_for(input.fd, POLLIN));
    return got;
}

std::int64_t read_some_at(const Input &input, std::uint64_t offset, void *buffer,
                          std::size_t size) {
    ssize_t got;
    do
        got = pread(input.fd, buffer, std::min(size, kMostAtOnce),
                    static_cast<off_t>(input.start + offset));
    while (got < 0 && errno == EINTR);
    return got;
}

bool has_changed(const Input &input) {
    struct stat now;
    if (!input.regular()) return false;
    if (fstat(input.fd, &now) != 0 || now.st_size != input.opened.st_size) return true;
    const timespec before = times_of(input.opened).change, after = times_of(now).change;
    return before.tv_sec != after.tv_sec || before.tv_nsec != after.tv_nsec;
}

Status remove_input(const Input &input) {
    struct stat now;
    const char *const path = input.path.c_str();
    if (stat(path, &now) != 0) return error(input.name, reason());
    if (!same_file(now, input.opened)) return warning(input.name, "is another file now, kept");
    return unlink(path) == 0 ? kSuccess : error(input.name, "can't be removed: " + reason());
}

bool same_file(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

Times times_of(const struct stat &file) {
#ifdef __APPLE__
    return {file.st_atimespec, file.st_mtimespec};
#else
    return {file.st_atim, file.st_mtim};
#endif
}
