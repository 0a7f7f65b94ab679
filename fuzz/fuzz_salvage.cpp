// An archive of any bytes goes through velkinfo's reader and its salvage. Three in four
// are damaged, in a byte that the last ones choose: those are a CRC, good as a random
// number.
#include "archive/format.h"
#include "base/byte_order.h"
#include "pipeline/crc32.h"
#include "velkinfo/block_walk.h"

#include <cstdio>
#include <cstdlib>

using namespace velk;

namespace {

void expect(bool holds) {
    if (!holds) std::abort();
}

void damage(std::vector<std::uint8_t> &archive) {
    if (archive.size() < 4) return;
    const std::uint32_t choice = get_u32(&archive[archive.size() - 4]);
    if (choice % 4 == 0) return;
    std::uint8_t &byte = archive[choice / 4 % archive.size()];
    byte = static_cast<std::uint8_t>(byte + choice % 4);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static Restorer restorer;
    static const bool prepared = restorer.prepare();
    std::vector<std::uint8_t> archive(data, data + size);
    damage(archive);
    BlockReader reader;
    reader.archive.size = size;
    reader.archive.file.reset(fmemopen(archive.data(), size, "rb"));
    if (!prepared || reader.archive.file == nullptr) return 0;

    // Blocks that the reader restores are intact to the survey, and restored by the salvage as
    // well. What it makes of others, and its walk, show in one of 8 inputs: with the ST each block
    // takes long.
    const bool restore_all = crc32_append(0, data, size) % 8 == 0;
    std::string why;
    bool reading = start_blocks(reader) == ArchiveStatus::kGood;
    Survey survey(reader.archive, reading);
    std::uint64_t position = 0;
    for (Extent extent; survey.next(extent); position = extent.end) {
        expect(extent.begin < extent.end);
        expect(extent.begin == position || (position == 0 && extent.begin <= kFirstRecord));
        if (extent.kind == ExtentKind::kFrame) continue;
        // The survey looks for what compressors write: other last bytes are none of its blocks.
        reading = reading && next_block(reader, why) == ArchiveStatus::kGood &&
                  archive[reader.archive.position - kCrcBytes - 1] <= kFallbackMarker;
        if (reading) expect(extent.data != 0 && extent.end == reader.archive.position);
        if (extent.data == 0) continue;
        const auto covered = static_cast<std::uint32_t>(extent.end - extent.data - kCrcBytes);
        expect(crc32_block(&archive[extent.data], covered) ==
               get_u32(&archive[extent.end - kCrcBytes]));
        if (!reading && !restore_all) continue;
        std::uint32_t length;
        BlockTrace trace;
        const auto *const block =
            restorer.restore(reader.archive, extent.data, extent.end, length, trace);
        if (reading) expect(block != nullptr && length == reader.context.out_len);
    }
    expect(survey.checksummed() <= 64 * size + 102400);
    if (!restore_all) return 0;
    // The walk goes to the end, whatever it begins with, and forgets no block.
    for (const BlockWalk::Step step :
         {BlockWalk::Step{next_block}, BlockWalk::Step{skip_block}, BlockWalk::Step{nullptr}}) {
        BlockWalk walk(restorer);
        walk.reader.archive.size = size;
        walk.reader.archive.file.reset(fmemopen(archive.data(), size, "rb"));
        if (!walk.start(step, why)) continue;
        std::uint64_t number = 0;
        for (Finding found; walk.next(found);) {
            expect(found.number == 0 || found.number == ++number);
            expect(found.number != 0 || !found.damage.empty());
        }
    }
    return 0;
}
