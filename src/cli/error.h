// The one way out of a run: every failure ends here with one message.
#pragma once

namespace velk {

enum ErrorCode {
    ERR_NONE,    // the normal end
    ERR_USAGE,   // detail: the usage text
    ERR_SWITCH,  // detail: the offending argument
    ERR_COMMAND, // detail: the command argument
    ERR_MEMORY,  // no detail
    ERR_READ,    // detail: the input name
    ERR_WRITE,   // detail: the output name
    ERR_CRC,     // no detail
    ERR_HEADER,  // detail: the magic that an archive begins with
};

// Prints the message of `code` and `detail` to the standard output stream (nothing
// for `ERR_NONE`) and ends the process with status 1 (0 for `ERR_NONE`). Files that
// are open are closed with what was written to them; nothing is deleted.
[[noreturn]] void error_exit(ErrorCode code, const char *detail);

} // namespace velk
