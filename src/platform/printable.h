// Names as messages show them.
#pragma once

#include <string>

namespace velk {

// The name with a question mark in place of each control character, which a terminal would obey: of
// ASCII, and U+0080 to U+009F in UTF-8. Any other bytes stay.
[[nodiscard]] std::string printable(const std::string &name);

// Writes it to the error stream, at once: byte by byte, as C's streams may, consoles of Windows
// make nothing of names in UTF-8.
void put_message(const std::string &text);

} // namespace velk
