#include "progress.h"

#include "messages.h"
#include "platform/streams.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <unistd.h>

using namespace velk;

namespace {

constexpr auto kFirst = std::chrono::milliseconds(500);
constexpr auto kBetween = std::chrono::milliseconds(100);

volatile std::sig_atomic_t on_screen = 0;

bool begins_character(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; // in UTF-8
}

// The end of the name, which tells more than its folders, in so many columns.
std::string shortened(const std::string &name, std::size_t columns) {
    std::size_t from = name.size();
    for (std::size_t left = columns; from != 0 && left != 0; --left) {
        do
            --from;
        while (from != 0 && !begins_character(name[from]));
    }
    return name.substr(from);
}

template<typename... Values>
std::string formatted(const char *format, Values... values) {
    char text[160];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

} // namespace

void clear_progress() {
    if (on_screen == 0) return;
    on_screen = 0;
    static constexpr char kClear[] = "\r\x1B[K";
    [[maybe_unused]] const ssize_t written = write(kStandardError, kClear, sizeof kClear - 1);
}

double percent(std::uint64_t part, std::uint64_t whole) {
    return whole == 0 ? 0 : 100 * static_cast<double>(part) / static_cast<double>(whole);
}

Progress::Progress(const std::string &name, std::uint64_t size, bool compresses, bool shown)
    : name_(printable(name)), size_(size), compresses_(compresses), shown_(shown),
      next_(start_ + kFirst) {}

Progress::~Progress() {
    clear_progress();
}

double Progress::seconds() const {
    return std::max(std::chrono::duration<double>(Clock::now() - start_).count(), 1e-6);
}

std::string Progress::figures(const Amounts &done) const {
    const std::uint64_t original = compresses_ ? done.in : done.out;
    const std::uint64_t archive = compresses_ ? done.out : done.in;
    return formatted("%.2f%%, %.1f MB/s", percent(archive, original),
                     static_cast<double>(original) / 1e6 / seconds());
}

std::string Progress::summary(const Amounts &done) const {
    return formatted("%llu -> %llu, ", static_cast<unsigned long long>(done.in),
                     static_cast<unsigned long long>(done.out)) +
           figures(done);
}

void Progress::show(const Amounts &done) {
    if (!shown_ || Clock::now() < next_) return;
    next_ = Clock::now() + kBetween;
    std::string text;
    if (size_ == UINT64_MAX) {
        text = formatted("  %.1f MB", static_cast<double>(done.in) / 1e6);
    } else {
        text = formatted("  %3.0f%%", percent(done.in, size_));
    }
    text += formatted(", block %llu", static_cast<unsigned long long>(done.blocks + 1));
    if (done.in != 0 && done.out != 0) text += ", ratio " + figures(done);
    if (done.in != 0 && size_ != UINT64_MAX) {
        const double left = static_cast<double>(size_ - std::min(done.in, size_)) * seconds() /
                            static_cast<double>(done.in);
        const long long whole = std::llround(left);
        text += formatted(", %lld:%02lld left", whole / 60, whole % 60);
    }
    const std::size_t known = terminal_width(kStandardError);
    const std::size_t width = (known == 0 ? 80 : known) - 1;
    const std::size_t room = text.size() + 8 < width ? width - text.size() : 8;
    put_message("\r" + shortened(name_, room) + text.substr(0, width - std::min(room, width)) +
                "\x1B[K");
    on_screen = 1;
}
