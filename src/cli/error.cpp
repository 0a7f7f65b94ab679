#include "cli/error.h"

#include <cstdio>
#include <cstdlib>

namespace velk {
namespace {

constexpr const char *kMessages[] = {
    "",
    "",
    "Unknown switch: ",
    "Unknown command: ",
    "Not enough memory!",
    "Input file read error: ",
    "Output file write error: ",
    "CRC32 check failed!",
    "Header check failed: ",
};

} // namespace

void error_exit(ErrorCode code, const char *detail) {
    if (code == ERR_NONE) std::exit(EXIT_SUCCESS);
    std::printf("\n%s%s\n", kMessages[code], detail);
    std::exit(EXIT_FAILURE);
}

} // namespace velk
