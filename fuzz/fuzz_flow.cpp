// Flows that get and give as little at a time as chance has it, and flush now and then, restore
// what they were given:
//
//   | seed (4) | flushes in 16 calls (4 bits), threads - 1 (1), level 9 (1) | bytes ... |
#include "base/byte_order.h"
#include "library_call.h"

#include <algorithm>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    constexpr std::size_t kSettingsBytes = 5;
    if (size <= kSettingsBytes) return 0;
    const std::uint32_t seed = velk::get_u32(data), choice = data[4];
    const std::string bytes(data + kSettingsBytes, data + size);
    const Bytes in = periodic(bytes, std::max<std::size_t>(size, seed % (3 * VELK_MIN_BLOCK_SIZE)));
    velk_options options = options_with(1 + (choice >> 4) % 2);
    options.level = (choice >> 5) % 2 == 0 ? 0 : VELK_MAX_LEVEL;
    const Outcome archive = run_flow(false, options, in, seed, choice % 16);
    const bool same = choice % 16 != 0 || archive == compress(options, in);
    if (!same || run_flow(true, options, archive.bytes, seed) != Outcome{VELK_OK, in}) std::abort();
    return 0;
}
