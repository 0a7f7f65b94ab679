// The CRC-32 of IEEE 802.3 (reflected polynomial EDB88320), taken over a block from
// its last byte to its first: the common CRC of the bytes in reverse order.
#pragma once

#include <cstdint>

namespace velk {

constexpr std::uint32_t kCrcBytes = 4;

// Does nothing: the tables are constants. For callers that set the checksum up.
inline void crc32_init() {}

// The CRC of the first `n` bytes of `buffer`; 0 for n = 0.
[[nodiscard]] std::uint32_t crc32_block(const std::uint8_t *buffer, std::uint32_t n);

} // namespace velk
