// An archive of any bytes goes through the library, which must make of it what the program
// does: by one thread, by several, and by the reader.
#include "library_call.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string difference = difference_to_program(Bytes(data, data + size));
    if (difference.empty()) return 0;
    std::fprintf(stderr, "differs: %s\n", difference.c_str());
    std::abort();
}
