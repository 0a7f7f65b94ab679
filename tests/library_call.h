// libvelk called on byte vectors and through callbacks that misbehave.
#pragma once

#include "data.h"
#include "velk.h"

#include <atomic>

velk_options options_with(std::uint32_t threads, std::uint32_t block_size = VELK_MIN_BLOCK_SIZE);

struct Outcome {
    velk_status status;
    Bytes bytes; // what was written
    bool operator==(const Outcome &) const = default;
};

Outcome compress(const velk_options &options, const Bytes &in);
// capacity: of the output.
Outcome decompress(const velk_options &options, const Bytes &archive, std::size_t capacity);

enum class Call { kRead, kWrite, kTell };
constexpr std::int64_t kTooMuch = INT64_MAX; // one more than was asked for

// A stream over byte vectors that reads and writes less than it is asked to.
struct TestStream {
    explicit TestStream(const Bytes &bytes, Call call = {}, std::int64_t answer = 0,
                        int calls_before = -1)
        : in(bytes), faulty(call), wrong_answer(answer), good_calls(calls_before) {}
    velk_stream callbacks();

    const Bytes &in;
    std::size_t at = 0;
    Bytes out;
    // After so many good calls (-1: all are) of one kind, this is one's answer.
    Call faulty;
    std::int64_t wrong_answer;
    int good_calls;
    bool fault_met = false;
    std::uint64_t told_in = 0, told_out = 0; // by the last call of `progress`
    Random read_sizes{1}, write_sizes{2};
};

// What a reader reads from.
struct TestArchive {
    const Bytes &bytes;
    int good_calls = -1; // then one fails; -1: none does
    bool size_known = true;
    std::size_t more = 0;       // bytes behind the archive
    std::size_t largest = 3000; // bytes that a call reads at most
    velk_report report{};
    int calls = 0;
};

velk_status open_reader(velk_reader *&reader, TestArchive &archive,
                        const velk_options *options = nullptr);
// Reads the original by a reader from its start, in pieces of `piece` bytes.
Outcome read_all(const Bytes &archive, std::size_t piece, int good_calls = -1,
                 velk_report *report = nullptr);

Outcome restore_stream(const Bytes &archive, std::uint32_t threads, velk_report &report);

// Compresses `in`, of this size, or restores it, by a flow that gets and gives as little at a time
// as the random numbers say. flushes: how many of 16 calls ask for it. *blocks: what it was told
// of.
Outcome run_flow(bool restoring, const velk_options &options, const Bytes &in, std::uint32_t seed,
                 std::uint32_t flushes = 0, std::uint64_t size = VELK_SIZE_UNKNOWN,
                 std::atomic<int> *blocks = nullptr);

// Restores the archive in every way that there is and compares with what the program would
// make of it, and beyond its first member with each other. Returns what differs; nothing most
// of the time. with_threads: by several, too.
std::string difference_to_program(const Bytes &archive, bool with_threads = true);
