// Inputs made to be slow to compress or to restore.
#pragma once

#include "data.h"

#include <functional>

// Each byte one of `letters`, drawn at random.
Bytes mix(std::size_t n, const std::string &letters, std::uint64_t seed);

// Copies of `word`, to which trailers are added of stages before the sort that all decline:
// blocks with equal rotations.
Bytes whole_copies(const Bytes &word, std::size_t n);

// The byte values below `values` over and over, in an order in which so many pairs change
// places each time: with few exchanges, every value's next place lies behind all others.
Bytes rounds(std::size_t n, std::uint32_t values, std::uint32_t exchanges);

// Makes a file of about `n` bytes, never more; the parameters' meaning is the family's.
struct Family {
    const char *name;
    std::uint32_t limits[3]; // of the parameters, from 1 on; 0 stands for n / 2
    Bytes (*make)(std::size_t n, const std::uint32_t (&parameters)[3]);
};

// What a search over parameters draws from.
extern const std::vector<Family> kFamilies;

struct WorstInput {
    std::string name;
    std::function<Bytes(std::size_t n)> make;
};

// What the table of worst cases shows; `n` is at least 1 MiB.
std::vector<WorstInput> worst_inputs();
