#include "archive_call.h"

#include "archive/format.h"
#include "pipeline/byte_order.h"
#include "pipeline/crc32.h"

#include <algorithm>

namespace {

constexpr std::uint32_t kStart = kMagicBytes + kHeaderBytes;

std::uint32_t length_of(const Bytes &bytes) {
    return static_cast<std::uint32_t>(bytes.size());
}

bool decompress_in(CoderContext &context, const std::uint8_t *data, std::uint32_t length,
                   BlockTrace *trace = nullptr) {
    std::copy_n(data, length, context.buf_in);
    context.in_len = length;
    return decompress_block(context, trace);
}

// The records up to the end or the first fault.
ErrorCode restore_records(CoderContext &context, const Bytes &archive, Bytes &restored) {
    for (std::size_t at = kStart; at < archive.size();) {
        const std::size_t left = archive.size() - at;
        if (left < kRecordHeadBytes) return ERR_READ;
        std::uint32_t length;
        if (!get_record_head(&archive[at], length)) return ERR_CRC;
        if (length == 0) break;
        if (length > context.capacity || length > left - kRecordHeadBytes) return ERR_CRC;
        at += kRecordHeadBytes;
        if (!decompress_in(context, &archive[at], length)) return ERR_CRC;
        restored.insert(restored.end(), context.buf_out, context.buf_out + context.out_len);
        at += length;
    }
    return ERR_NONE;
}

} // namespace

Chain::Chain(std::uint8_t flags, bool no_fallback, std::uint32_t file_size,
             std::uint32_t block_size) {
    set_flags(forward_.settings, flags);
    set_flags(inverse_.settings, flags);
    forward_.settings.no_fallback = no_fallback;
    forward_.file_size = file_size;
    usable_ = alloc_compress(forward_, block_size) != 0 &&
              alloc_decompress(inverse_, block_size) != 0;
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
    if (!decompress_in(inverse_, data.data(), length_of(data), trace)) return {};
    return Bytes(inverse_.buf_out, inverse_.buf_out + inverse_.out_len);
}

Bytes make_archive(std::uint8_t flags, const std::vector<Bytes> &blocks) {
    Chain chain(flags, false, 1u << 20);
    Bytes archive = to_bytes(kMagic);
    archive.resize(kStart);
    put_header(&archive[kMagicBytes], flags, kMinBlockSize);
    for (const Bytes &block : blocks) {
        const Bytes data = chain.compress(block);
        Bytes head(kRecordHeadBytes);
        put_record_head(head.data(), length_of(data));
        archive = join({archive, head, data});
    }
    return archive;
}

Restored restore_archive(const Bytes &archive) {
    crc32_init();
    if (first_bytes(archive, kMagicBytes) != to_bytes(kMagic)) return {ERR_HEADER, {}};
    if (archive.size() < kStart) return {ERR_READ, {}};
    std::uint8_t flags;
    std::uint32_t block_size;
    if (!get_header(&archive[kMagicBytes], flags, block_size)) return {ERR_CRC, {}};
    CoderContext context{};
    set_flags(context.settings, flags);
    context.file_size = length_of(archive);
    if (alloc_decompress(context, block_size) == 0) return {ERR_MEMORY, {}};
    Restored restored{ERR_NONE, {}};
    restored.error = restore_records(context, archive, restored.bytes);
    free_decompress(context);
    return restored;
}

std::vector<std::size_t> record_starts(const Bytes &archive) {
    std::vector<std::size_t> starts = {kStart};
    while (archive.size() - starts.back() > kRecordHeadBytes) {
        const std::uint32_t length = get_u32(&archive[starts.back() + 1]);
        const std::size_t left = archive.size() - starts.back() - kRecordHeadBytes;
        starts.push_back(starts.back() + kRecordHeadBytes + std::min<std::size_t>(length, left));
    }
    return starts;
}
