// decoder/unvelk.c, written from docs/format.md alone, restores what the library writes, within
// the memory that it is lent, and refuses what the library refuses.
#define UNVELK_ONLY_DECLARATIONS
#include "../decoder/unvelk.c" // NOLINT(bugprone-suspicious-include): that makes it a header
#include "library_call.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

struct Unvelked {
    unvelk_result result;
    Bytes bytes;
};

// In buffers of just these sizes, so that the sanitizers see what is beside them.
Unvelked unvelk_within(const Bytes &archive, std::size_t work_size, std::size_t room) {
    Bytes work(work_size), out(room);
    unvelk_memory memory = {out.data(), room};
    const unvelk_result result = unvelk(archive.data(), archive.size(), work.data(), work.size(),
                                        unvelk_put_memory, &memory);
    EXPECT_EQ(result.restored + memory.room, room);
    return {result, first_bytes(out, result.restored)};
}

TEST(Unvelk, EveryKindOfDataBySwitches) {
    velk_options options = options_with(1);
    std::uint32_t turn = 0;
    for (const NamedBytes &kind : all_kinds(9000)) {
        for (const bool plain : {false, true}) {
            for (std::uint32_t i = 0; i < 8; ++i) {
                // Of the sorts one at least is off; those that are on come up in turn.
                options.stages_off =
                    static_cast<std::uint8_t>(turn++ * 37 | (i % 2 != 0 ? 16 : 32));
                options.no_fallback = i / 2 % 2 != 0;
                options.plain = plain;
                const Bytes archive = compress(options, kind.bytes).bytes;
                const std::size_t work = unvelk_work(archive.data());
                const auto [result, bytes] = unvelk_within(archive, work, kind.bytes.size());
                ASSERT_GE(result.verdict, 0) << kind.name << ": " << result.why;
                ASSERT_TRUE(bytes == kind.bytes) << kind.name;
                ASSERT_EQ(result.at, result.verdict == 0 ? archive.size() : result.at);
            }
        }
    }
}

TEST(Unvelk, MemoryThatDoesNotDo) {
    const Bytes in = prose(2 * VELK_MIN_BLOCK_SIZE + 5, 70, "\r\n", 1);
    const Bytes archive = compress(options_with(1), in).bytes;
    const std::size_t work = unvelk_work(archive.data());
    EXPECT_LE(work, 5 * VELK_MIN_BLOCK_SIZE + (400 << 10));
    EXPECT_EQ(unvelk_within(archive, work, in.size()).result.verdict, UNVELK_WHOLE);
    EXPECT_EQ(unvelk_within(archive, work - 1, in.size()).result.verdict, UNVELK_MEMORY);
    const auto [result, bytes] = unvelk_within(archive, work, in.size() - 1);
    EXPECT_EQ(result.verdict, UNVELK_OUTPUT);
    EXPECT_TRUE(bytes == first_bytes(in, 2 * VELK_MIN_BLOCK_SIZE));
    EXPECT_EQ(unvelk_work(archive.data() + 1), 0u);
}

// A byte changed, and all cuts of the index.
TEST(Unvelk, DamageAsTheLibrarySeesIt) {
    const Bytes in = join({code(140000, 2), records(9000, 4, 3)});
    Bytes work(UNVELK_MOST_WORK);
    for (const bool plain : {false, true}) {
        velk_options options = options_with(1);
        options.plain = plain;
        const Bytes archive = compress(options, in).bytes;
        Random random(9);
        for (std::uint32_t i = 0; i < 200; ++i) {
            Bytes damaged = archive;
            if (i < 70) {
                damaged.resize(archive.size() - i);
            } else {
                const std::size_t most = i % 2 != 0 ? 40 : archive.size();
                damaged[random.below(static_cast<std::uint32_t>(most))] ^=
                    static_cast<std::uint8_t>(1 + random.below(255));
            }
            velk_report report;
            const Outcome library = restore_stream(damaged, 1, report);
            Bytes out(in.size() + 999);
            unvelk_memory memory = {out.data(), out.size()};
            const unvelk_result result = unvelk(damaged.data(), damaged.size(), work.data(),
                                                work.size(), unvelk_put_memory, &memory);
            ASSERT_EQ(result.verdict >= 0, library.status == VELK_OK) << i << ": " << result.why;
            ASSERT_TRUE(first_bytes(out, result.restored) == library.bytes) << i;
        }
    }
}

} // namespace
