// Names of files as the command line has them.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace velk {

// The path of a name, whose bytes are UTF-8 on Windows (packaging/windows.manifest) and
// stay as they are elsewhere.
inline std::filesystem::path path_of(std::string_view name) {
    return std::u8string(name.begin(), name.end());
}

} // namespace velk
