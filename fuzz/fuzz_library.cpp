// An archive of any bytes goes through the library, which must make of it what the program
// does: by one thread, by the flow and by the reader. One in 16, as chance and its bytes alone have
// it, also goes through several threads, which take long to start.
#include "archive_call.h"
#include "library_call.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const bool with_threads = crc32_append(0, data, size) % 16 == 0;
    const std::string difference = difference_to_program(Bytes(data, data + size), with_threads);
    if (difference.empty()) return 0;
    std::fprintf(stderr, "differs: %s\n", difference.c_str());
    std::abort();
}
