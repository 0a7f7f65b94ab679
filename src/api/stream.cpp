// velk_compress_stream and velk_decompress_stream: a flow between two callbacks.
#include "api/flow.h"

#include <algorithm>

using namespace velk;

namespace {

bool usable(const velk_stream *stream) {
    return stream != nullptr && stream->read != nullptr && stream->write != nullptr &&
           std::all_of(stream->reserved, stream->reserved + 3,
                       [](const void *pointer) { return pointer == nullptr; });
}

bool tell_progress(const velk_flow &flow, const velk_stream &stream) {
    std::uint64_t from = flow.report.archive_size, to = flow.report.size;
    if (flow.compresses()) std::swap(from, to);
    return stream.progress == nullptr || stream.progress(stream.user, from, to) == 0;
}

velk_status run(velk_flow &flow, const velk_stream &stream) {
    for (;;) {
        if (flow.has_news && !tell_progress(flow, stream)) return VELK_CANCELLED;
        flow.has_news = false;
        const std::uint8_t *bytes;
        std::uint32_t count;
        const velk_status status = next_output(flow, bytes, count);
        if (status != VELK_OK && flow.has_news) continue;
        if (status != VELK_OK) return status;
        if (count != 0) {
            const std::int64_t part = stream.write(stream.user, bytes, count);
            if (part <= 0 || part > count) return VELK_ERROR_WRITE;
            take_output(flow, static_cast<std::uint32_t>(part));
            continue;
        }
        std::uint8_t *const place = next_input(flow, count);
        if (count == 0) {
            wait_for_output(flow);
            continue;
        }
        const std::int64_t part = stream.read(stream.user, place, count);
        if (part < 0 || part > count) {
            fail_input(flow);
        } else {
            take_input(flow, static_cast<std::uint32_t>(part));
        }
    }
}

velk_status run_stream(const Coder &coder, const velk_options *options, const velk_stream *stream,
                       std::uint64_t input_size) {
    if (!usable(stream)) return VELK_ERROR_ARGUMENT;
    velk_flow flow{};
    flow.status = start_flow(flow, coder, options, input_size);
    if (flow.status == VELK_ERROR_ARGUMENT) return flow.status;
    if (flow.status == VELK_OK) {
        flow.status = run(flow, *stream);
        end_flow(flow);
    }
    if (stream->report != nullptr) *stream->report = report_of(flow);
    return flow.status == VELK_DONE ? VELK_OK : flow.status;
}

} // namespace

velk_status velk_compress_stream(const velk_options *options, const velk_stream *stream,
                                 std::uint64_t input_size) {
    return run_stream(kCompressor, options, stream, input_size);
}

velk_status velk_decompress_stream(const velk_options *options, const velk_stream *stream) {
    return run_stream(kRestorer, options, stream, VELK_SIZE_UNKNOWN);
}
