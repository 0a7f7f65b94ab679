// Flows that get and give as little at a time as chance has it, and flush now and then, restore
// what they were given:
//
//   | seed (4) | flushes in 16 calls (4 bits) | bytes ... |
//
// What takes long comes up in one of 16 inputs, as chance and their bytes alone have it: full
// blocks, threads, level 9.
#include "archive_call.h"
#include "base/byte_order.h"
#include "library_call.h"

#include <algorithm>
#include <cstdlib>

using namespace velk;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    constexpr std::size_t kSettingsBytes = 5;
    if (size <= kSettingsBytes) return 0;
    const std::uint32_t seed = get_u32(data), flushes = data[4] % 16;
    const std::uint32_t chance = crc32_append(0, data, size);
    const std::uint32_t most = chance % 16 == 0 ? 3 * VELK_MIN_BLOCK_SIZE : 4096;
    const std::string bytes(data + kSettingsBytes, data + size);
    const Bytes in = periodic(bytes, std::max<std::size_t>(size, seed % most));
    velk_options options = options_with(chance / 16 % 16 == 0 ? 2 : 1);
    options.level = chance / 256 % 16 == 0 ? VELK_MAX_LEVEL : 0;
    const Outcome archive = run_flow(false, options, in, seed, flushes);
    const bool same = flushes != 0 || archive == compress(options, in);
    if (!same || run_flow(true, options, archive.bytes, seed) != Outcome{VELK_OK, in}) std::abort();
    return 0;
}
