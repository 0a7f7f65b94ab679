// What velkz reads: a file, or standard input.
#pragma once

#include "options.h"

#include <sys/stat.h>

struct Input {
    Input() = default;
    ~Input();
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

    int fd = -1;
    std::string path;        // kStandardStream for standard input
    std::string name;        // for messages
    struct stat opened = {}; // what it was when it was opened
    std::uint64_t start = 0; // where standard input stood, in bytes
    // From `start` to the end; VELK_SIZE_UNKNOWN for all but regular files.
    std::uint64_t size = VELK_SIZE_UNKNOWN;

    [[nodiscard]] bool standard() const { return path == kStandardStream; }
    [[nodiscard]] bool regular() const { return S_ISREG(opened.st_mode); }
};

// Opens the input. A link or device whose output would be named after it is skipped with a
// warning, unless forced; a folder always. Anything but kSuccess has been reported.
[[nodiscard]] Status open_input(Input &input, const std::string &path, const Options &options);

// As read(2) and pread(2), from `start` on, but signals and streams that are to be waited
// for are no errors.
[[nodiscard]] std::int64_t read_some(const Input &input, void *buffer, std::size_t size);
[[nodiscard]] std::int64_t read_some_at(const Input &input, std::uint64_t offset, void *buffer,
                                        std::size_t size);

// The input has grown, shrunk or been written to since it was opened.
[[nodiscard]] bool has_changed(const Input &input);

// Removes the name of the input, if it is still the file that was read.
[[nodiscard]] Status remove_input(const Input &input);

// Waits for a stream that is not ready, as those that others left non-blocking may be.
// events: of poll(2). False when `errno` tells of anything but that or a signal.
[[nodiscard]] bool wait_for(int fd, short events);

[[nodiscard]] bool same_file(const struct stat &a, const struct stat &b);

// When the file was read and when it was written to.
struct Times {
    timespec access, change;
};
[[nodiscard]] Times times_of(const struct stat &file);
