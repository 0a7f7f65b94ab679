#include "failure.h"

#include <algorithm>

using namespace velk;

namespace {

std::string lost_part(const velk_report &told, const velk_reader *reader) {
    velk_block block{};
    const bool known = reader != nullptr &&
                       velk_reader_block(reader, told.damaged_block, &block) == VELK_OK &&
                       block.offset == told.damaged_offset;
    // A member with an index has blocks of up to 512 bytes more.
    return (known ? std::to_string(block.size) : "up to " + std::to_string(told.block_size + 512)) +
           " bytes from " + std::to_string(known ? block.start : told.size) + " on are lost";
}

// Has one thread restore, or compress up to the archive's first bytes, when all memory is there.
velk_status try_limit(velk_options options, std::uint64_t limit, std::uint64_t size,
                      const std::uint8_t *header) {
    options.threads = 1;
    options.memory_limit = limit;
    if (header != nullptr) {
        velk_decoder *decoder;
        const velk_status status = velk_decoder_new(&decoder, &options, header);
        velk_decoder_free(decoder);
        return status;
    }
    velk_flow *flow;
    velk_status status = velk_flow_compress(&flow, &options, size, nullptr, nullptr);
    const std::vector<std::uint8_t> zeros(std::size_t{1} << 18);
    std::uint8_t first;
    for (velk_buffers buffers{nullptr, 0, &first, 1}; status == VELK_OK && buffers.out_size != 0;) {
        const std::size_t part = std::min<std::uint64_t>(size, zeros.size());
        buffers.in = zeros.data();
        buffers.in_size = part;
        status = velk_flow_run(flow, &buffers, part == size ? VELK_FINISH : VELK_RUN);
        size -= part - buffers.in_size;
    }
    velk_flow_close(flow);
    return status;
}

} // namespace

Status report(const Input &input, velk_status status, const velk_report &told,
              const velk_reader *reader) {
    const std::string &name = input.name;
    if (status == VELK_ERROR_READ) return error(name, "can't be read: " + errno_text());
    if (status == VELK_ERROR_FORMAT) return error(name, "is not a VELK archive");
    if (status != VELK_ERROR_DAMAGED) return error(name, velk_status_text(status));
    const std::string is_damaged = " is damaged or cut short";
    const std::string remedy = "; 'velkinfo salvage' may restore ";
    const std::string at = " at offset " + std::to_string(told.damaged_offset);
    if (told.damaged_part == VELK_PART_BLOCK)
        return error(name, "block " + std::to_string(told.damaged_block + 1) + at + is_damaged +
                               ", " + lost_part(told, reader) + remedy + "the others");
    if (told.damaged_part == VELK_PART_INDEX)
        return error(name, "the index" + at + " does not fit the blocks, or is cut short");
    return error(name, "the header" + (told.damaged_offset == 0 ? "" : at) + is_damaged + remedy +
                           "the blocks");
}

Status report_limit(const Input &input, const velk_options &options, std::uint64_t size,
                    const std::uint8_t *header) {
    constexpr std::uint64_t kUnit = 1 << 20;
    std::uint64_t low = options.memory_limit / kUnit, high = 1024; // enough for all
    std::string remedy;
    const auto suffices = [&](std::uint64_t limit) {
        return try_limit(options, limit, size, header) != VELK_ERROR_MEMORY;
    };
    if (!suffices(options.memory_limit)) { // or else of a later member
        while (low + 1 < high) {
            const std::uint64_t middle = (low + high) / 2;
            (suffices(middle * kUnit) ? high : low) = middle;
        }
        remedy = "; " + std::to_string(high) + "M would do";
    }
    return error(input.name, "the memory limit is too low for blocks of this size" + remedy);
}
