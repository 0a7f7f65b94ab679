// Blocks and files that look like what people store, and some that nobody would.
// All are the same on every machine and in every run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

struct NamedBytes {
    std::string name;
    Bytes bytes;
};

// Numbers from a fixed seed (xorshift64*); the standard library's distributions
// differ between libraries. Not twice in a call's arguments: compilers differ in their order.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15u + 1) {}
    // 0 to bound - 1.
    std::uint32_t below(std::uint32_t bound);

private:
    std::uint64_t state_;
};

Bytes to_bytes(const std::string &text);
std::string to_text(const Bytes &bytes);
std::uint32_t length_of(const Bytes &bytes);
void append(Bytes &bytes, const Bytes &more);
Bytes random_bytes(std::size_t n, std::uint32_t alphabet, std::uint64_t seed);
// Up to `most` bytes over an alphabet of any size; small ones come up most.
Bytes random_block(Random &random, std::uint32_t most);
Bytes periodic(const std::string &word, std::size_t n);
Bytes repeated(const Bytes &word, std::size_t times);
// Two words that grow as the Fibonacci numbers do: many near-equal rotations.
Bytes fibonacci(std::size_t n);
// Runs of geometric lengths over a few byte values.
Bytes runs(std::size_t n, std::uint64_t seed);
// English-like words in lines of at most `width` columns with `line_end`.
Bytes prose(std::size_t n, std::uint32_t width, const std::string &line_end, std::uint64_t seed);
// Machine-code-like bytes: zeros, small numbers, calls (E8) of a few routines.
Bytes code(std::size_t n, std::uint64_t seed);
// Records of `size` bytes, each field changing slowly by itself.
Bytes records(std::size_t n, std::uint32_t size, std::uint64_t seed);
Bytes join(std::initializer_list<Bytes> parts);
Bytes first_bytes(Bytes bytes, std::size_t n);

// One of each of the above, and empty, single and equal bytes, up to `largest` bytes.
std::vector<NamedBytes> all_kinds(std::size_t largest);

void write_file(const std::string &path, const Bytes &bytes);
Bytes read_file(const std::string &path);

// The text that tests/golden keeps under this name: the given one, once scripts/make-golden
// has made the run write it.
std::string kept_text(const std::string &name, const std::string &text);
