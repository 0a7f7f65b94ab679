#include "faults.h"

namespace {

const std::string kRemedy = "; 'velkinfo salvage' may restore ";

} // namespace

std::string damage(std::uint64_t block, std::uint64_t offset) {
    return "block " + std::to_string(block) + " at offset " + std::to_string(offset) +
           " is damaged or cut short" + kRemedy + "the others";
}

std::string header_damage() {
    return "the header is damaged or cut short" + kRemedy + "the blocks";
}

std::string fault(velk_status status, const Options &options) {
    if (status == VELK_ERROR_FORMAT) return "is not a VELK archive";
    if (status == VELK_ERROR_MEMORY && options.library.memory_limit != 0)
        return "the memory limit is too low for blocks of this size";
    return velk_status_text(status);
}
