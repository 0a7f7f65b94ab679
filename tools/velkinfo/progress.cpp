#include "velkinfo/progress.h"

#include "platform/printable.h"
#include "platform/streams.h"

#include <chrono>
#include <cstdio>

namespace {

int columns = 0; // on the screen

} // namespace

void show_progress(const velk::ArchiveFile &archive, std::uint64_t offset) {
    using Clock = std::chrono::steady_clock;
    static const bool watched = velk::is_terminal(velk::kStandardError);
    static Clock::time_point next = Clock::now() + std::chrono::seconds(1);
    if (!watched || Clock::now() < next) return;
    next = Clock::now() + std::chrono::milliseconds(250);
    columns = std::fprintf(stderr, "\r%s: %3.0f%%", velk::printable(archive.name).c_str(),
                           100 * static_cast<double>(offset) / static_cast<double>(archive.size));
    std::fflush(stderr);
}

// Not every console knows a code that clears the line.
void clear_progress() {
    if (columns > 0) std::fprintf(stderr, "\r%*s\r", columns, "");
    columns = 0;
}
