// Numbers side by side, as many as fit the widest vectors that the code is compiled for: the
// vector types of GCC and Clang, which become the machine's own vectors (SSE2 or AVX2 on x86-64)
// or plain code.
#pragma once

#include <cstdint>
#include <cstring>

namespace velk {

#ifdef __AVX2__
constexpr std::uint32_t kVectorBytes = 32;
#else
constexpr std::uint32_t kVectorBytes = 16;
#endif
typedef std::uint8_t ByteLanes __attribute__((vector_size(kVectorBytes)));
typedef std::uint16_t CountLanes __attribute__((vector_size(kVectorBytes)));
typedef std::int32_t EntryLanes __attribute__((vector_size(kVectorBytes)));

template<typename Lanes>
constexpr std::uint32_t kLanesOf = sizeof(Lanes) / sizeof(Lanes{}[0]);

// Loads a vector, or stores one, at any address.
template<typename Lanes>
inline Lanes load(const void *p) {
    Lanes lanes;
    std::memcpy(&lanes, p, sizeof lanes);
    return lanes;
}

template<typename Lanes>
inline void store(void *p, Lanes lanes) {
    std::memcpy(p, &lanes, sizeof lanes);
}

} // namespace velk
