// What velkz writes. A file gets its name when all of it is on the disk; until then it has none,
// or, where the system has no such files, one of its own in the same folder, which is gone again
// however the run ends.
#pragma once

#include "input.h"

struct Output {
    Output() = default;
    ~Output(); // what has not been kept is removed
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    int fd = -1;
    std::string path;      // kStandardStream for standard output
    std::string name;      // for messages
    bool is_own = false;   // a new file; or else a stream or device, written where it is
    velk::Folder folder;   // of a new file
    std::string temporary; // its name until it gets its own; empty: none
    bool replaces = false; // may take the place of another file
};

// Opens `path` for what is made of `input`, never the input itself. Another file is only
// replaced if that is forced or the user, asked on the terminal, says so. A link is
// replaced, not what it leads to. Anything but kSuccess has been reported.
[[nodiscard]] Status open_output(Output &output, const std::string &path, const Input &input,
                                 const Options &options);

// Gives the file the input's mode, owner and times, has all of it written to the disk, and
// then gives it its name. After kSuccess the input may be removed.
[[nodiscard]] Status keep_output(Output &output, const Input &input);
