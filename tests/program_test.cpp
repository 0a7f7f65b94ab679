// The program as its users meet it: messages, exit statuses, files.
#include "archive/format.h"
#include "base/block_size.h"
#include "base/byte_order.h"
#include "program.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace velk;

namespace {

const std::string kReadError = "Input file read error: ";
const std::string kWriteError = "Output file write error: ";

// The run ends with this message, whatever it has printed before.
void expect_failure(const Finished &run, const std::string &message) {
    EXPECT_EQ(run.status, 1) << message;
    EXPECT_TRUE(run.out.ends_with("\n" + message + "\n")) << message << ", not" << run.out;
    EXPECT_EQ(run.out.find("Done"), std::string::npos) << message;
}

// The run prints this message and nothing else.
void expect_refusal(const Finished &run, const std::string &message) {
    EXPECT_EQ(run.status, 1) << message;
    EXPECT_EQ(run.out, "\n" + message + "\n");
}

class Program : public testing::Test, protected ScratchFolder {
protected:
    Finished compress(const Bytes &bytes, const std::string &switches = "-b2048") {
        write_file(input, bytes);
        return run_velk({"e", input, archive, switches});
    }
    Finished expect_restored(const Bytes &bytes) {
        Finished run = run_velk({"d", archive, output});
        EXPECT_TRUE(run.status == 0 && read_file(output) == bytes) << bytes.size() << " bytes";
        return run;
    }
    // Of a file with this name.
    void expect_round_trip(const std::string &name) {
        const Bytes text = to_bytes("text");
        const std::string from = path(name);
        write_file(from, text);
        EXPECT_EQ(run_velk({"e", from, from + ".velk"}).status, 0) << name;
        EXPECT_EQ(run_velk({"d", from + ".velk", output}).status, 0) << name;
        EXPECT_EQ(read_file(output), text) << name;
    }
};

TEST_F(Program, BannerAndUsage) {
    const Finished run = run_velk({});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err.find("\nBlock-sorting compressor/decompressor, Version 0.95 alpha\n"), 0u);
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 3);
    EXPECT_EQ(run.out.find("\nUsage: VELK <e|d> inputfile outputfile [<switches>]\n\n"), 0u);
    EXPECT_TRUE(run.out.ends_with("\nMemory requirements: to compress 8.125*N + 768 kb, "
                                  "to decompress 5*N\n"));
    EXPECT_EQ(run_velk({"e", "only-one-name"}).out, run.out);
    EXPECT_EQ(run_velk({"x", "only-one-name"}).out, run.out) << "before a wrong command";
}

TEST_F(Program, WrongCommandsAndSwitches) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"x", "a", "b"}, "Unknown command: x"},
        {{"ex", "a", "b", "-q"}, "Unknown command: ex"},
        {{"", "a", "b"}, "Unknown command: "},
        {{"d", "a", "b", "-q"}, "Unknown switch: -q"},
        {{"e", "missing", "b"}, kReadError + "missing"},
        {{"D", "missing", "b", "-zz"}, kReadError + "missing"},
    };
    for (const auto &[arguments, message] : cases)
        expect_refusal(run_velk(arguments), message);
    for (const std::string wrong :
         {"-b127", "-b16384", "-b", "-bk", "-b1024x", "-", "s", "-S", "", "--",
          "-b99999999999999999999", "-e-", "-\xC3\xA4", "-b-128", "-b 128"}) {
        expect_refusal(run_velk({"e", "a", "b", wrong, "-q"}), "Unknown switch: " + wrong);
        expect_refusal(run_velk({"e", "a", "b", "-e", wrong}), "Unknown switch: " + wrong);
    }
}

TEST_F(Program, SwitchesSetFlagsAndBlockSize) {
    const struct {
        std::string switches, more;
        int flags;
        std::uint32_t block_size;
    } cases[] = {
        {"-a", "-o", 0x20, 2097152},        {"-b128", "-a", 0x20, 131072},
        {"-ab16383", "-o", 0x20, 16776192}, {"-ab0128", "-o", 0x20, 131072},
        {"-ab1024", "-b512", 0x20, 524288}, {"-b1024aeflzr", "-o", 0x6F, 1048576},
        {"-b1024s", "-aeo", 0x21, 1048576}, {"-t", "-a", 0x10, 2097152},
        {"-w", "-a", 0x30, 2097152},        {"-w", "-ta", 0x10, 2097152},
        {"-tw", "-a", 0x10, 2097152},       {"-efl", "-zwrda", 0xFF, 2097152},
        {"-dfb200l", "-a", 0xA6, 204800},   {"-o", "-b2048", 0x20, kMinBlockSize},
    };
    write_file(input, {});
    for (const auto &c : cases) {
        EXPECT_EQ(run_velk({"e", input, archive, c.switches, c.more}).status, 0) << c.switches;
        const Bytes start = read_file(archive);
        EXPECT_EQ(start[kMagicBytes + 1], c.flags) << c.switches;
        EXPECT_EQ(get_u32(&start[kMagicBytes + 2]), c.block_size) << c.switches;
    }
}

TEST_F(Program, MessagesOfGoodRuns) {
    const struct {
        Bytes bytes;
        std::string switches, marks, compressed, restored, kbytes, kbytes_back;
    } cases[] = {
        {{}, "-eflzwrd", " ", "0 -> 18, 1800.00%, 144.00 bpb", "18 -> 0", "1856", "648"},
        {{3, 9}, "-eflzwrd", " \xFE", "2 -> 34, 1133.33%, 90.67 bpb", "34 -> 2", "1856", "648"},
        {{}, "-a", " ", "0 -> 18, 1800.00%, 144.00 bpb", "18 -> 0", "18176", "10569"},
        {{}, "-t", " ", "0 -> 18, 1800.00%, 144.00 bpb", "18 -> 0", "9536", "8512"}};
    for (const auto &c : cases) {
        EXPECT_EQ(compress(c.bytes, c.switches).out,
                  "\nAbout " + c.kbytes + " kbytes of memory used\nCompressing " + input + " to " +
                      archive + c.marks + " Done, " + c.compressed + "\n");
        EXPECT_EQ(run_velk({"d", archive, output}).out,
                  "\nAbout " + c.kbytes_back + " kbytes of memory used\nDecompressing " + archive +
                      " to " + output + c.marks + " Done, " + c.restored + "\n");
        EXPECT_EQ(read_file(output), c.bytes);
    }
}

// A mark a block; sizes around a block's end; statistics of four lines.
TEST_F(Program, FilesOfSeveralBlocksComeBack) {
    for (const std::size_t n : {131071u, 131072u, 131073u, 393216u, 400001u}) {
        const Bytes text = prose(n, 70, "\r\n", 1);
        for (const std::string switches : {"-b128", "-b128ts"}) {
            const std::string out = compress(text, switches).out, back = expect_restored(text).out;
            const auto blocks = static_cast<std::ptrdiff_t>((n + 131071) / 131072);
            EXPECT_EQ(std::count(out.begin(), out.end(), '\xFE'), blocks);
            EXPECT_EQ(std::count(back.begin(), back.end(), '\xFE'), blocks);
            EXPECT_EQ(out.find("Total time:        ") != std::string::npos, switches == "-b128ts");
        }
    }
    EXPECT_NE(run_velk({"d", archive, output, "-s"}).out.find("\n\nUnBWT or UnST time: "),
              std::string::npos);
    // The DCE alone, and all but the DCE and a sort: the total is what they take.
    for (const std::string switches : {"-eflzwrs", "-wds"}) {
        const std::string out = compress(prose(1000000, 70, "\r\n", 1), switches).out;
        std::vector<double> seconds;
        for (std::size_t at = 0; (at = out.find("time:", at)) != std::string::npos; at += 5)
            seconds.push_back(std::stod(out.substr(at + 5)));
        ASSERT_EQ(seconds.size(), 4u);
        EXPECT_NEAR(seconds[3], seconds[0] + seconds[1] + seconds[2], 0.021);
    }
}

TEST_F(Program, FullDiskIsReported) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP();
    for (const Bytes &bytes : {Bytes(), Bytes(10, 'a'), random_bytes(100000, 256, 1)}) {
        compress(bytes);
        for (const auto &[command, from] : {std::pair("e", input), std::pair("d", archive)}) {
            if (bytes.empty() && *command == 'd') continue; // nothing to write
            expect_failure(run_velk({command, from, "/dev/full"}), kWriteError + "/dev/full");
        }
    }
}

TEST_F(Program, FileSizeLimitIsReported) {
    compress(random_bytes(393216, 256, 1), "-b128");
    for (const auto &[command, from] : {std::pair("e", input), std::pair("d", archive)}) {
        expect_failure(run_velk({command, from, output, "-b128"}, "ulimit -f 400;"), // of 512 bytes
                       kWriteError + output);
    }
}

TEST_F(Program, MemoryRefused) {
    const std::string limit = "ulimit -v 60000;"; // kbytes; some sanitizers need more
    if (run_velk({}, limit).out.empty()) GTEST_SKIP();
    compress(to_bytes("abc"), "-ab16383");
    expect_refusal(run_velk({"e", input, output, "-ab16383"}, limit), "Not enough memory!");
    expect_refusal(run_velk({"d", archive, output}, limit), "Not enough memory!");
}

// The program waits with its output in a full pipe while the input changes.
TEST_F(Program, InputsThatChangeWhileRead) {
    const std::string fifo = path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const Bytes bytes = random_bytes(1000000, 256, 1);
    const auto compress_while = [&](const std::string &change) {
        write_file(input, bytes);
        return run_velk({"e", input, fifo, "-b128"}, "",
                        "& exec 3<'" + fifo + "'; " + change + " '" + input + "'; cat <&3 >'" +
                            archive + "'; wait $!");
    };
    expect_failure(compress_while("truncate -s 600000"), kReadError + input);
    EXPECT_NE(compress_while("printf more >>").out.find(" Done, 1000004 -> "), std::string::npos);
    expect_restored(join({bytes, to_bytes("more")}));
    EXPECT_EQ(compress_while("rm").status, 0) << "an open file outlives its name";
}

TEST_F(Program, NamesOfEveryKind) {
    std::string dots;
    while (dots.size() < 4000 - path("long").size())
        dots += "./";
    const std::vector<std::string> names = {
        "two  words", "it's $HOME", "-e", "\xC3\xA4 \xE6\xBC\xA2", "%s%n", dots + "long"};
    for (const std::string &name : names)
        expect_round_trip(name);
    write_file(input, to_bytes("text"));
    for (const std::string &name : {std::string(), std::string(4000, 'x')}) {
        expect_refusal(run_velk({"e", name, output}), kReadError + name);
        expect_refusal(run_velk({"e", input, name}), kWriteError + name);
    }
}

TEST_F(Program, NamesThatAreNoText) {
    expect_round_trip("\xC3\xA4\xFF\n");
}

TEST_F(Program, TheInputIsNeverOverwritten) {
    const Bytes text = to_bytes("my only copy");
    const std::string symbolic = path("symbolic"), hard = path("hard");
    write_file(input, text);
    std::filesystem::create_symlink(input, symbolic);
    std::filesystem::create_hard_link(input, hard);
    for (const std::string &name : {input, symbolic, hard, path("./input")}) {
        for (const char *command : {"e", "d"}) {
            expect_refusal(run_velk({command, input, name}), kWriteError + name);
            EXPECT_EQ(read_file(input), text) << name;
        }
    }
}

TEST_F(Program, InputsThatAreNoFiles) {
    const std::string directory = path(""), fifo = path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string &name : {directory, fifo, std::string("/dev/null")}) {
        expect_refusal(run_velk({"e", name, output}), kReadError + name);
        EXPECT_FALSE(std::filesystem::exists(output));
    }
    // A file that opens but can't be read, as on a failing disk.
    const std::string unreadable = "/proc/self/mem";
    if (!std::filesystem::exists(unreadable)) return;
    for (const char *command : {"e", "d"})
        expect_failure(run_velk({command, unreadable, output}), kReadError + unreadable);
}

TEST_F(Program, FilesWithoutPermission) {
    namespace fs = std::filesystem;
    // Even root is then asked for permission.
    const std::string as_user =
        geteuid() == 0 ? "setpriv --bounding-set=-dac_override,-dac_read_search" : "";
    write_file(input, {});
    const std::string read_only = path("read-only");
    fs::create_directory(read_only);
    fs::permissions(read_only, fs::perms::owner_read | fs::perms::owner_exec);
    for (const std::string &name : {read_only, read_only + "/file", path("missing/file")})
        expect_refusal(run_velk({"e", input, name}, as_user), kWriteError + name);
    fs::permissions(input, fs::perms::none);
    expect_refusal(run_velk({"e", input, output}, as_user), kReadError + input);
}

// Messages that can't be printed must neither get into the archive nor end the run.
TEST_F(Program, ClosedStandardStreams) {
    const Bytes text = prose(1000, 70, "\n", 1);
    compress(text);
    const Bytes good = read_file(archive);
    const std::pair<std::string, std::string> cases[] = {
        {"", "<&- >&-"}, {"", "<&- >&- 2>&-"}, {"", ">/dev/full"}, {"{ sleep .2;", "; } 2>&1 | :"}};
    for (const auto &[prefix, suffix] : cases) {
        std::filesystem::remove(archive);
        EXPECT_EQ(run_velk({"e", input, archive}, prefix, suffix).status, 0) << suffix;
        EXPECT_EQ(read_file(archive), good) << suffix;
    }
}

// Messages that would get into the output end the run before it is touched.
TEST_F(Program, OutputThatTakesTheMessages) {
    write_file(input, random_bytes(1000, 256, 1));
    const std::string outputs[][2] = {
        {output, ">" + output}, {output, ">>" + output}, {"/dev/stdout", "| cat >" + output}};
    for (const auto &[name, redirection] : outputs) {
        run_velk({"e", input, name}, "", redirection);
        EXPECT_EQ(read_file(output), to_bytes("\n" + kWriteError + name + "\n"));
        std::filesystem::remove(output);
    }
    EXPECT_EQ(run_velk({"e", input, "/dev/null"}, "", ">/dev/null").status, 0);
}

} // namespace
