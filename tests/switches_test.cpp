// The switches.
#include "archive/format.h"
#include "cli/switches.h"

#include <gtest/gtest.h>

using namespace velk;

namespace {

// Parses one argument, or two, and returns the flags; -1 for a refusal of the first,
// -2 of the second.
int flags_for(std::initializer_list<const char *> switches, Settings &settings) {
    std::vector<const char *> arguments = {"VELK", "e", "in", "out"};
    arguments.insert(arguments.end(), switches);
    const int wrong =
        parse_switches(static_cast<int>(arguments.size()), arguments.data(), settings);
    return wrong == 0 ? flags_of(settings) : 3 - wrong;
}

TEST(Switches, SetFlagsAndBlockSize) {
    const struct {
        std::initializer_list<const char *> switches;
        int flags;
        std::uint32_t block_size;
    } cases[] = {
        {{}, 0x20, 2097152},
        {{"-b128"}, 0x20, 131072},
        {{"-b16383"}, 0x20, 16776192},
        {{"-b0128"}, 0x20, 131072},
        {{"-b1024", "-b512"}, 0x20, 524288},
        {{"-b1024aeflzr"}, 0x6F, 1048576},
        {{"-b1024s", "-aeo"}, 0x21, 1048576},
        {{"-t"}, 0x10, 2097152},
        {{"-w"}, 0x30, 2097152},
        {{"-w", "-t"}, 0x10, 2097152},
        {{"-tw"}, 0x10, 2097152},
        {{"-efl", "-zwrd"}, 0xFF, 2097152},
        {{"-dfb200l"}, 0xA6, 204800},
    };
    for (const auto &c : cases) {
        Settings settings;
        EXPECT_EQ(flags_for(c.switches, settings), c.flags);
        EXPECT_EQ(settings.max_block_size, c.block_size);
    }
    Settings settings;
    flags_for({"-aos"}, settings);
    EXPECT_EQ(settings.no_auto_block_size + settings.no_fallback + settings.show_stats, 3);
}

TEST(Switches, RefuseTheFirstWrongArgument) {
    Settings settings;
    for (const char *wrong : {"-b127", "-b16384", "-b", "-bk", "-b1024x", "-", "s", "-S", "", "--",
                              "-b99999999999999999999", "-e-", "-\xE9", "-b-128", "-b 128"}) {
        EXPECT_EQ(flags_for({wrong}, settings), -1) << wrong;
        EXPECT_EQ(flags_for({"-e", wrong}, settings), -2) << wrong;
    }
}

} // namespace
