// Compression, restoring and testing of one input.
#pragma once

#include "output.h"

// What went wrong has been reported.
[[nodiscard]] Status process(const std::string &path, const Options &options);

// Compresses or restores the input from where it stands. output: null to check an archive only.
// told: what it is, or was until it failed, which has been reported.
[[nodiscard]] Status transfer(const Input &input, const Output *output, const Options &options,
                              velk_report &told);
