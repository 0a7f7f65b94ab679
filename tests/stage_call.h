// Calls of single stages on byte vectors. All buffers and work arrays are allocated
// to the byte, so that a sanitizer sees one byte too many.
#pragma once

#include "data.h"

#include <functional>
#include <optional>
#include <string>

// The bytes that a forward stage may append or overshoot in a buffer of its block's
// length, as the archive's buffers give it.
constexpr std::uint32_t kForwardSlack = 30;

struct Stage {
    std::string name;
    std::function<Bytes(const Bytes &)> forward;
    // Nothing when the stage refuses the block.
    std::function<std::optional<Bytes>(const Bytes &, std::uint32_t capacity)> inverse;
};

// Processor time of the last call of a stage, in seconds, without the copying around it.
extern double stage_seconds;

extern const Stage kEol, kFlt32, kDelta, kLzp, kBwt, kSt, kRle, kDce;
extern const std::vector<const Stage *> kStages;
