// What the options of a call and the header of an archive mean to the core.
#pragma once

#include "archive/format.h"
#include "velk.h"

#include <cstdint>

namespace velk {

// The options of a call after the check, with the defaults in place of zeros.
struct CheckedOptions {
    Settings settings;
    std::uint32_t threads;      // 1 to VELK_MAX_THREADS
    std::uint64_t memory_limit; // bytes
};

// Null stands for the defaults. Returns false for options out of bounds.
[[nodiscard]] bool check_options(const velk_options *options, CheckedOptions &checked);

// What a caller is told.
[[nodiscard]] velk_status status_of(ArchiveStatus status);

} // namespace velk
