// An archive of any bytes goes through the whole decompressor. The input is a true
// archive: what is found here, VELK itself can be given.
#include "archive/format.h"
#include "archive_call.h"
#include "base/block_size.h"

#include <cstdlib>

using namespace velk;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const Restored restored = restore_archive(Bytes(data, data + size));
    // A record takes a head and a byte of data at least and restores to `capacity`.
    const std::size_t most = size / (kRecordHeadBytes + 1) * (kMaxBlockSize + kBlockSlack);
    if (restored.bytes.size() > most) std::abort();
    return 0;
}
