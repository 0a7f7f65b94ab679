// What the options of a call and the header of an archive mean to the core.
#pragma once

#include "cli/settings.h"
#include "velk.h"

#include <cstdint>

// The options, checked, with the defaults filled in.
struct Plan {
    Settings settings;
    std::uint32_t threads;      // 1 to VELK_MAX_THREADS
    std::uint64_t memory_limit; // bytes
};

// Null stands for the defaults. Returns false for options out of bounds.
[[nodiscard]] bool make_plan(const velk_options *options, Plan &plan);

// Writes the VELK_HEADER_SIZE bytes that an archive begins with.
void put_archive_start(std::uint8_t *header, const Settings &settings, std::uint32_t block_size);

// Reads an archive's header: the stage flags of `settings`, and the block size, which is
// one that memory can be set up for. size: bytes that there are, VELK_HEADER_SIZE unless
// the archive is shorter.
[[nodiscard]] velk_status read_header(const std::uint8_t *header, std::size_t size,
                                      Settings &settings, std::uint32_t &block_size);

// CoderContext::file_size of an input; 0 stands for an unknown one.
[[nodiscard]] std::uint32_t file_size_of(std::uint64_t input_size);
