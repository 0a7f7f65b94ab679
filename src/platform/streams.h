// What the system is asked about the standard streams and terminals.
#pragma once

#include <cstddef>

namespace velk {

constexpr int kStandardInput = 0;
constexpr int kStandardOutput = 1;
constexpr int kStandardError = 2;

// To be called first. Holds the numbers of streams that the caller closed, which files opened
// later would get, so that messages would be written into them; and lets bytes pass as they
// are where the system would change line ends. closed_fail: what is written to a closed stream
// is an error, or else is lost.
void prepare_standard_streams(bool closed_fail);

[[nodiscard]] bool is_terminal(int fd);
// Columns of a terminal; 0 if it is none.
[[nodiscard]] std::size_t terminal_width(int fd);
// Lets the error stream's terminal know the sequence that clears a line, as most do.
void prepare_terminal();

} // namespace velk
