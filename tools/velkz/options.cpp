#include "options.h"

#include "platform/files.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>

using namespace velk;

namespace {

constexpr const char *kHelp =
    "Usage: velkz [OPTION]... [FILE]...\n"
    "Compresses each FILE to FILE.velk and keeps it. No FILE, or -: standard input to\n"
    "standard output. unvelkz is velkz -d, velkcat is velkz -dc.\n"
    "\n"
    "  -z, --compress           compress (the default)\n"
    "  -d, --decompress         restore\n"
    "  -t, --test               check archives, write nothing\n"
    "  -l, --list               list the sizes of archives\n"
    "\n"
    "  -c, --stdout             write to standard output\n"
    "  -o, --output FILE        write to FILE\n"
    "  -S, --suffix SUFFIX      in place of .velk\n"
    "  -k, --keep               keep the input (the default)\n"
    "      --rm                 remove the input once the output is safe\n"
    "  -f, --force              overwrite; read links and devices too; with -dc pass on\n"
    "                           what is no archive\n"
    "  -r, --recursive          the files in folders, too\n"
    "      --range OFFSET:[LENGTH]  with -d: only these bytes of the original\n"
    "      --no-sparse          with -d: no holes in place of zeros\n"
    "\n"
    "  -1 .. -9                 level: blocks of 128K, 256K, 512K, 1M, 2M (-5, the default),\n"
    "                           4M, 8M, 16383K (-8); -9: and try what is smaller\n"
    "      --fast, --best       -1, -9\n"
    "  -b, --block-size SIZE    128K to 16383K, in place of the level's\n"
    "      --plain              no index: the archive that VELK writes\n"
    "  -T, --threads N          0, the default: one for each processor\n"
    "  -M, --memory-limit SIZE  use no more memory, and fewer threads for it\n"
    "      --size N             how many bytes come through a pipe\n"
    "\n"
    "  -q, --quiet              no warnings, no progress\n"
    "  -v, --verbose            a line for each file\n"
    "      --no-progress        no progress on a terminal\n"
    "  -h, --help               this text\n"
    "  -V, --version            the version\n"
    "\n"
    "VELKZ_OPT in the environment may hold -T and -M. A SIZE may end in K, M, G or T. Exit status: "
    "0, 1 after an error, 2 after a warning.\n";

// Options without a letter.
enum { kRemove = 256, kRange, kSize, kNoProgress, kPlain, kNoSparse };

constexpr option kLongOptions[] = {
    {"compress", no_argument, nullptr, 'z'},
    {"decompress", no_argument, nullptr, 'd'},
    {"test", no_argument, nullptr, 't'},
    {"list", no_argument, nullptr, 'l'},
    {"stdout", no_argument, nullptr, 'c'},
    {"output", required_argument, nullptr, 'o'},
    {"suffix", required_argument, nullptr, 'S'},
    {"keep", no_argument, nullptr, 'k'},
    {"rm", no_argument, nullptr, kRemove},
    {"force", no_argument, nullptr, 'f'},
    {"recursive", no_argument, nullptr, 'r'},
    {"range", required_argument, nullptr, kRange},
    {"no-sparse", no_argument, nullptr, kNoSparse},
    {"fast", no_argument, nullptr, '1'},
    {"best", no_argument, nullptr, '9'},
    {"block-size", required_argument, nullptr, 'b'},
    {"threads", required_argument, nullptr, 'T'},
    {"memory-limit", required_argument, nullptr, 'M'},
    {"size", required_argument, nullptr, kSize},
    {"plain", no_argument, nullptr, kPlain},
    {"quiet", no_argument, nullptr, 'q'},
    {"verbose", no_argument, nullptr, 'v'},
    {"no-progress", no_argument, nullptr, kNoProgress},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

constexpr struct {
    int letter;
    Mode mode;
} kModes[] = {
    {'z', Mode::kCompress}, {'d', Mode::kRestore}, {'t', Mode::kTest}, {'l', Mode::kList}};

constexpr struct {
    bool Options::*member;
    int letter;
    bool value;
} kSwitches[] = {
    {&Options::to_stdout, 'c', true},
    {&Options::remove, 'k', false},
    {&Options::force, 'f', true},
    {&Options::remove, kRemove, true},
    {&Options::recursive, 'r', true},
    {&Options::quiet, 'q', true},
    {&Options::no_progress, kNoProgress, true},
    {&Options::verbose, 'v', true},
    {&Options::no_sparse, kNoSparse, true},
};

Status usage_error(const std::string &subject, const std::string &what) {
    error(subject, what);
    std::fputs("Try 'velkz --help'.\n", stderr);
    return kError;
}

// Digits and perhaps K, M, G or T, up to `end`.
bool parse_number(const char *text, const char *end, std::uint64_t &number) {
    if (text == end) return false;
    static constexpr char kUnits[] = "KMGT";
    unsigned shift = 0;
    const char last = end[-1];
    const char *const unit = std::strchr(kUnits, last >= 'a' ? last - 'a' + 'A' : last);
    if (unit != nullptr) {
        shift = 10 * static_cast<unsigned>(unit - kUnits + 1);
        if (text == --end) return false;
    }
    number = 0;
    for (; text != end; ++text) {
        if (*text < '0' || *text > '9') return false;
        const std::uint64_t digit = static_cast<std::uint64_t>(*text - '0');
        if (number > (UINT64_MAX - 1 - digit) / 10) return false; // UINT64_MAX has its own sense
        number = number * 10 + digit;
    }
    if (number > (UINT64_MAX - 1) >> shift) return false;
    number <<= shift;
    return true;
}

bool parse_range(const char *text, Options &options) {
    const char *const end = text + std::strlen(text);
    const char *const colon = std::strchr(text, ':');
    if (colon == nullptr) return false;
    options.ranged = true;
    return parse_number(text, colon, options.range_offset) &&
           (colon + 1 == end || parse_number(colon + 1, end, options.range_length));
}

// An option with an argument. Null, or what would be right.
const char *apply_value(int letter, const char *text, Options &options) {
    std::uint64_t number = 0;
    const bool numeric = parse_number(text, text + std::strlen(text), number);
    switch (letter) {
    case 'o':
        options.output = text;
        return *text == '\0' ? "an output has a name" : nullptr;
    case 'S':
        options.suffix = text;
        return *text == '\0' || std::strpbrk(text, kFolderEnds) != nullptr
                   ? "a suffix has no slash and at least one character"
                   : nullptr;
    case 'b':
        options.library.block_size = static_cast<std::uint32_t>(number);
        return numeric && number % 1024 == 0 && number >= VELK_MIN_BLOCK_SIZE &&
                       number <= VELK_MAX_BLOCK_SIZE
                   ? nullptr
                   : "a block size is from 128K to 16383K, a multiple of 1K";
    case 'T':
        options.library.threads =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(number, VELK_MAX_THREADS));
        return numeric ? nullptr : "threads are a number, 0 for one a processor";
    case 'M':
        options.library.memory_limit = number;
        return numeric && number != 0 ? nullptr : "a memory limit is a size such as 200M";
    case kSize:
        options.size = number;
        return numeric ? nullptr : "a size is a number of bytes";
    default:
        return parse_range(text, options) ? nullptr : "a range is OFFSET:LENGTH, both in bytes";
    }
}

bool apply(int letter, const char *text, Options &options, Status &status) {
    for (const auto &mode : kModes) {
        if (mode.letter == letter) options.mode = mode.mode;
    }
    for (const auto &s : kSwitches) {
        if (s.letter == letter) options.*s.member = s.value;
    }
    if (letter == kPlain) options.library.plain = 1;
    if (letter >= '1' && letter <= '9')
        options.library.level = static_cast<std::uint8_t>(letter - '0');
    if (text == nullptr) return true;
    const char *const right = apply_value(letter, text, options);
    if (right != nullptr) status = usage_error(text, right);
    return right == nullptr;
}

// An option, and why it can't stand where it does.
struct Conflict {
    bool met;
    const char *option, *why;
};

// Refuses what would do harm, or something else than the user may think.
Status check_conflicts(const Options &o) {
    const bool compresses = o.mode == Mode::kCompress;
    const bool writes = compresses || o.mode == Mode::kRestore;
    const auto standard = std::count(o.names.begin(), o.names.end(), kStandardStream);
    const std::size_t streams = o.to_stdout ? o.names.size() : static_cast<std::size_t>(standard);
    const bool one_file = !o.output.empty();
    const Conflict conflicts[] = {
        {one_file && (!writes || o.to_stdout), "--output", "goes with neither -c, -t nor -l"},
        {one_file && o.names.size() != 1, "--output", "takes one input"},
        {one_file && o.recursive, "--output", "does not go with -r"},
        {o.remove && (!writes || o.to_stdout || o.ranged), "--rm",
         "goes with neither -c, -t, -l nor --range"},
        {o.ranged && o.mode != Mode::kRestore, "--range", "goes with -d"},
        {o.ranged && !one_file && streams != o.names.size(), "--range",
         "needs -c or -o: a part is not to bear the name of the whole"},
        {o.size != VELK_SIZE_UNKNOWN && (!compresses || o.names.size() != 1), "--size",
         "goes with the compression of one input"},
    };
    for (const Conflict &conflict : conflicts) {
        if (conflict.met) return usage_error(conflict.option, conflict.why);
    }
    return kSuccess;
}

void set_by_program_name(const char *path, Options &options) {
    std::string name = path;
    name.erase(0, name.find_last_of(kFolderEnds) + 1);
    if (name.ends_with(".exe")) name.resize(name.size() - 4);
    if (name == "unvelkz" || name == "velkcat") options.mode = Mode::kRestore;
    options.to_stdout = name == "velkcat";
}

const std::string kTarSuffix = ".tvelk"; // of .tar.velk

// In letters of either case.
bool ends_in(const std::string &path, const std::string &suffix) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return path.size() >= suffix.size() &&
           std::equal(suffix.begin(), suffix.end(), path.end() - static_cast<int>(suffix.size()),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

// What the environment says, for all runs: of what changes no archive.
bool apply_environment(Options &options, Status &status) {
    const char *const given = std::getenv("VELKZ_OPT");
    const std::string text = given == nullptr ? "" : given;
    for (std::size_t end, at = 0; (at = text.find_first_not_of(' ', at)) != text.npos; at = end) {
        end = std::min(text.find(' ', at), text.size());
        const std::string word = text.substr(at, end - at);
        if (word.size() < 3 || word[0] != '-' || (word[1] != 'T' && word[1] != 'M')) {
            status = usage_error("VELKZ_OPT", "holds -T and -M with their numbers, nothing else");
            return false;
        }
        if (!apply(word[1], word.c_str() + 2, options, status)) return false;
    }
    return true;
}

} // namespace

bool parse_options(int argument_count, char **arguments, Options &options, Status &status) {
    velk_options_init(&options.library);
    if (argument_count > 0) set_by_program_name(arguments[0], options);
    if (!apply_environment(options, status)) return false;
    int letter;
    opterr = 0; // its own messages have names as they are
    while ((letter = getopt_long(argument_count, arguments, ":zdtlco:S:kfr123456789b:T:M:qvhV",
                                 kLongOptions, nullptr)) != -1) {
        status = kSuccess;
        if (letter == 'h') std::fputs(kHelp, stdout);
        if (letter == 'V')
            std::printf("velkz (VELK) %s, code for %s\n", velk_version(), velk_cpu());
        if (letter == 'h' || letter == 'V') return false;
        if (letter == '?' || letter == ':') {
            const bool is_letter = optopt > 0 && optopt < 256;
            status = usage_error(is_letter ? std::string("-") + static_cast<char>(optopt)
                                           : arguments[optind - 1],
                                 letter == ':' ? "needs an argument" : "unknown option");
            return false;
        }
        if (!apply(letter, optarg, options, status)) return false;
    }
    options.names.assign(arguments + optind, arguments + argument_count);
    if (options.names.empty()) options.names.emplace_back(kStandardStream);
    status = check_conflicts(options);
    return status == kSuccess;
}

bool has_suffix(const std::string &path, const Options &options) {
    return ends_in(path, options.suffix) || ends_in(path, kTarSuffix);
}

std::string without_suffix(const std::string &path, const Options &options) {
    const bool of_tar = ends_in(path, kTarSuffix);
    const std::size_t length = (of_tar ? kTarSuffix : options.suffix).size();
    const std::string name = path.substr(0, path.size() - length);
    const bool named = !name.empty() && std::strchr(kFolderEnds, name.back()) == nullptr;
    return named && of_tar ? name + ".tar" : named ? name : "";
}
