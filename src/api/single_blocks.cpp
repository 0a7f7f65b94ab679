// One block to a record and back: velk_encoder and velk_decoder.
#include "api/coder.h"
#include "api/options.h"
#include "archive/format.h"
#include "archive/memory.h"
#include "base/block_size.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

using namespace velk;

struct velk_encoder {
    CoderContext context;
    std::uint32_t block_size;
};

struct velk_decoder {
    CoderContext context;
};

velk_status velk_encoder_new(velk_encoder **encoder, const velk_options *options,
                             std::uint64_t input_size) {
    if (encoder == nullptr) return VELK_ERROR_ARGUMENT;
    *encoder = nullptr;
    Plan plan;
    if (!make_plan(options, plan)) return VELK_ERROR_ARGUMENT;
    CoderContext context{};
    context.settings = plan.settings;
    set_file_size(context, input_size + 1); // 0 for an unknown one
    const std::uint32_t block_size = choose_block_size(plan.settings, input_size);
    std::uint32_t bytes;
    const velk_status status =
        alloc_within(kCompressor, context, block_size, plan.memory_limit, bytes);
    if (status != VELK_OK) return status;
    *encoder = static_cast<velk_encoder *>(std::malloc(sizeof(velk_encoder)));
    if (*encoder == nullptr) {
        kCompressor.free(context);
        return VELK_ERROR_MEMORY;
    }
    **encoder = {context, block_size};
    return VELK_OK;
}

void velk_encoder_free(velk_encoder *encoder) {
    if (encoder == nullptr) return;
    kCompressor.free(encoder->context);
    std::free(encoder);
}

velk_status velk_encode_block(velk_encoder *encoder, const void *block, std::size_t block_size,
                              void *record, std::size_t capacity, std::size_t *record_size) {
    if (record_size == nullptr) return VELK_ERROR_ARGUMENT;
    *record_size = 0;
    if (encoder == nullptr || block == nullptr || record == nullptr || block_size == 0 ||
        block_size > encoder->block_size) {
        return VELK_ERROR_ARGUMENT;
    }
    CoderContext &context = encoder->context;
    std::memcpy(context.buf_in, block, block_size);
    context.in_len = static_cast<std::uint32_t>(block_size);
    kCompressor.code(context, 0);
    const std::size_t size = kRecordHeadBytes + std::size_t{context.out_len};
    if (size > capacity) return VELK_ERROR_SPACE;
    std::uint8_t *const bytes = static_cast<std::uint8_t *>(record);
    put_record_head(bytes, context.out_len);
    std::memcpy(bytes + kRecordHeadBytes, context.buf_out, context.out_len);
    *record_size = size;
    return VELK_OK;
}

velk_status velk_decoder_new(velk_decoder **decoder, const velk_options *options,
                             const void *header) {
    if (decoder == nullptr) return VELK_ERROR_ARGUMENT;
    *decoder = nullptr;
    Plan plan;
    if (header == nullptr || !make_plan(options, plan)) return VELK_ERROR_ARGUMENT;
    CoderContext context{};
    std::uint32_t block_size, bytes;
    velk_status status = status_of(parse_start(static_cast<const std::uint8_t *>(header),
                                               VELK_HEADER_SIZE, context.settings, block_size));
    if (status != VELK_OK) return status;
    status = alloc_within(kRestorer, context, block_size, plan.memory_limit, bytes);
    if (status != VELK_OK) return status;
    *decoder = static_cast<velk_decoder *>(std::malloc(sizeof(velk_decoder)));
    if (*decoder == nullptr) {
        kRestorer.free(context);
        return VELK_ERROR_MEMORY;
    }
    (*decoder)->context = context;
    return VELK_OK;
}

void velk_decoder_free(velk_decoder *decoder) {
    if (decoder == nullptr) return;
    kRestorer.free(decoder->context);
    std::free(decoder);
}

velk_status velk_record_size(const void *head, std::size_t *size) {
    if (head == nullptr || size == nullptr) return VELK_ERROR_ARGUMENT;
    *size = 0;
    std::uint32_t length;
    const ArchiveStatus status = parse_record_head(static_cast<const std::uint8_t *>(head),
                                                   kMaxBlockSize + kBlockSlack, length);
    if (status == ArchiveStatus::kGood) *size = kRecordHeadBytes + std::size_t{length};
    return status_of(status);
}

velk_status velk_decode_block(velk_decoder *decoder, const void *record, std::size_t record_size,
                              void *block, std::size_t capacity, std::size_t *block_size) {
    if (block_size == nullptr) return VELK_ERROR_ARGUMENT;
    *block_size = 0;
    if (decoder == nullptr || record == nullptr || block == nullptr) return VELK_ERROR_ARGUMENT;
    CoderContext &context = decoder->context;
    std::size_t size;
    if (record_size < kRecordHeadBytes || velk_record_size(record, &size) != VELK_OK ||
        size != record_size || record_size - kRecordHeadBytes > context.capacity) {
        return VELK_ERROR_DAMAGED;
    }
    context.in_len = static_cast<std::uint32_t>(record_size - kRecordHeadBytes);
    std::memcpy(context.buf_in, static_cast<const std::uint8_t *>(record) + kRecordHeadBytes,
                context.in_len);
    if (!kRestorer.code(context, 0)) return VELK_ERROR_DAMAGED;
    if (context.out_len > capacity) return VELK_ERROR_SPACE;
    std::memcpy(block, context.buf_out, context.out_len);
    *block_size = context.out_len;
    return VELK_OK;
}
