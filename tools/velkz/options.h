// The command line of velkz.
#pragma once

#include "messages.h"

#include <cstdint>
#include <vector>
#include <velk.h>

enum class Mode { kCompress, kRestore, kTest, kList };

constexpr const char *kStandardStream = "-";

struct Options {
    Mode mode = Mode::kCompress;
    bool to_stdout = false;
    bool remove = false; // the input, after success
    bool force = false;
    bool quiet = false;
    bool verbose = false;
    bool no_progress = false;
    bool recursive = false;
    bool no_sparse = false;                  // write zeros in place of holes
    bool ranged = false;                     // restore only the range
    std::uint64_t range_offset = 0;          // bytes of the original
    std::uint64_t range_length = UINT64_MAX; // bytes; UINT64_MAX: up to the end
    std::uint64_t size = VELK_SIZE_UNKNOWN;  // of the input, if the user tells
    std::string output;                      // empty: named after the input
    std::string suffix = ".velk";
    std::vector<std::string> names; // of inputs; never empty
    velk_options library{};
};

// False when the program ends here, with `status`: after the help, or after an error that
// was reported.
[[nodiscard]] bool parse_options(int argument_count, char **arguments, Options &options,
                                 Status &status);

// Whether the path ends as an archive does, in letters of either case: in the suffix, or in .tvelk.
[[nodiscard]] bool has_suffix(const std::string &path, const Options &options);
// The name of what such an archive restores to; empty where the suffix is all of a name.
[[nodiscard]] std::string without_suffix(const std::string &path, const Options &options);
