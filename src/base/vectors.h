// Numbers side by side, 16 bytes of them: the vector types of GCC and Clang, which become
// the machine's own vectors (SSE2 on x86-64) or plain code.
#pragma once

#include <cstdint>
#include <cstring>

namespace velk {

typedef std::uint8_t ByteLanes __attribute__((vector_size(16)));
typedef std::uint16_t CountLanes __attribute__((vector_size(16)));
typedef std::int32_t EntryLanes __attribute__((vector_size(16)));

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

// Vector i of a row whose lanes are counted through: all ones in the lanes from number x on, zeros
// in those before; x below 2^15. (The numbers are signed: SSE2 compares only such.)
inline CountLanes lanes_from(std::uint32_t x, std::uint32_t i) {
    typedef std::int16_t Numbers __attribute__((vector_size(16)));
    const Numbers numbers =
        Numbers{0, 1, 2, 3, 4, 5, 6, 7} + static_cast<std::int16_t>(kLanesOf<CountLanes> * i);
    return reinterpret_cast<CountLanes>(numbers >= Numbers{} + static_cast<std::int16_t>(x));
}

} // namespace velk
