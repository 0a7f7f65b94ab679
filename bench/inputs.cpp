#include "inputs.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace {

Bytes repetitive(std::size_t n) {
    Bytes bytes = prose(n / 16, 72, "\n", 4);
    for (std::size_t i = 0; bytes.size() < n; ++i)
        bytes.push_back(i % 5000 == 0 ? static_cast<std::uint8_t>('0' + i / 5000 % 10) : bytes[i]);
    return first_bytes(bytes, n);
}

} // namespace

std::vector<BenchInput> bench_inputs(std::size_t n, std::size_t least) {
    const char *const folder = std::getenv("VELK_BENCH_FILES");
    if (folder == nullptr) {
        return {{"prose", [=] { return prose(n, 72, "\n", 1); }},
                {"code", [=] { return code(n, 2); }},
                {"records", [=] { return records(n, 4, 3); }},
                {"repetitive", [=] { return repetitive(n); }}};
    }
    std::vector<BenchInput> inputs;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        if (!entry.is_regular_file() || entry.file_size() < least) continue;
        inputs.push_back({entry.path().filename().string(), [n, path = entry.path().string()] {
                              const Bytes file = read_file(path);
                              return first_bytes(file, std::min(n, file.size()));
                          }});
    }
    std::sort(inputs.begin(), inputs.end(),
              [](const BenchInput &a, const BenchInput &b) { return a.name < b.name; });
    return inputs;
}

Bytes stage_input(const Stage &stage, const Bytes &block) {
    if (&stage == &kRle) return kBwt.forward(block);
    if (&stage == &kDce) return kRle.forward(kBwt.forward(block));
    return block;
}
