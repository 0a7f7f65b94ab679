// One line on the terminal, from half a second after the start of a file on.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

// Bytes and blocks done so far. The size is that of the input; UINT64_MAX where it is unknown.
struct Amounts {
    std::uint64_t in = 0, out = 0, blocks = 0;
};

class Progress {
public:
    // compresses: the input is the original, or else the output is.
    Progress(const std::string &name, std::uint64_t size, bool compresses, bool shown);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // Draws the line if it is time to.
    void show(const Amounts &done);
    // "1000 -> 250, 25.00%, 1.0 MB/s"
    [[nodiscard]] std::string summary(const Amounts &done) const;

private:
    using Clock = std::chrono::steady_clock;
    [[nodiscard]] double seconds() const;
    [[nodiscard]] std::string figures(const Amounts &done) const;

    const std::string name_;
    const std::uint64_t size_;
    const bool compresses_, shown_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point next_;
};

// Takes the line away, if there is one. May be called by a signal handler.
void clear_progress();

// Part of the whole in percent, 0 of nothing.
[[nodiscard]] double percent(std::uint64_t part, std::uint64_t whole);
