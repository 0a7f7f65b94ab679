// Inputs made to be slow to compress or to restore.
#pragma once

#include "data.h"

#include <functional>

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
