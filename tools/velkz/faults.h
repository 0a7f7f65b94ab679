// What the library's errors mean to the user.
#pragma once

#include "options.h"

// "block 2 at offset 369706 is damaged; ..."
[[nodiscard]] std::string damage(std::uint64_t block, std::uint64_t offset);
[[nodiscard]] std::string header_damage();

// What all but damage, reading and writing may end with.
[[nodiscard]] std::string fault(velk_status status, const Options &options);
