// What the WebAssembly module has beside the library: calls that go out to JavaScript, and what
// stands for the system.
#include "api/flow.h"
#include "api/threads.h"
#include "archive/memory.h"
#include "pipeline/block.h"
#include "pipeline/crc32.h"

#include <cstdint>
#include <ctime>

// What became of a block's length, as velkinfo tells it.
struct WebBlock {
    std::uint32_t coded, original; // bytes of the record, and of the block
    std::uint32_t fallback;
    std::uint32_t after[velk::STAGE_COUNT];   // bytes that each stage put out
    std::uint32_t trailer[velk::STAGE_COUNT]; // 0: did not apply
};

#define IMPORTED(name) __attribute__((import_module("velk"), import_name(name)))
extern "C" {
IMPORTED("read_at")
std::int64_t web_read_at(void *, std::uint64_t offset, void *buffer, std::size_t size);
IMPORTED("restored") void web_restored(const WebBlock *block);

velk_status web_flow_restore(velk_flow **flow);
velk_status web_reader_open(velk_reader **reader, std::uint64_t archive_size, velk_report *report);
}

namespace velk {

std::uint32_t processors() {
    return 1;
}

bool start_thread(pthread_t & /*thread*/, void *(* /*work*/)(void *), void * /*argument*/) {
    return false;
}

namespace {

// As the library restores blocks, and tells what the stages did.
bool restore(CoderContext &context, IndexEntry &entry) {
    BlockTrace trace{};
    entry.data_len = context.in_len;
    if (!decompress_block(context, &trace)) return false;
    entry.block_len = context.out_len;
    entry.block_crc = crc32_append(0, context.buf_out, context.out_len);
    WebBlock block{kRecordHeadBytes + entry.data_len, entry.block_len, trace.fallback, {}, {}};
    for (unsigned stage = 0; stage < STAGE_COUNT; ++stage) {
        block.after[stage] = trace.coded_len[stage];
        block.trailer[stage] = trace.trailer[stage];
    }
    web_restored(&block);
    return true;
}

const Coder kTeller = {alloc_decompress, free_decompress, restore};

} // namespace
} // namespace velk

velk_status web_flow_restore(velk_flow **flow) {
    const velk_status status = velk_flow_restore(flow, nullptr, nullptr, nullptr);
    if (status == VELK_OK) (*flow)->coder = &velk::kTeller;
    return status;
}

velk_status web_reader_open(velk_reader **reader, std::uint64_t archive_size, velk_report *report) {
    return velk_reader_open(reader, nullptr, web_read_at, nullptr, archive_size, report);
}

// The C library's would ask a system: for an environment, and for a clock to time the stages by.
char *getenv(const char * /*name*/) {
    return nullptr;
}

int clock_gettime(clockid_t /*clock*/, timespec * /*time*/) {
    return 0;
}
