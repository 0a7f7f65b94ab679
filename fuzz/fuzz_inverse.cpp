// One inverse stage on any bytes, in buffers of exactly its capacity:
//
//   | stage (0..7) | room | data ... |      capacity = bytes of data + room squared
#include "stage_call.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 2) return 0;
    const Stage &stage = *kStages[data[0] % kStages.size()];
    const std::size_t room = std::size_t{data[1]} * data[1];
    const Bytes block(data + 2, data + size);
    const std::size_t capacity = block.size() + room;
    const auto restored = stage.inverse(block, static_cast<std::uint32_t>(capacity));
    if (restored && restored->size() > capacity) std::abort();
    return 0;
}
