// Arrays that grow, within a limit.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace velk {

template<typename Entry>
struct Growing {
    Entry *entries; // given back by std::free
    std::uint64_t count;
    std::uint64_t room; // entries that there is memory for
};

// Appends an entry; false where the array would take more than `limit` bytes, or more than
// there are.
template<typename Entry>
[[nodiscard]] bool append(Growing<Entry> &array, const Entry &entry, std::uint64_t limit) {
    constexpr std::uint64_t kFirstRoom = 8;
    if (array.count == array.room) {
        const std::uint64_t room = std::max(2 * array.room, kFirstRoom);
        if (room > std::min<std::uint64_t>(limit, SIZE_MAX) / sizeof(Entry)) return false;
        void *const larger =
            std::realloc(array.entries, static_cast<std::size_t>(room * sizeof(Entry)));
        if (larger == nullptr) return false;
        array.entries = static_cast<Entry *>(larger);
        array.room = room;
    }
    array.entries[array.count++] = entry;
    return true;
}

} // namespace velk
