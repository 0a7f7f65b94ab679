// What velkz reads: a file, or standard input.
#pragma once

#include "options.h"
#include "platform/files.h"

struct Input {
    Input() = default;
    ~Input();
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

    int fd = -1;
    std::string path;         // kStandardStream for standard input
    std::string name;         // for messages
    velk::FileFacts opened{}; // when it was opened
    std::uint64_t start = 0;  // where standard input stood, in bytes
    // From `start` to the end; VELK_SIZE_UNKNOWN for all but regular files.
    std::uint64_t size = VELK_SIZE_UNKNOWN;

    [[nodiscard]] bool standard() const { return path == kStandardStream; }
    [[nodiscard]] bool regular() const { return opened.kind == velk::Kind::kFile; }
};

// Opens the input. A link or device whose output would be named after it is skipped with a
// warning, unless forced; a folder always. Anything but kSuccess has been reported.
[[nodiscard]] Status open_input(Input &input, const std::string &path, const Options &options);

// The input has grown, shrunk or been written to since it was opened.
[[nodiscard]] bool has_changed(const Input &input);

// Removes the name of the input, if it is still the file that was read.
[[nodiscard]] Status remove_input(const Input &input);
