// The switch parser of the command line.
#pragma once

#include "cli/settings.h"

namespace velk {

// Sets `settings` to the defaults, then to what the switches from argument 4 on
// say (argument 0 is the program, 1 to 3 the command and the two names).
// Returns 0, or the index of the first argument that is not made of valid
// switches; `settings` is then half-filled.
[[nodiscard]] int parse_switches(int argument_count, const char *const *arguments,
                                 Settings &settings);

} // namespace velk
