// Archives that are read at any place.
#pragma once

#include "input.h"
#include "output.h"

#include <memory>

struct Archive {
    const Input &input; // a regular file
    const Options &options;
    velk_report told{};
    std::unique_ptr<velk_reader, void (*)(velk_reader *)> reader{nullptr, velk_reader_close};
};

[[nodiscard]] velk_status open_reader(Archive &archive);

// Says what went wrong. Returns kError.
Status report(const Archive &archive, velk_status status);

// Writes the range of the original that the options ask for. What went wrong has been
// reported.
[[nodiscard]] Status restore_range(const Input &input, const Output &output,
                                   const Options &options);
