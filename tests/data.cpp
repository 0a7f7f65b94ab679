#include "data.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <utility>

std::uint32_t Random::below(std::uint32_t bound) {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return static_cast<std::uint32_t>((state_ * 0x2545F4914F6CDD1Du) >> 33) % bound;
}

Bytes to_bytes(const std::string &text) {
    return Bytes(text.begin(), text.end());
}

std::string to_text(const Bytes &bytes) {
    return std::string(bytes.begin(), bytes.end());
}

std::uint32_t length_of(const Bytes &bytes) {
    return static_cast<std::uint32_t>(bytes.size());
}

void append(Bytes &bytes, const Bytes &more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

Bytes random_bytes(std::size_t n, std::uint32_t alphabet, std::uint64_t seed) {
    Random random(seed);
    Bytes bytes(n);
    for (auto &b : bytes)
        b = static_cast<std::uint8_t>(random.below(alphabet));
    return bytes;
}

Bytes random_block(Random &random, std::uint32_t most) {
    const std::uint32_t alphabet = 1 + random.below(1u << random.below(9));
    const std::uint32_t n = 1 + random.below(most);
    return random_bytes(n, alphabet, random.below(1u << 30));
}

Bytes periodic(const std::string &word, std::size_t n) {
    Bytes bytes(n);
    for (std::size_t i = 0; i < n; ++i)
        bytes[i] = static_cast<std::uint8_t>(word[i % word.size()]);
    return bytes;
}

Bytes repeated(const Bytes &word, std::size_t times) {
    return periodic(to_text(word), times * word.size());
}

Bytes fibonacci(std::size_t n) {
    std::string a = "a", b = "ab";
    while (b.size() < n)
        a = std::exchange(b, b + a);
    return to_bytes(b.substr(0, n));
}

Bytes runs(std::size_t n, std::uint64_t seed) {
    Random random(seed);
    Bytes bytes;
    while (bytes.size() < n) {
        const std::size_t length = 1 + random.below(1u << random.below(12));
        bytes.insert(bytes.end(), length, static_cast<std::uint8_t>(random.below(5) * 40));
    }
    bytes.resize(n);
    return bytes;
}

Bytes prose(std::size_t n, std::uint32_t width, const std::string &line_end, std::uint64_t seed) {
    Random random(seed);
    std::vector<std::string> words;
    for (int i = 0; i < 400; ++i) {
        std::string word;
        std::uint32_t letters = 1 + random.below(4);
        letters += random.below(5);
        for (; letters > 0; --letters) {
            word += "etaoinshrdlucmfwyp"[std::min(random.below(18), random.below(18))];
        }
        words.push_back(word);
    }
    std::string text, line;
    while (text.size() < n) {
        const std::uint32_t i = random.below(400);
        const std::string &word = words[std::min(i, random.below(400))];
        if (!line.empty() && line.size() + 1 + word.size() > width) {
            text += line + line_end;
            line = random.below(12) == 0 ? line_end + "    " : "";
        }
        line += (line.empty() ? "" : " ") + word + (random.below(9) == 0 ? "," : "");
    }
    return to_bytes(text.substr(0, n));
}

Bytes code(std::size_t n, std::uint64_t seed) {
    Random random(seed);
    Bytes bytes;
    while (bytes.size() < n) {
        if (random.below(6) == 0) {
            const std::uint32_t target = random.below(12) * 977;
            const std::uint32_t operand = target - static_cast<std::uint32_t>(bytes.size()) - 5;
            bytes.push_back(0xE8);
            for (int i = 0; i < 4; ++i)
                bytes.push_back(static_cast<std::uint8_t>(operand >> (8 * i)));
        } else {
            static constexpr std::uint8_t kCommon[] = {0, 0, 0x48, 0x89, 0x8B, 0xFF, 0x0F, 0xE8};
            bytes.push_back(kCommon[random.below(8)]);
            const std::uint32_t small = random.below(64);
            bytes.push_back(static_cast<std::uint8_t>(small * random.below(5)));
        }
    }
    bytes.resize(n);
    return bytes;
}

Bytes records(std::size_t n, std::uint32_t size, std::uint64_t seed) {
    Random random(seed);
    Bytes fields(size), bytes(n);
    for (auto &f : fields)
        f = static_cast<std::uint8_t>(random.below(256));
    for (std::size_t i = 0; i < n; ++i) {
        std::uint8_t &field = fields[i % size];
        if (random.below(8) == 0) field = static_cast<std::uint8_t>(field + random.below(7) - 3);
        bytes[i] = field;
    }
    return bytes;
}

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes &part : parts)
        append(all, part);
    return all;
}

Bytes first_bytes(Bytes bytes, std::size_t n) {
    bytes.resize(n);
    return bytes;
}

std::vector<NamedBytes> all_kinds(std::size_t largest) {
    const std::size_t n = largest;
    Bytes counting(std::min<std::size_t>(n, 4096));
    for (std::size_t i = 0; i < counting.size(); ++i)
        counting[i] = static_cast<std::uint8_t>(i);
    const Bytes paragraph = prose(n / 6, 70, "\n", 3);
    return {
        {"one byte", to_bytes("x")},
        {"two bytes", to_bytes("ba")},
        {"zero byte", Bytes(1, 0)},
        {"equal bytes", Bytes(n, 'a')},
        {"zeros", Bytes(n / 2 + 1, 0)},
        {"period 2", periodic("ab", n)},
        {"period 3 and a rest", periodic("abc", n / 3 * 3 + 1)},
        {"period of prose", join({paragraph, paragraph, paragraph, paragraph})},
        {"fibonacci", fibonacci(n)},
        {"runs", runs(n, 5)},
        {"random", random_bytes(n / 2, 256, 6)},
        {"random bits", random_bytes(n / 2, 2, 7)},
        {"all byte values", counting},
        {"prose", prose(n, 72, "\n", 8)},
        {"prose, CR LF, 60 columns", prose(n, 60, "\r\n", 9)},
        {"prose, CR LF, 200 columns", prose(n / 2, 200, "\r\n", 10)},
        {"prose, CR LF, very long lines", prose(n / 2, 700, "\r\n", 11)},
        {"code", code(n, 12)},
        {"records of 2", records(n, 2, 13)},
        {"records of 3", records(n, 3, 14)},
        {"records of 4", records(n - 1, 4, 15)},
        {"mixed", join({paragraph, random_bytes(n / 8, 256, 16), paragraph, Bytes(n / 8, 0)})},
    };
}

void write_file(const std::string &path, const Bytes &bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

Bytes read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

std::string kept_text(const std::string &name, const std::string &text) {
    const std::string path = VELK_GOLDEN "/" + name;
    if (std::getenv("VELK_WRITE_GOLDEN") != nullptr) write_file(path, to_bytes(text));
    return to_text(read_file(path));
}
