// What velkz says on the error stream, and the exit status that follows from it.
#pragma once

#include "platform/printable.h"

#include <string>

using velk::printable;

enum Status { kSuccess = 0, kError = 1, kWarning = 2 };

// An error counts more than a warning.
[[nodiscard]] Status worse(Status a, Status b);

// "velkz: NAME: what", in one line whatever the name is. Returns kError.
Status error(const std::string &name, const std::string &what);
// The same for something that was skipped or left; not printed with -q. Returns kWarning.
Status warning(const std::string &name, const std::string &what);
void silence_warnings();

// The text of `errno`.
std::string errno_text();
