// The program as its users meet it: messages, exit statuses, files.
#include "archive/format.h"
#include "archive/memory.h"
#include "pipeline/crc32.h"
#include "program.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class Program : public testing::Test {
protected:
    ScratchFolder folder;
    const std::string input = folder.path("input"), archive = folder.path("archive"),
                      output = folder.path("output");

    Finished compress(const Bytes &bytes, std::vector<std::string> switches = {}) {
        write_file(input, bytes);
        switches.insert(switches.begin(), {"e", input, archive});
        return run_velk(switches);
    }
    Finished decompress() { return run_velk({"d", archive, output}); }
    // The message of a run that fails in decompressing these bytes.
    std::string failure(const Bytes &bytes) {
        write_file(archive, bytes);
        const Finished run = decompress();
        EXPECT_EQ(run.status, 1);
        return run.out.substr(run.out.rfind('\n', run.out.size() - 2) + 1);
    }
};

const std::string kReadError = "Input file read error: ";
const std::string kWriteError = "Output file write error: ";
const std::string kCrcError = "CRC32 check failed!\n";

TEST_F(Program, BannerAndUsage) {
    const Finished run = run_velk({});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err.find("\nBlock-sorting compressor/decompressor, Version 0.95 alpha\n"), 0u);
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 3);
    EXPECT_EQ(run.out.find("\nUsage: VELK <e|d> inputfile outputfile [<switches>]\n\n"), 0u);
    EXPECT_NE(run.out.find("\nMemory requirements: to compress 8.125*N + 768 kb, "
                           "to decompress 5*N\n"),
              std::string::npos);
    EXPECT_EQ(run_velk({"e", "only-one-name"}).out, run.out);
    EXPECT_EQ(run_velk({"x", "only-one-name"}).out, run.out) << "before a wrong command";
}

TEST_F(Program, WrongCommandsAndSwitches) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"x", "a", "b"}, "\nUnknown command: x\n"},
        {{"ex", "a", "b", "-q"}, "\nUnknown command: ex\n"},
        {{"", "a", "b"}, "\nUnknown command: \n"},
        {{"e", "a", "b", "-e", "-b99", "-q"}, "\nUnknown switch: -b99\n"},
        {{"d", "a", "b", "-q"}, "\nUnknown switch: -q\n"},
        {{"e", "missing", "b"}, "\nInput file read error: missing\n"},
        {{"D", "missing", "b", "-zz"}, "\nInput file read error: missing\n"},
    };
    for (const auto &[arguments, message] : cases) {
        const Finished run = run_velk(arguments);
        EXPECT_EQ(run.status, 1) << message;
        EXPECT_EQ(run.out, message);
    }
}

TEST_F(Program, ThreeBytesInFull) {
    const std::string names = input + " to " + archive;
    Finished run = compress(to_bytes("abc"), {"-eflzwrdo"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "\nAbout 1856 kbytes of memory used\nCompressing " + names +
                           " \xFE Done, 3 -> 38, 950.00%, 76.00 bpb\n");
    EXPECT_EQ(read_file(archive), join({to_bytes("VELK_V0.95a>"),
                                        {0x1B, 0xFF, 0, 0, 2, 0, 0x8D, 0x0F, 0, 0, 0},
                                        to_bytes("abc"),
                                        Bytes(8, 0),
                                        {0x7E, 0x9C, 0x68, 0x4C}}));
    run = decompress();
    EXPECT_EQ(run.out, "\nAbout 648 kbytes of memory used\nDecompressing " + archive + " to " +
                           output + " \xFE Done, 38 -> 3\n");
    EXPECT_EQ(read_file(output), to_bytes("abc"));

    run = compress(to_bytes("abc"), {"-eflzwrd"});
    EXPECT_NE(run.out.find(" Done, 3 -> 35, 875.00%, 70.00 bpb\n"), std::string::npos);
    EXPECT_EQ(read_file(archive), join({to_bytes("VELK_V0.95a>"),
                                        {0x1B, 0xFF, 0, 0, 2, 0, 0x37, 0x0C, 0, 0, 0},
                                        to_bytes("abc"),
                                        Bytes(4, 0),
                                        {2, 0x86, 0xF5, 0xE8, 0}}));
}

TEST_F(Program, EmptyFile) {
    Finished run = compress({});
    EXPECT_NE(run.out.find("  Done, 0 -> 18, 1800.00%, 144.00 bpb\n"), std::string::npos);
    EXPECT_EQ(read_file(archive).size(), 18u);
    run = decompress();
    EXPECT_NE(run.out.find("  Done, 18 -> 0\n"), std::string::npos);
    EXPECT_TRUE(std::filesystem::is_empty(output));
}

TEST_F(Program, BlockSizeFollowsTheInput) {
    crc32_init();
    const auto block_size = [&] {
        const Bytes bytes = read_file(archive);
        std::uint8_t flags;
        std::uint32_t size;
        EXPECT_TRUE(get_header(bytes.data() + kMagicBytes, flags, size));
        return size;
    };
    const Bytes text = prose(400001, 70, "\n", 1);
    compress(text, {"-b128"});
    EXPECT_EQ(block_size(), 131072u);
    compress(text);
    EXPECT_EQ(block_size(), 400001u);
    compress(text, {"-ab1024"});
    EXPECT_EQ(block_size(), 1048576u);
    compress(Bytes(1000, 'a'));
    EXPECT_EQ(block_size(), kMinBlockSize);
}

// A mark a block; sizes around a block's end; statistics of four lines.
TEST_F(Program, FilesOfSeveralBlocksComeBack) {
    for (const std::size_t n : {131071u, 131072u, 131073u, 393216u, 400001u}) {
        const Bytes text = prose(n, 70, "\r\n", 1);
        for (const std::string switches : {"-b128", "-b128ts"}) {
            Finished run = compress(text, {switches});
            const auto blocks = static_cast<std::ptrdiff_t>((n + 131071) / 131072);
            EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\xFE'), blocks);
            EXPECT_EQ(run.out.find("Total time:        ") != std::string::npos,
                      switches == "-b128ts");
            run = decompress();
            EXPECT_EQ(run.status, 0);
            EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\xFE'), blocks);
            EXPECT_TRUE(read_file(output) == text) << n << " bytes";
        }
    }
    EXPECT_NE(run_velk({"d", archive, output, "-s"}).out.find("\n\nUnBWT or UnST time: "),
              std::string::npos);
}

TEST_F(Program, DamageIsReported) {
    compress(prose(500, 70, "\n", 1));
    const Bytes good = read_file(archive);
    for (std::size_t i = 0; i < good.size(); ++i) {
        Bytes damaged = good;
        damaged[i] ^= 0x41;
        const std::string expected =
            i < kMagicBytes ? "Header check failed: VELK_V0.95a>\n" : kCrcError;
        ASSERT_EQ(failure(damaged), expected) << "byte " << i;
    }
    for (std::size_t n = 0; n < good.size(); ++n) {
        if (n == 18) continue; // an archive of no blocks
        const Bytes cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(n));
        const std::string expected = n < 12   ? "Header check failed: VELK_V0.95a>\n"
                                     : n < 23 ? kReadError + archive + "\n"
                                              : kCrcError;
        ASSERT_EQ(failure(cut), expected) << "cut to " << n;
    }
}

// What an earlier block left in the buffers must not stand in for missing bytes.
TEST_F(Program, TheLastOfEqualBlocksCutShort) {
    const Bytes block = random_bytes(131072, 256, 1);
    compress(join({block, block}), {"-b128eflzwrdo"});
    Bytes cut = read_file(archive);
    cut.resize(cut.size() - 100);
    EXPECT_EQ(failure(cut), kCrcError);
    EXPECT_EQ(read_file(output), block) << "what was restored before stays";
}

TEST_F(Program, HeadersThatNoCompressorWrites) {
    crc32_init();
    const auto with_header = [](std::uint8_t flags, std::uint32_t block_size) {
        Bytes header(kHeaderBytes);
        put_header(header.data(), flags, block_size);
        return join({to_bytes(kMagic), header});
    };
    const std::string memory_error = "Not enough memory!\n";
    EXPECT_EQ(failure(with_header(0x20, kMinBlockSize - 1)), memory_error);
    EXPECT_EQ(failure(with_header(0x20, kMaxBlockSize + 1)), memory_error);
    EXPECT_EQ(failure(with_header(0x20, 0xFFFFFFFF)), memory_error);
    EXPECT_EQ(failure(with_header(0x00, kMinBlockSize)), memory_error) << "both transforms on";

    Bytes head(kRecordHeadBytes);
    put_record_head(head.data(), kMinBlockSize + kBlockSlack + 1);
    EXPECT_EQ(failure(join({with_header(0x20, kMinBlockSize), head})), kCrcError);
    put_record_head(head.data(), 0);
    write_file(archive, join({with_header(0x20, kMinBlockSize), head, to_bytes("rest")}));
    EXPECT_EQ(decompress().status, 0) << "a record of no bytes ends the archive";
}

TEST_F(Program, FullDiskIsReported) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP();
    for (const Bytes &bytes : {Bytes(), Bytes(10, 'a'), random_bytes(100000, 256, 1)}) {
        compress(bytes);
        for (const auto &[command, from] : {std::pair("e", input), std::pair("d", archive)}) {
            if (bytes.empty() && *command == 'd') continue; // nothing to write
            const Finished run = run_velk({command, from, "/dev/full"});
            EXPECT_EQ(run.status, 1);
            EXPECT_NE(run.out.find("\n" + kWriteError + "/dev/full\n"), std::string::npos);
            EXPECT_EQ(run.out.find("Done"), std::string::npos);
        }
    }
    // A file size limit, in units of 512 bytes, that cuts the first, second or last of
    // three blocks or, at the last, their archive between a head and its data.
    compress(random_bytes(393216, 256, 1), {"-b128"});
    for (const std::string limit : {"10", "256", "257", "400", "700"}) {
        for (const auto &[command, from] : {std::pair("e", input), std::pair("d", archive)}) {
            const Finished run =
                run_velk({command, from, output, "-b128"}, "ulimit -f " + limit + ";");
            EXPECT_EQ(run.status, 1);
            EXPECT_NE(run.out.find("\n" + kWriteError + output + "\n"), std::string::npos);
        }
    }
}

TEST_F(Program, MemoryRefused) {
    const std::string limit = "ulimit -v 60000;"; // kbytes; some sanitizers need more
    if (run_velk({}, limit).out.empty()) GTEST_SKIP();
    write_file(input, to_bytes("abc"));
    EXPECT_EQ(run_velk({"e", input, archive, "-ab16383"}, limit).out, "\nNot enough memory!\n");
    run_velk({"e", input, archive, "-ab16383"});
    EXPECT_EQ(run_velk({"d", archive, output}, limit).out, "\nNot enough memory!\n");
}

// The program waits with its output in a full pipe while the input changes.
TEST_F(Program, InputsThatChangeWhileRead) {
    const std::string fifo = folder.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const Bytes bytes = random_bytes(1000000, 256, 1);
    const auto compress_while = [&](const std::string &change) {
        write_file(input, bytes);
        return run_velk({"e", input, fifo, "-b128"}, "",
                        "& exec 3<'" + fifo + "'; " + change + " '" + input + "'; cat <&3 >'" +
                            archive + "'; wait $!");
    };
    Finished run = compress_while("truncate -s 600000");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("\n" + kReadError + input + "\n"), std::string::npos);
    run = compress_while("printf more >>");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find(" Done, 1000004 -> "), std::string::npos);
    EXPECT_EQ(decompress().status, 0);
    EXPECT_TRUE(read_file(output) == join({bytes, to_bytes("more")}));
    run = compress_while("rm");
    EXPECT_EQ(run.status, 0) << "an open file outlives its name";
}

TEST_F(Program, NamesOfEveryKind) {
    const Bytes text = to_bytes("text");
    std::string dots;
    while (dots.size() < 4000 - folder.path("long").size())
        dots += "./";
    for (const std::string name :
         {"two  words", "it's $HOME", "-e", "\xC3\xA4\xFF\n", "%s%n", ""}) {
        const std::string from = folder.path(name.empty() ? dots + "long" : name);
        write_file(from, text);
        EXPECT_EQ(run_velk({"e", from, from + ".velk"}).status, 0) << name;
        EXPECT_EQ(run_velk({"d", from + ".velk", output}).status, 0) << name;
        EXPECT_EQ(read_file(output), text) << name;
    }
    write_file(input, text);
    for (const std::string &name : {std::string(), std::string(4000, 'x')}) {
        EXPECT_EQ(run_velk({"e", name, output}).out, "\n" + kReadError + name + "\n");
        EXPECT_EQ(run_velk({"e", input, name}).out, "\n" + kWriteError + name + "\n");
    }
}

TEST_F(Program, TheInputIsNeverOverwritten) {
    const Bytes text = to_bytes("my only copy");
    const std::string symbolic = folder.path("symbolic"), hard = folder.path("hard");
    write_file(input, text);
    std::filesystem::create_symlink(input, symbolic);
    std::filesystem::create_hard_link(input, hard);
    for (const std::string &name : {input, symbolic, hard, folder.path("./input")}) {
        for (const char *command : {"e", "d"}) {
            const Finished run = run_velk({command, input, name});
            EXPECT_EQ(run.status, 1);
            EXPECT_EQ(run.out, "\n" + kWriteError + name + "\n");
            EXPECT_EQ(read_file(input), text) << name;
        }
    }
}

TEST_F(Program, InputsThatAreNoFiles) {
    const std::string directory = folder.path(""), fifo = folder.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string &name : {directory, fifo, std::string("/dev/null")}) {
        const Finished run = run_velk({"e", name, output});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, "\n" + kReadError + name + "\n");
        EXPECT_FALSE(std::filesystem::exists(output));
    }
    // A file that opens but can't be read, as on a failing disk.
    const std::string unreadable = "/proc/self/mem";
    if (!std::filesystem::exists(unreadable)) return;
    for (const char *command : {"e", "d"}) {
        const Finished run = run_velk({command, unreadable, output});
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.out.find("\n" + kReadError + unreadable + "\n"), std::string::npos);
    }
}

TEST_F(Program, FilesWithoutPermission) {
    namespace fs = std::filesystem;
    // Even root is then asked for permission.
    const std::string as_user =
        geteuid() == 0 ? "setpriv --bounding-set=-dac_override,-dac_read_search" : "";
    write_file(input, {});
    const std::string read_only = folder.path("read-only");
    fs::create_directory(read_only);
    fs::permissions(read_only, fs::perms::owner_read | fs::perms::owner_exec);
    for (const std::string &name : {read_only, read_only + "/file", folder.path("missing/file")}) {
        EXPECT_EQ(run_velk({"e", input, name}, as_user).out, "\n" + kWriteError + name + "\n");
    }
    fs::permissions(input, fs::perms::none);
    EXPECT_EQ(run_velk({"e", input, output}, as_user).out, "\n" + kReadError + input + "\n");
}

// Messages that can't be printed must neither get into the archive nor end the run.
TEST_F(Program, ClosedStandardStreams) {
    const Bytes text = prose(1000, 70, "\n", 1);
    compress(text);
    const Bytes good = read_file(archive);
    for (const std::string suffix : {"<&- >&-", "<&- >&- 2>&-", ">/dev/full"}) {
        std::filesystem::remove(archive);
        EXPECT_EQ(run_velk({"e", input, archive}, "", suffix).status, 0) << suffix;
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
        const Bytes bytes = read_file(output);
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "\n" + kWriteError + name + "\n");
        std::filesystem::remove(output);
    }
}

} // namespace
