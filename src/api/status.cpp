// The texts of all results, and the version.
#include "velk.h"

#include <cstddef>
#include <iterator>

namespace {

constexpr const char *kTexts[] = {
    "done",
    "a setting or an argument is out of its bounds",
    "not enough memory",
    "the output does not fit into its buffer",
    "not a VELK archive",
    "the archive is damaged or cut short",
    "the input can't be read",
    "the output can't be written",
    "cancelled",
    "all is out",
    "a thread has to be done first",
};
static_assert(std::size(kTexts) == VELK_BUSY + 1);

} // namespace

const char *velk_status_text(velk_status status) {
    const auto index = static_cast<std::size_t>(status);
    return index < std::size(kTexts) ? kTexts[index] : "unknown status";
}

const char *velk_version(void) {
    return VELK_VERSION;
}
