#include "inputs.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

namespace {

std::vector<NamedBytes> files_of(const char *folder, std::size_t n) {
    std::vector<NamedBytes> inputs;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        if (!entry.is_regular_file() || entry.file_size() < n) continue;
        Bytes bytes(n);
        std::ifstream file(entry.path(), std::ios::binary);
        file.read(reinterpret_cast<char *>(bytes.data()), static_cast<std::streamsize>(n));
        inputs.push_back({entry.path().filename().string(), bytes});
    }
    std::sort(inputs.begin(), inputs.end(),
              [](const NamedBytes &a, const NamedBytes &b) { return a.name < b.name; });
    return inputs;
}

std::vector<NamedBytes> made_up(std::size_t n) {
    Bytes repetitive = prose(n / 16, 72, "\n", 4);
    for (std::size_t i = 0; repetitive.size() < n; ++i)
        repetitive.push_back(i % 5000 == 0 ? static_cast<std::uint8_t>('0' + i / 5000 % 10)
                                           : repetitive[i]);
    repetitive.resize(n);
    return {{"prose", prose(n, 72, "\n", 1)},
            {"code", code(n, 2)},
            {"records", records(n, 4, 3)},
            {"repetitive", repetitive}};
}

} // namespace

const std::vector<NamedBytes> &bench_inputs(std::size_t n) {
    static std::map<std::size_t, std::vector<NamedBytes>> made;
    const auto found = made.find(n);
    if (found != made.end()) return found->second;
    const char *const folder = std::getenv("VELK_BENCH_FILES");
    return made[n] = folder == nullptr ? made_up(n) : files_of(folder, n);
}
