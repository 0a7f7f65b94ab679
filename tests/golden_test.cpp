// Archives in tests/corpus, whose bytes every build on every machine makes and
// restores. They hold the format still: a failure here means that the archives of
// users no longer come back, or differ from machine to machine.
#include "program.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

struct Golden {
    std::string name; // of the archive, and what it is about
    std::string switches;
    Bytes input;
};

std::vector<Golden> golden() {
    const Bytes text = prose(10000, 70, "\n", 1);
    const Bytes block = runs(131072, 7);
    return {
        {"eol", "-o", prose(16000, 60, "\r\n", 2)},
        {"flt32", "-o", code(12000, 3)},
        {"delta", "-o", records(12000, 4, 4)},
        {"lzp", "-o", join({text, to_bytes("and now"), text, random_bytes(9, 256, 5), text})},
        {"equal", "-o", Bytes(5000, 'e')},
        {"periodic", "-oz", periodic("abracadabra.", 6000)},
        {"fibonacci", "-ozr", fibonacci(7000)},
        {"st", "-to", text},
        {"no-rle", "-or", text},
        {"no-dce", "-ozd", text},
        {"fallback", "-b128", random_bytes(3000, 256, 6)},
        {"no-gain", "-eflzd", join({random_bytes(200, 256, 6), Bytes(27, 'a')})},
        {"stored", "-eflzwrdo", random_bytes(1000, 256, 8)},
        {"two-blocks", "-ab128", join({block, prose(5000, 40, "\r\n", 9)})},
        {"empty", "-o", {}},
    };
}

TEST(Golden, SameBytesFromEveryBuild) {
    const ScratchFolder files;
    // scripts/make-golden makes this run write the archives instead.
    const bool write = std::getenv("VELK_WRITE_GOLDEN") != nullptr;
    for (const auto &[name, switches, bytes] : golden()) {
        const std::string kept = VELK_GOLDEN "/../corpus/good-" + name + ".velk";
        write_file(files.input, bytes);
        EXPECT_EQ(run_velk({"e", files.input, files.archive, switches}).status, 0) << name;
        const Bytes made = read_file(files.archive);
        if (write) write_file(kept, made);
        EXPECT_TRUE(made == read_file(kept)) << name << " became " << testing::PrintToString(made);
        EXPECT_EQ(run_velk({"d", kept, files.output}).status, 0) << name;
        EXPECT_TRUE(read_file(files.output) == bytes) << name;
    }
    if (write) GTEST_SKIP() << "The archives were written, and compared with nothing.";
}

} // namespace
