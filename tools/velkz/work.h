// Compression, restoring and testing of one input.
#pragma once

#include "options.h"

// What went wrong has been reported.
[[nodiscard]] Status process(const std::string &path, const Options &options);
