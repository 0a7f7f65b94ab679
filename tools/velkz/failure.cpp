#include "failure.h"

Status report(const std::string &name, velk_status status, const velk_damage &damage,
              const Options &options) {
    const std::string remedy = " is damaged or cut short; 'velkinfo salvage' may restore ";
    if (status == VELK_ERROR_READ) return error(name, "can't be read: " + errno_text());
    if (status == VELK_ERROR_FORMAT) return error(name, "is not a VELK archive");
    if (status == VELK_ERROR_MEMORY && options.library.memory_limit != 0)
        return error(name, "the memory limit is too low for blocks of this size");
    if (status != VELK_ERROR_DAMAGED) return error(name, velk_status_text(status));
    if (damage.offset == 0) return error(name, "the header" + remedy + "the blocks");
    return error(name, "block " + std::to_string(damage.block + 1) + " at offset " +
                           std::to_string(damage.offset) + remedy + "the others");
}
