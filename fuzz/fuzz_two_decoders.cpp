// An archive of any bytes goes through the library and through decoder/unvelk.c, which was
// written from docs/format.md alone: both must give the same bytes and the same verdict.
#define UNVELK_ONLY_DECLARATIONS
#include "../decoder/unvelk.c" // NOLINT(bugprone-suspicious-include): that makes it a header
#include "library_call.h"

#include <cstdio>
#include <cstdlib>

namespace {

int append(void *bytes, const std::uint8_t *block, std::size_t size) {
    static_cast<Bytes *>(bytes)->insert(static_cast<Bytes *>(bytes)->end(), block, block + size);
    return 0;
}

bool same_verdict(velk_status status, const velk_report &report, const unvelk_result &result) {
    switch (status) {
    case VELK_OK:
        return result.verdict == (report.whole != 0 ? 0 : UNVELK_MAY_BE_CUT) +
                                     (report.bytes_follow != 0 ? UNVELK_BYTES_BEHIND : 0);
    case VELK_ERROR_FORMAT: // also for a header that is whole, but that nothing writes
        return result.verdict == UNVELK_NO_ARCHIVE ||
               (result.verdict == UNVELK_DAMAGED && result.at == 0);
    case VELK_ERROR_DAMAGED:
        return result.verdict == UNVELK_DAMAGED;
    default:
        return false;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    velk_report report;
    const Outcome library = restore_stream(Bytes(data, data + size), 1, report);
    static void *const work = std::malloc(UNVELK_MOST_WORK);
    Bytes bytes;
    const unvelk_result result = unvelk(data, size, work, UNVELK_MOST_WORK, append, &bytes);
    if (bytes == library.bytes && same_verdict(library.status, report, result)) return 0;
    std::fprintf(stderr, "differs: %zu bytes, status %d; %zu bytes, verdict %d at %zu, %s\n",
                 library.bytes.size(), static_cast<int>(library.status), bytes.size(),
                 result.verdict, result.at, result.why);
    std::abort();
}
