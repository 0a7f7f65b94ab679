// The sizes of archives.
#pragma once

#include "options.h"

// Lists the archives on standard output, with totals if there are several. What went wrong has been
// reported.
[[nodiscard]] Status list_archives(const Options &options);
