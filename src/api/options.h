// What the options of a call and the header of an archive mean to the core.
#pragma once

#include "archive/archive_io.h"
#include "velk.h"

#include <cstdint>

namespace velk {

// The options, checked, with the defaults filled in.
struct Plan {
    Settings settings;
    std::uint32_t threads;      // 1 to VELK_MAX_THREADS
    std::uint64_t memory_limit; // bytes
};

// Null stands for the defaults. Returns false for options out of bounds.
[[nodiscard]] bool make_plan(const velk_options *options, Plan &plan);

// What a caller is told.
[[nodiscard]] velk_status status_of(ArchiveStatus status);

} // namespace velk
