// Archives that are read at any place: lists, and parts of the original.
#pragma once

#include "input.h"
#include "output.h"

// Writes the range of the original that the options ask for. What went wrong has been
// reported.
[[nodiscard]] Status restore_range(const Input &input, const Output &output,
                                   const Options &options);

// Lists the archives on standard output, from their record heads and last blocks, with
// totals if there are several. What went wrong has been reported.
[[nodiscard]] Status list_archives(const Options &options);
