// Writes the seeds of every fuzz target below a folder:
//
//   make_seeds FOLDER        FOLDER/fuzz_archive/..., FOLDER/fuzz_inverse/..., ...
#include "archive_call.h"
#include "stage_call.h"

#include <filesystem>
#include <iostream>

namespace {

namespace fs = std::filesystem;

// Long enough for every stage to apply to the kind of data that it is for.
constexpr std::size_t kLargest = 700;

void write_seed(const fs::path &folder, const std::string &name, const Bytes &bytes) {
    fs::create_directories(folder);
    write_file(folder / name, bytes);
}

// The settings are spread over the kinds of data, so that every one is met.
void write_seeds(const fs::path &folder) {
    static constexpr std::uint8_t kFlags[] = {0x20, 0x10, 0x20, 0xA0, 0x00};
    const auto kinds = all_kinds(kLargest);
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        const auto &[name, bytes] = kinds[i];
        const std::uint8_t flags = kFlags[i % 5];
        const Bytes archive = make_archive(flags == 0 ? 0x20 : flags, {bytes, bytes});
        write_seed(folder / "fuzz_archive", name, archive);
        write_seed(folder / "fuzz_salvage", name, make_archive(0xFF, {archive, bytes}));
        const Bytes indexed = make_indexed(0x20, {bytes, bytes});
        for (const char *const target : {"fuzz_library", "fuzz_two_decoders"})
            write_seed(folder / target, name, i % 2 == 0 ? archive : join({indexed, archive}));
        write_seed(folder / "fuzz_round_trip", name,
                   join({{flags, static_cast<std::uint8_t>(i * 37), 0, 1, 0, 0}, bytes}));
        write_seed(folder / "fuzz_flow", name,
                   join({{static_cast<std::uint8_t>(i), 1, 2, 0, static_cast<std::uint8_t>(i * 37)},
                         bytes}));
        for (std::size_t stage = 0; stage < kStages.size(); ++stage) {
            write_seed(
                folder / "fuzz_inverse", kStages[stage]->name + " " + name,
                join({{static_cast<std::uint8_t>(stage), 20}, kStages[stage]->forward(bytes)}));
        }
    }
}

} // namespace

int main(int argument_count, char **arguments) {
    if (argument_count != 2) {
        std::cerr << "Usage: make_seeds FOLDER\n";
        return 1;
    }
    write_seeds(arguments[1]);
}
