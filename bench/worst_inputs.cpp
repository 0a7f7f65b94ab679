// Most inputs are members of a few families that a search can vary as well.
//
// Two kinds of periodic file differ for the sort. Behind a plain one the trailers of the
// stages break the period. A whole one ends where the trailers 1 0 0 0, of stages before
// the sort that all decline, make the end of its last period: rotations are equal.
#include "worst_inputs.h"

#include "archive_call.h"
#include "base/block_size.h"
#include "deep_partition.h"

#include <algorithm>
#include <numeric>

using namespace velk;

namespace {

using Parameters = const std::uint32_t (&)[3];

std::uint32_t length_of(std::size_t n) {
    return static_cast<std::uint32_t>(n);
}

std::uint8_t byte(std::uint32_t value) {
    return static_cast<std::uint8_t>(value);
}

// Letters of which EOL, with more spaces than zeros FLT32 and, as every context comes
// with many others, LZP make nothing.
Bytes declined_letters(std::size_t n, std::uint32_t letters, std::uint64_t seed) {
    std::string values(" \0\1 ", 4);
    for (std::uint32_t v = 14; values.size() <= letters && v < 256; ++v)
        values += static_cast<char>(v);
    Bytes bytes = mix(n, values, seed);
    std::fill_n(bytes.begin(), std::min<std::size_t>(n, 4), ' ');
    return bytes;
}

// A period, letters; 1: whole periods.
Bytes periods(std::size_t n, Parameters p) {
    if (p[2] == 1) {
        const std::uint32_t period = std::max(p[0], 7u);
        return whole_copies(declined_letters(period - 4, p[1], 1), n);
    }
    const Bytes word = random_bytes(p[0], p[1], 1);
    return periodic({word.begin(), word.end()}, n);
}

// Mean length of a run, letters other than the run's; 1: runs of that very length.
Bytes breaks(std::size_t n, Parameters p) {
    Random random(2);
    Bytes bytes;
    while (bytes.size() < n) {
        const std::size_t length = p[2] == 1 ? p[0] : random.below(2 * p[0] - 1) + 1;
        bytes.insert(bytes.end(), std::min(length, n - bytes.size()), 'a');
        bytes.push_back(byte('b' + random.below(p[1])));
    }
    return first_bytes(bytes, n);
}

// Letters; the least of so many draws.
Bytes noise(std::size_t n, Parameters p) {
    Random random(3);
    Bytes bytes(n);
    for (auto &b : bytes) {
        std::uint32_t least = random.below(p[0]);
        for (std::uint32_t i = 1; i < p[1]; ++i)
            least = std::min(least, random.below(p[0]));
        b = byte(least);
    }
    return bytes;
}

// So many values, exchanges, less one.
Bytes rounds_family(std::size_t n, Parameters p) {
    return rounds(n, p[0], p[1] - 1);
}

// A mean stay of so many bytes with so many values, which lie so far apart.
Bytes drift(std::size_t n, Parameters p) {
    Random random(5);
    Bytes bytes(n);
    std::uint32_t value = 0;
    for (auto &b : bytes) {
        if (random.below(p[0]) == 0) value = random.below(256);
        b = byte(value + random.below(p[1]) * p[2]);
    }
    return bytes;
}

// Copies of a text of so many letters and so long, one changed byte about every so many.
Bytes edits(std::size_t n, Parameters p) {
    Random random(6);
    Bytes bytes = p[2] > 255 ? prose(p[0], 72, "\n", 6) : random_bytes(p[0], p[2], 6);
    for (std::size_t i = 0; bytes.size() < n; ++i)
        bytes.push_back(random.below(p[1]) == 0 ? byte('0' + random.below(10)) : bytes[i]);
    return first_bytes(bytes, n);
}

// A dictionary of so many words, so long at most; 1: sorted.
Bytes words(std::size_t n, Parameters p) {
    Random random(7);
    std::vector<std::string> dictionary(p[0]);
    for (auto &word : dictionary) {
        for (std::uint32_t i = random.below(p[1]) + 1; i > 0; --i)
            word += static_cast<char>('a' + random.below(26));
        word += p[2] == 1 ? '\n' : ' ';
    }
    std::vector<std::uint32_t> text;
    for (std::size_t size = 0; size < n; size += dictionary[text.back()].size())
        text.push_back(random.below(p[0]));
    if (p[2] == 1) {
        std::sort(dictionary.begin(), dictionary.end());
        std::sort(text.begin(), text.end());
    }
    std::string all;
    for (const std::uint32_t word : text)
        all += dictionary[word];
    return first_bytes(to_bytes(all), n);
}

// Strings of so many letters that come again from anywhere before, so long; between them
// so many new bytes.
Bytes pieces(std::size_t n, Parameters p) {
    Random random(8);
    Bytes bytes = random_bytes(p[0], p[1], 8);
    bytes.reserve(n + p[0] + p[2]);
    while (bytes.size() < n) {
        const std::size_t from = random.below(length_of(bytes.size() - p[0] + 1));
        for (std::size_t i = from; i < from + p[0]; ++i)
            bytes.push_back(bytes[i]);
        for (std::uint32_t i = 0; i < p[2]; ++i)
            bytes.push_back(byte(random.below(p[1])));
    }
    return first_bytes(bytes, n);
}

// A word that each letter's own word is put into again and again: so many letters, words
// so long; the seed.
Bytes grown(std::size_t n, Parameters p) {
    Random random(p[2]);
    std::vector<Bytes> images(p[0]);
    for (auto &image : images) {
        image.resize(random.below(p[1]) + 1);
        for (auto &letter : image)
            letter = byte(random.below(p[0]));
    }
    images[0].resize(std::max<std::size_t>(images[0].size(), 2));
    images[0][0] = 0; // so that what has been written stays
    Bytes bytes = images[0];
    for (std::size_t i = 1; bytes.size() < n; ++i) {
        const Bytes &image = images[bytes[i]];
        bytes.insert(bytes.end(), image.begin(), image.end());
    }
    return first_bytes(bytes, n);
}

// Numbers that count up by so much in records so long, high bytes first, the rest of the
// record of so many values.
Bytes counters(std::size_t n, Parameters p) {
    Random random(9);
    Bytes bytes;
    for (std::uint32_t count = 0; bytes.size() < n; count += p[0]) {
        for (std::uint32_t shift = 24; shift != 0; shift -= 8)
            bytes.push_back(byte(count >> (shift - 8)));
        for (std::uint32_t i = 0; i < p[1]; ++i)
            bytes.push_back(byte(random.below(p[2])));
    }
    return first_bytes(bytes, n);
}

// Runs up to so long, of so many values.
Bytes runs_of_few(std::size_t n, Parameters p) {
    Random random(12);
    Bytes bytes;
    while (bytes.size() < n) {
        const std::uint8_t value = byte(random.below(p[1]));
        bytes.insert(bytes.end(), 1 + random.below(p[0]), value);
    }
    return first_bytes(bytes, n);
}

// Lines of so many columns, words of so many letters; so many calls among 256 bytes.
Bytes lines(std::size_t n, Parameters p) {
    Random random(10);
    Bytes bytes;
    for (std::size_t column = 0; bytes.size() < n; ++column) {
        if (column >= p[0]) {
            bytes.insert(bytes.end(), {'\r', '\n'});
            column = random.below(p[0]) / 4;
        }
        bytes.push_back(random.below(p[1] + 1) == 0 ? ' ' : byte('a' + random.below(26)));
        if (random.below(256) < p[2] - 1) bytes.push_back(0xE8);
    }
    return first_bytes(bytes, n);
}

// The cyclic sequence in which every word of `order` letters comes once: the Lyndon words
// whose length divides it, in order (after J.-P. Duval).
Bytes de_bruijn(std::uint32_t letters, std::size_t order, std::size_t n) {
    Bytes bytes, word = {0};
    while (!word.empty() && bytes.size() < n) {
        if (order % word.size() == 0) bytes.insert(bytes.end(), word.begin(), word.end());
        for (std::size_t i = 0; word.size() < order; ++i)
            word.push_back(word[i]);
        while (!word.empty() && word.back() == letters - 1)
            word.pop_back();
        if (!word.empty()) ++word.back();
    }
    return bytes;
}

Bytes whole_de_bruijn(std::size_t order, std::size_t n) {
    constexpr std::uint8_t kLetters[] = {0, 1, ' '};
    Bytes word = de_bruijn(3, order, n);
    for (auto &letter : word)
        letter = kLetters[letter];
    const Bytes end = {1, 0, 0, 0};
    const auto found = std::search(word.begin(), word.end(), end.begin(), end.end());
    std::rotate(word.begin(), found + 4, word.end());
    word.resize(word.size() - 4);
    return whole_copies(word, n);
}

// Bit i of the word is the number of ones of i modulo 2.
Bytes thue_morse(std::size_t n) {
    Bytes bytes(n);
    for (std::size_t i = 1; i < n; ++i)
        bytes[i] = bytes[i / 2] ^ (i & 1);
    return bytes;
}

// Two halves that hold numbers in ascending order, every sixth byte one: of each pair of
// rotations that are equal but for the half, those further on are not yet in order when
// the pair comes up, and are looked at up to the end of the half.
Bytes ascending_halves(std::size_t n) {
    constexpr std::uint32_t kDigit = 113;
    const std::uint32_t numbers = length_of((n + 4) / 12 - 1);
    Random random(11);
    Bytes word;
    for (std::uint32_t i = 0; i < numbers; ++i) {
        const std::uint32_t number =
            static_cast<std::uint32_t>(std::uint64_t{i} * kDigit * kDigit * kDigit / numbers);
        for (const std::uint32_t digit : {number / kDigit / kDigit, number / kDigit, number})
            word.push_back(byte(14 + digit % kDigit));
        for (int k = 0; k < 3; ++k)
            word.push_back(byte(128 + random.below(127)));
    }
    word.insert(word.end(), {255, 255});
    return whole_copies(word, n);
}

Bytes compressed(std::size_t n) {
    Chain chain(0x20, false, 0);
    Bytes all;
    for (std::uint64_t seed = 0; all.size() < n; ++seed) {
        const Bytes data = chain.compress(seed % 2 == 0 ? prose(kMinBlockSize, 72, "\n", seed)
                                                        : code(kMinBlockSize, seed));
        all.insert(all.end(), data.begin(), data.end());
    }
    return first_bytes(all, n);
}

Bytes dna(std::size_t n) {
    constexpr std::uint8_t kBases[] = {'A', 'C', 'G', 'T'};
    Bytes bytes = pieces(n, {2000, 4, 20000});
    for (auto &b : bytes)
        b = kBases[b];
    return bytes;
}

// A member of a family; parameters that the length decides are given as functions of it.
template<typename... Numbers>
WorstInput member(const std::string &name, Bytes (*make)(std::size_t, Parameters),
                  Numbers... numbers) {
    return {name, [=](std::size_t n) { return make(n, {std::uint32_t(numbers)...}); }};
}

void add_periods(std::vector<WorstInput> &inputs) {
    for (const std::uint32_t period :
         {1u, 2u, 3u, 4u, 5u, 7u, 8u, 100u, 1000u, 4096u, 65535u, 65536u}) {
        const std::string name = "period " + std::to_string(period);
        inputs.push_back(member(name, periods, period, 256, 2));
        if (period >= 7) inputs.push_back(member(name + ", whole", periods, period, 3, 1));
    }
    for (const std::uint32_t part : {3u, 2u}) {
        const std::string name = "period n/" + std::to_string(part);
        const auto add = [&](const std::string &kind, std::uint32_t letters, std::uint32_t whole) {
            inputs.push_back({name + kind, [=](std::size_t n) {
                                  return periods(n, {length_of((n + 4) / part), letters, whole});
                              }});
        };
        add("", 256, 2);
        add(", whole", 3, 1);
        add(" of 240 values, whole", 240, 1);
    }
    inputs.push_back({"equal halves of prose", [](std::size_t n) {
                          const Bytes half = prose(n / 2, 72, "\n", 3);
                          return join({half, half});
                      }});
    inputs.push_back({"Fibonacci halves, whole", [](std::size_t n) {
                          Bytes half = fibonacci(n / 2 - 2);
                          std::replace(half.begin(), half.end(), 'a', ' ');
                          return whole_copies(half, n);
                      }});
    inputs.push_back({"ascending numbers, halves", ascending_halves});
    inputs.push_back({"deep partition, halves", deep_partition});
}

void add_words(std::vector<WorstInput> &inputs) {
    inputs.push_back({"Fibonacci", fibonacci});
    inputs.push_back({"Thue-Morse", thue_morse});
    for (const std::uint32_t letters : {2u, 16u, 256u}) {
        inputs.push_back({"de Bruijn of " + std::to_string(letters), [=](std::size_t n) {
                              std::size_t order = 1;
                              for (std::size_t words = letters; words < n; words *= letters)
                                  ++order;
                              return first_bytes(de_bruijn(letters, order, n), n);
                          }});
    }
    for (const std::size_t order : {5u, 9u})
        inputs.push_back({"de Bruijn of 3 and order " + std::to_string(order) + ", whole",
                          [=](std::size_t n) { return whole_de_bruijn(order, n); }});
}

void add_runs_and_noise(std::vector<WorstInput> &inputs) {
    for (const std::uint32_t run :
         {10u, 30u, 100u, 1000u, 10000u, 30000u, 100000u, 300000u, 1000000u})
        inputs.push_back(member("breaks about every " + std::to_string(run), breaks, run, 1, 2));
    inputs.push_back(member("other breaks about every 100000", breaks, 100000, 150, 2));
    inputs.push_back(member("breaks every 10000", breaks, 10000, 150, 1));
    inputs.push_back({"runs", [](std::size_t n) { return runs(n, 1); }});
    inputs.push_back(member("runs up to 20 of 2 values", runs_of_few, 20, 2));
    inputs.push_back(member("runs up to 300 of 16 values", runs_of_few, 300, 16));
    for (const std::uint32_t letters : {2u, 4u, 16u, 64u, 128u, 180u, 200u, 220u, 240u, 250u, 256u})
        inputs.push_back(member("random, " + std::to_string(letters), noise, letters, 1));
    inputs.push_back(member("random, 256 but low", noise, 256, 2));
    for (const std::uint32_t exchanges : {0u, 8u, 40u, 256u})
        inputs.push_back({"rounds, " + std::to_string(exchanges) + " exchanges",
                          [=](std::size_t n) { return rounds(n, 256, exchanges); }});
}

void add_files(std::vector<WorstInput> &inputs) {
    inputs.push_back(member("sorted words", words, 100000, 12, 1));
    inputs.push_back(member("dictionary of 10", words, 10, 8, 2));
    inputs.push_back(member("dictionary of 3000", words, 3000, 8, 2));
    inputs.push_back({"DNA", dna});
    for (const std::uint32_t size : {3u, 4u, 100u})
        inputs.push_back({"records of " + std::to_string(size),
                          [=](std::size_t n) { return records(n, size, 12); }});
    for (const std::uint32_t letters : {2u, 16u, 256u}) {
        inputs.push_back(member("counters and 13 bytes of " + std::to_string(letters), counters, 1,
                                13, letters));
    }
    for (const std::uint32_t distance : {100u, 5000u, 100000u})
        inputs.push_back(
            {"prose, edits about every " + std::to_string(distance), [=](std::size_t n) {
                 return edits(n, {length_of(n / 16), distance, 256});
             }});
    inputs.push_back({"code", [](std::size_t n) { return code(n, 13); }});
    inputs.push_back({"prose, CR LF", [](std::size_t n) { return prose(n, 60, "\r\n", 14); }});
    inputs.push_back({"compressed data", compressed});
}

} // namespace

Bytes mix(std::size_t n, const std::string &letters, std::uint64_t seed) {
    Random random(seed);
    Bytes bytes(n);
    for (auto &b : bytes)
        b = static_cast<std::uint8_t>(letters[random.below(length_of(letters.size()))]);
    return bytes;
}

Bytes whole_copies(const Bytes &word, std::size_t n) {
    const Bytes trailers = {1, 0, 0, 0}, period = join({word, trailers});
    Bytes bytes = repeated(period, (n + trailers.size()) / period.size());
    bytes.resize(bytes.size() - trailers.size());
    return bytes;
}

Bytes rounds(std::size_t n, std::uint32_t values, std::uint32_t exchanges) {
    Random random(4);
    Bytes order(values), bytes;
    std::iota(order.begin(), order.end(), 0);
    while (bytes.size() < n) {
        for (std::uint32_t i = 0; i < exchanges; ++i)
            std::swap(order[random.below(values)], order[random.below(values)]);
        bytes.insert(bytes.end(), order.begin(), order.end());
    }
    return first_bytes(bytes, n);
}

const std::vector<Family> kFamilies = {
    {"periods", {0, 256, 2}, periods},  {"breaks", {1000000, 150, 2}, breaks},
    {"noise", {256, 8, 1}, noise},      {"rounds", {256, 256, 1}, rounds_family},
    {"drift", {1000, 256, 256}, drift}, {"edits", {0, 1000000, 256}, edits},
    {"words", {100000, 40, 2}, words},  {"pieces", {100000, 256, 1000}, pieces},
    {"grown", {20, 20, 1000}, grown},   {"counters", {100000, 40, 256}, counters},
    {"lines", {300, 40, 200}, lines},   {"runs", {1000, 256, 1}, runs_of_few},
};

std::vector<WorstInput> worst_inputs() {
    std::vector<WorstInput> inputs;
    add_periods(inputs);
    add_words(inputs);
    add_runs_and_noise(inputs);
    add_files(inputs);
    return inputs;
}
