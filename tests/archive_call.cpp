#include "archive_call.h"

#include "archive/index.h"
#include "archive/memory.h"
#include "base/byte_order.h"

#include <algorithm>

using namespace velk;

namespace {

// A ByteSource's and a ByteSink's functions over bytes.
struct Input {
    const Bytes &bytes;
    std::size_t position, readable;
};

bool read_bytes(void *user, void *bytes, std::uint32_t count, std::uint32_t &got) {
    Input &input = *static_cast<Input *>(user);
    const std::size_t left = input.bytes.size() - input.position;
    got = static_cast<std::uint32_t>(std::min<std::size_t>(count, left));
    std::copy_n(input.bytes.begin() + static_cast<std::ptrdiff_t>(input.position), got,
                static_cast<std::uint8_t *>(bytes));
    input.position += got;
    return input.position <= input.readable;
}

bool write_bytes(void *user, const void *bytes, std::uint32_t count) {
    Bytes &output = *static_cast<Bytes *>(user);
    const std::uint8_t *const first = static_cast<const std::uint8_t *>(bytes);
    output.insert(output.end(), first, first + count);
    return true;
}

} // namespace

Chain::Chain(std::uint8_t flags, bool no_fallback, std::uint32_t file_size,
             std::uint32_t block_size) {
    set_flags(forward_.settings, flags);
    set_flags(inverse_.settings, flags);
    forward_.settings.no_fallback = no_fallback;
    forward_.file_size = file_size;
    usable_ =
        alloc_compress(forward_, block_size) != 0 && alloc_decompress(inverse_, block_size) != 0;
}

Chain::~Chain() {
    free_compress(forward_);
    free_decompress(inverse_);
}

Bytes Chain::compress(const Bytes &block) {
    std::copy(block.begin(), block.end(), forward_.buf_in);
    forward_.in_len = length_of(block);
    compress_block(forward_);
    return Bytes(forward_.buf_out, forward_.buf_out + forward_.out_len);
}

std::optional<Bytes> Chain::decompress(const Bytes &data, BlockTrace *trace) {
    std::copy(data.begin(), data.end(), inverse_.buf_in);
    inverse_.in_len = length_of(data);
    if (!decompress_block(inverse_, trace)) return {};
    return Bytes(inverse_.buf_out, inverse_.buf_out + inverse_.out_len);
}

Bytes make_archive(std::uint8_t flags, const std::vector<Bytes> &blocks) {
    Chain chain(flags, false, 1u << 20);
    Settings settings{};
    set_flags(settings, flags);
    Bytes archive;
    const ByteSink sink = {&archive, write_bytes};
    std::size_t size = write_start(sink, settings, kMinBlockSize);
    for (const Bytes &block : blocks) {
        const Bytes data = chain.compress(block);
        size += write_record(sink, data.data(), length_of(data));
    }
    archive.resize(size);
    return archive;
}

Bytes make_indexed(std::uint8_t flags, const std::vector<Bytes> &blocks) {
    constexpr std::uint32_t kMarked = kMinBlockSize + kIndexMark;
    Bytes archive = make_archive(flags, blocks), index;
    Settings settings{};
    set_flags(settings, flags);
    put_start(archive.data(), settings, kMarked);
    IndexSum sum = start_index(archive.data());
    const std::vector<std::size_t> starts = record_starts(archive);
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const Bytes &block = blocks[i];
        const auto data_len = static_cast<std::uint32_t>(starts[i + 1] - starts[i]) - 5;
        const IndexEntry entry = {data_len, length_of(block),
                                  crc32_append(0, block.data(), block.size())};
        if (!add_entry(sum, entry)) return {};
        index.resize(index.size() + kEntryBytes);
        put_entry(&index[index.size() - kEntryBytes], entry);
    }
    Bytes mark(kRecordHeadBytes), footer(kFooterBytes);
    put_record_head(mark.data(), 0);
    put_footer(footer.data(), sum);
    return join({archive, mark, index, footer});
}

Restored restore_archive(const Bytes &archive, std::size_t readable) {
    Input input = {archive, 0, readable};
    const ByteSource source = {&input, read_bytes};
    CoderContext context{};
    context.file_size = length_of(archive);
    std::uint32_t memory_bytes, coded_len;
    BlockTrace trace;
    Restored restored{start_reading(source, context, memory_bytes), {}, {}};
    while (restored.status == ArchiveStatus::kGood) {
        restored.status = read_block(source, context, coded_len, trace);
        if (restored.status != ArchiveStatus::kGood) break;
        write_bytes(&restored.bytes, context.buf_out, context.out_len);
        restored.lengths.push_back(context.out_len);
    }
    free_decompress(context);
    return restored;
}

std::vector<std::size_t> record_starts(const Bytes &archive) {
    std::vector<std::size_t> starts = {kFirstRecord};
    while (archive.size() - starts.back() > kRecordHeadBytes) {
        const std::uint32_t length = get_u32(&archive[starts.back() + 1]);
        const std::size_t left = archive.size() - starts.back() - kRecordHeadBytes;
        starts.push_back(starts.back() + kRecordHeadBytes + std::min<std::size_t>(length, left));
    }
    return starts;
}
