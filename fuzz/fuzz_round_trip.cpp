// Any bytes come back, from the whole chain under any switches, or, with flags that
// would have both sorting transforms on, from one stage in buffers allocated to the
// byte:
//
//   | flags | stage (3 bits), copies - 1 (4), -o (1) | file size (4) | bytes ... |
//
// The block is the bytes repeated, with the last byte changed: what is almost periodic
// is hardest on a sort.
#include "archive_call.h"
#include "base/block_size.h"
#include "base/byte_order.h"
#include "stage_call.h"

#include <algorithm>
#include <cstdlib>

using namespace velk;

static void expect_equal(const std::optional<Bytes> &restored, const Bytes &block) {
    if (restored != block) std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    constexpr std::size_t kSettingsBytes = 6;
    if (size <= kSettingsBytes) return 0;
    const unsigned choice = data[1], more = (choice >> 3) % 16;
    Bytes block(data + kSettingsBytes, data + size);
    block = periodic(std::string(block.begin(), block.end()), (more + 1) * block.size());
    if (more > 0) ++block.back();
    if (block.size() > kMinBlockSize) return 0;

    Chain chain(data[0], choice >> 7 != 0, get_u32(data + 2));
    if (chain.usable()) {
        expect_equal(chain.decompress(chain.compress(block)), block);
    } else {
        const Stage &stage = *kStages[choice % 8];
        const Bytes coded = stage.forward(block);
        const std::size_t capacity = std::max(block.size() + kForwardSlack, coded.size());
        expect_equal(stage.inverse(coded, static_cast<std::uint32_t>(capacity)), block);
    }
    return 0;
}
