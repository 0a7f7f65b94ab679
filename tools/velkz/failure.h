// What it means to the user that a call of the library failed.
#pragma once

#include "input.h"

// Says so about the archive or original that the input is; of one that can't be read, `errno` tells
// why. told: where, if the status is VELK_ERROR_DAMAGED. reader: of the archive, which knows what
// is lost; null: there is none. Returns kError.
Status report(const Input &input, velk_status status, const velk_report &told,
              const velk_reader *reader);

// The same where the limit on memory is too low, and what would do. header: of the archive that is
// restored; null: `size` bytes are compressed.
Status report_limit(const Input &input, const velk_options &options, std::uint64_t size,
                    const std::uint8_t *header);
