#include "failure.h"

Status report(const std::string &name, velk_status status, const velk_report &told,
              const Options &options) {
    if (status == VELK_ERROR_READ) return error(name, "can't be read: " + errno_text());
    if (status == VELK_ERROR_FORMAT) return error(name, "is not a VELK archive");
    if (status == VELK_ERROR_MEMORY && options.library.memory_limit != 0)
        return error(name, "the memory limit is too low for blocks of this size");
    if (status != VELK_ERROR_DAMAGED) return error(name, velk_status_text(status));
    const std::string remedy = " is damaged or cut short; 'velkinfo salvage' may restore ";
    const std::string at = " at offset " + std::to_string(told.damaged_offset);
    if (told.damaged_part == VELK_PART_BLOCK)
        return error(name, "block " + std::to_string(told.damaged_block + 1) + at + remedy +
                               "the others");
    if (told.damaged_part == VELK_PART_INDEX)
        return error(name, "the index" + at + " does not fit the blocks, or is cut short");
    return error(name, "the header" + (told.damaged_offset == 0 ? "" : at) + remedy + "the blocks");
}
