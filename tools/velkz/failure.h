// What it means to the user that a call of the library failed.
#pragma once

#include "options.h"

// Says so about the archive or original `name`; of one that can't be read, `errno` tells why.
// told: where, if the status is VELK_ERROR_DAMAGED. Returns kError.
Status report(const std::string &name, velk_status status, const velk_report &told,
              const Options &options);
