// One block to a record and back: velk_encoder and velk_decoder.
#include "api/coder.h"
#include "archive/member.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

using namespace velk;

struct velk_encoder {
    CoderContext context;
    std::uint32_t block_limit; // the most bytes of a block
};

struct velk_decoder {
    CoderContext context;
};

namespace {

// Moves the context, whose memory was taken with this status, into an object of its own.
template<typename Object>
velk_status make_object(const Coder &coder, velk_status status, CoderContext &context,
                        Object *&object) {
    if (status != VELK_OK) return status;
    object = static_cast<Object *>(std::malloc(sizeof(Object)));
    if (object != nullptr) {
        object->context = context;
        return VELK_OK;
    }
    coder.free(context);
    return VELK_ERROR_MEMORY;
}

template<typename Object>
void free_object(const Coder &coder, Object *object) {
    if (object == nullptr) return;
    coder.free(object->context);
    std::free(object);
}

// A buffer that is written from its front.
struct Room {
    std::uint8_t *next;
    std::size_t left; // bytes
};

bool write_room(void *user, const void *bytes, std::uint32_t count) {
    Room &room = *static_cast<Room *>(user);
    if (count > room.left) return false;
    std::memcpy(room.next, bytes, count);
    room.next += count;
    room.left -= count;
    return true;
}

} // namespace

velk_status velk_encoder_new(velk_encoder **encoder, const velk_options *options,
                             std::uint64_t input_size) {
    if (encoder == nullptr) return VELK_ERROR_ARGUMENT;
    *encoder = nullptr;
    CheckedOptions checked;
    if (!check_options(options, checked)) return VELK_ERROR_ARGUMENT;
    CoderContext context{};
    std::uint32_t memory_bytes;
    const velk_status status = open_compressor(context, checked, input_size, memory_bytes);
    const velk_status made = make_object(kCompressor, status, context, *encoder);
    if (made == VELK_OK) (*encoder)->block_limit = choose_block_limit(checked, input_size);
    return made;
}

void velk_encoder_free(velk_encoder *encoder) {
    free_object(kCompressor, encoder);
}

velk_status velk_encode_block(velk_encoder *encoder, const void *block, std::size_t block_size,
                              void *record, std::size_t capacity, std::size_t *record_size,
                              void *entry) {
    if (record_size == nullptr) return VELK_ERROR_ARGUMENT;
    *record_size = 0;
    if (encoder == nullptr || block == nullptr || record == nullptr || block_size == 0 ||
        block_size > encoder->block_limit) {
        return VELK_ERROR_ARGUMENT;
    }
    CoderContext &context = encoder->context;
    IndexEntry coded;
    if (!code_data(kCompressor, context, static_cast<const std::uint8_t *>(block), block_size,
                   coded))
        return VELK_ERROR_ARGUMENT; // not of a block of this size
    Room room = {static_cast<std::uint8_t *>(record), capacity};
    *record_size = write_record({&room, write_room}, context.buf_out, context.out_len);
    if (*record_size == 0) return VELK_ERROR_SPACE;
    if (entry != nullptr) put_entry(static_cast<std::uint8_t *>(entry), coded);
    return VELK_OK;
}

velk_status velk_write_index(const void *header, const void *entries, std::size_t count,
                             void *index, std::size_t capacity, std::size_t *index_size) {
    if (index_size == nullptr) return VELK_ERROR_ARGUMENT;
    *index_size = 0;
    if (header == nullptr || (entries == nullptr && count != 0) || index == nullptr)
        return VELK_ERROR_ARGUMENT;
    const auto *const start = static_cast<const std::uint8_t *>(header);
    Settings settings{};
    std::uint32_t block_size;
    const velk_status status =
        status_of(parse_start(start, VELK_HEADER_SIZE, settings, block_size));
    if (status != VELK_OK) return status;
    if (!is_marked(block_size)) return VELK_ERROR_ARGUMENT;
    Room room = {static_cast<std::uint8_t *>(index), capacity};
    std::uint8_t bytes[kFooterBytes];
    put_record_head(bytes, 0);
    if (!write_room(&room, bytes, kRecordHeadBytes)) return VELK_ERROR_SPACE;
    Member member = start_member(start, block_size);
    for (std::size_t i = 0; i < count; ++i) {
        const auto *const entry = static_cast<const std::uint8_t *>(entries) + i * kEntryBytes;
        if (!add_block(member, get_entry(entry)) || !needs_index(member))
            return VELK_ERROR_ARGUMENT;
        if (!write_room(&room, entry, kEntryBytes)) return VELK_ERROR_SPACE;
    }
    put_footer(bytes, member.sum);
    if (!write_room(&room, bytes, kFooterBytes)) return VELK_ERROR_SPACE;
    *index_size = capacity - room.left;
    return VELK_OK;
}

velk_status velk_decoder_new(velk_decoder **decoder, const velk_options *options,
                             const void *header) {
    if (decoder == nullptr) return VELK_ERROR_ARGUMENT;
    *decoder = nullptr;
    CheckedOptions checked;
    if (header == nullptr || !check_options(options, checked)) return VELK_ERROR_ARGUMENT;
    CoderContext context{};
    std::uint32_t memory_bytes;
    const velk_status status =
        open_restorer(context, checked, header, VELK_HEADER_SIZE, memory_bytes);
    return make_object(kRestorer, status, context, *decoder);
}

void velk_decoder_free(velk_decoder *decoder) {
    free_object(kRestorer, decoder);
}

velk_status velk_record_size(const void *head, std::size_t *size) {
    if (head == nullptr || size == nullptr) return VELK_ERROR_ARGUMENT;
    *size = 0;
    std::uint32_t length;
    const ArchiveStatus status =
        parse_record_head(static_cast<const std::uint8_t *>(head), kMaxRecordData, length);
    if (status == ArchiveStatus::kGood) *size = kRecordHeadBytes + std::size_t{length};
    return status_of(status);
}

velk_status velk_decode_block(velk_decoder *decoder, const void *record, std::size_t record_size,
                              void *block, std::size_t capacity, std::size_t *block_size) {
    if (block_size == nullptr) return VELK_ERROR_ARGUMENT;
    *block_size = 0;
    if (decoder == nullptr || record == nullptr || block == nullptr) return VELK_ERROR_ARGUMENT;
    CoderContext &context = decoder->context;
    const std::uint8_t *const head = static_cast<const std::uint8_t *>(record);
    std::uint32_t length;
    IndexEntry entry;
    const bool whole = record_size >= kRecordHeadBytes &&
                       parse_record_head(head, context.capacity, length) == ArchiveStatus::kGood &&
                       record_size - kRecordHeadBytes == length &&
                       code_data(kRestorer, context, head + kRecordHeadBytes, length, entry);
    if (!whole) return VELK_ERROR_DAMAGED;
    if (context.out_len > capacity) return VELK_ERROR_SPACE;
    std::memcpy(block, context.buf_out, context.out_len);
    *block_size = context.out_len;
    return VELK_OK;
}
