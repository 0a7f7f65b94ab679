// The one loop that reads until there is enough.
#pragma once

#include <cstdint>

namespace velk {

// Calls read_part(bytes, size), which answers as read(2), until the `count` bytes are there or
// the input ends. got: how many there are. False when a part can't be read.
template<typename ReadPart>
[[nodiscard]] bool read_fully(void *bytes, std::uint32_t count, std::uint32_t &got,
                              ReadPart read_part) {
    for (got = 0; got < count;) {
        const std::int64_t part = read_part(static_cast<std::uint8_t *>(bytes) + got, count - got);
        if (part < 0 || part > count - got) return false;
        if (part == 0) break;
        got += static_cast<std::uint32_t>(part);
    }
    return true;
}

} // namespace velk
