// The commands of velkinfo. Each returns the exit status: 0, or 1 if anything is
// damaged or fails. Messages about that go to the standard error stream.
#pragma once

#include <string>

enum class ListForm { kTable, kQuick, kStages, kJson };

// Each takes names as open_archive does.

// Prints an archive's header, its blocks and what each stage did to their lengths. kQuick
// reads the record heads alone and restores nothing, as far as the archive is whole.
[[nodiscard]] int list_archive(const char *name, ListForm form);

// Restores every block of an archive in memory.
[[nodiscard]] int test_archive(const char *name);

struct SalvageOptions {
    bool force;   // overwrite an output that exists
    bool fill;    // write zeros for lost blocks of known length even where no index tells of them
    bool no_fill; // not even where one does
};

// Writes every intact block of a damaged archive to `output`, in order, and reports
// what is lost. 0 only for an archive that has no damage.
[[nodiscard]] int salvage_archive(const char *name, const char *output,
                                  const SalvageOptions &options);

constexpr const char *kBytesFollow = "what follows the archive's end is left out";

// "velkinfo: subject: message"
void complain(const std::string &subject, const std::string &message);
