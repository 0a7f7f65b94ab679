#include "archive/file_drivers.h"

#include "archive/archive_io.h"
#include "archive/format.h"
#include "archive/memory.h"
#include "cli/error.h"
#include "pipeline/block.h"
#include "platform/files.h"
#include "platform/streams.h"

#include <cstdio>

namespace velk {
namespace {

constexpr int kProgressMark = 254;

struct Files {
    std::FILE *input;
    std::FILE *output;
    std::uint64_t input_size; // bytes
};

// Whether the standard output stream goes to this file: messages would be written into it, as
// by `VELK e file a >a` or, into a pipe, by `VELK e file /dev/stdout | ...`. Not so for a
// device such as /dev/null, which may take both.
bool takes_messages(const FileFacts &file) {
    FileFacts messages;
    return file.kind != Kind::kDevice && look_at(kStandardOutput, messages) &&
           same_file(file, messages);
}

// The checks come before anything is opened: opening a pipe would wait for its other
// end, and opening the output empties it, which must not happen to the input.
Files open_files(const Settings &settings) {
    Files files{};
    FileFacts input, output;
    if (look_at(settings.input_name, true, input) && input.kind == Kind::kFile)
        files.input = std::fopen(settings.input_name, "rb");
    if (files.input == nullptr) error_exit(ERR_READ, settings.input_name);
    files.input_size = input.size;
    if (look_at(settings.output_name, true, output) &&
        (same_file(input, output) || takes_messages(output))) {
        error_exit(ERR_WRITE, settings.output_name);
    }
    files.output = std::fopen(settings.output_name, "wb");
    if (files.output == nullptr) error_exit(ERR_WRITE, settings.output_name);
    return files;
}

// Fewer than `count` bytes mean the end of the input. A medium that fails half-way must
// not pass for it.
bool read_file(void *user, void *bytes, std::uint32_t count, std::uint32_t &got) {
    std::FILE *const input = static_cast<Files *>(user)->input;
    got = static_cast<std::uint32_t>(std::fread(bytes, 1, count, input));
    return std::ferror(input) == 0;
}

bool write_file(void *user, const void *bytes, std::uint32_t count) {
    return std::fwrite(bytes, 1, count, static_cast<Files *>(user)->output) == count;
}

// Ends the run unless an archive could be read, up to here or to its end.
void check(ArchiveStatus status, const Settings &settings) {
    using enum ArchiveStatus;
    if (status == kGood || status == kEnd || status == kEndMark) return;
    if (status == kReadFailed || status == kHeaderCut || status == kHeadCut)
        error_exit(ERR_READ, settings.input_name);
    if (status == kNotAnArchive) error_exit(ERR_HEADER, kMagic);
    if (status == kHeaderInvalid || status == kNoMemory) error_exit(ERR_MEMORY, "");
    error_exit(ERR_CRC, "");
}

// A full disk may only show when the buffers are written out, and on a network when the
// file is closed. The flush is for C libraries whose fclose does not tell its failure.
void close_files(const Files &files, const Settings &settings) {
    std::fclose(files.input);
    const bool flushed = std::fflush(files.output) == 0;
    if (std::fclose(files.output) != 0 || !flushed) error_exit(ERR_WRITE, settings.output_name);
}

void print_start(std::uint32_t memory_bytes, const char *action, const Settings &settings) {
    std::printf("\nAbout %ld kbytes of memory used\n", static_cast<long>(memory_bytes / 1024));
    std::printf("%s %s to %s ", action, settings.input_name, settings.output_name);
    std::fflush(stdout);
}

void print_progress_mark() {
    std::putchar(kProgressMark);
    std::fflush(stdout);
}

void print_stats(const char *const labels[4], const CoderContext &context) {
    const std::uint32_t ms_total = context.ms_sort + context.ms_dce + context.ms_other;
    const std::uint32_t ms[4] = {context.ms_sort, context.ms_dce, context.ms_other, ms_total};
    std::printf("\n");
    for (int i = 0; i < 4; ++i)
        std::printf("%s%.2f s\n", labels[i], ms[i] * 0.001);
}

// Sizes are printed as long long, which is what holds them on every system.
long long printable(std::uint64_t size) {
    return static_cast<long long>(size);
}

} // namespace

void compress_file(CoderContext &context) {
    const Settings &settings = context.settings;
    Files files = open_files(settings);
    set_file_size(context, files.input_size + 1);
    const std::uint32_t block_size = choose_block_size(settings, files.input_size);
    const std::uint32_t memory_bytes = alloc_compress(context, block_size);
    if (memory_bytes == 0) error_exit(ERR_MEMORY, "");
    print_start(memory_bytes, "Compressing", settings);

    const ByteSink archive = {&files, write_file};
    std::uint64_t archive_size = 0, bytes_read = 0;
    const auto count = [&](std::uint32_t written) {
        if (written == 0) error_exit(ERR_WRITE, settings.output_name);
        archive_size += written;
    };
    count(write_start(archive, settings, block_size));
    for (;;) {
        if (!read_file(&files, context.buf_in, block_size, context.in_len))
            error_exit(ERR_READ, settings.input_name);
        if (context.in_len == 0) break;
        bytes_read += context.in_len;
        compress_block(context);
        count(write_record(archive, context.buf_out, context.out_len));
        print_progress_mark();
    }
    free_compress(context);
    // A file that grew meanwhile is in the archive as far as it was read; of one that
    // shrank, bytes are missing that the user counts on.
    if (bytes_read < files.input_size) error_exit(ERR_READ, settings.input_name);
    close_files(files, settings);

    const double size_plus_1 = static_cast<double>(bytes_read) + 1;
    const double archive_bytes = static_cast<double>(archive_size);
    std::printf(" Done, %lld -> %lld, %.2f%%, %.2f bpb\n", printable(bytes_read),
                printable(archive_size), 100 * archive_bytes / size_plus_1,
                8 * archive_bytes / size_plus_1);
    if (settings.show_stats != 0) {
        static constexpr const char *kLabels[4] = {"BWT or ST time:    ", "DCE time:          ",
                                                   "Other stages time: ", "Total time:        "};
        print_stats(kLabels, context);
    }
}

void decompress_file(CoderContext &context) {
    const Settings &settings = context.settings;
    Files files = open_files(settings);
    set_file_size(context, files.input_size);

    const ByteSource archive = {&files, read_file};
    std::uint32_t memory_bytes;
    check(start_reading(archive, context, memory_bytes), settings);
    print_start(memory_bytes, "Decompressing", settings);

    std::uint64_t output_size = 0;
    std::uint32_t length;
    BlockTrace trace;
    ArchiveStatus status;
    while ((status = read_block(archive, context, length, trace)) == ArchiveStatus::kGood) {
        if (!write_file(&files, context.buf_out, context.out_len))
            error_exit(ERR_WRITE, settings.output_name);
        output_size += context.out_len;
        print_progress_mark();
    }
    check(status, settings);
    free_decompress(context);
    close_files(files, settings);

    std::printf(" Done, %lld -> %lld\n", printable(files.input_size), printable(output_size));
    if (settings.show_stats != 0) {
        static constexpr const char *kLabels[4] = {"UnBWT or UnST time: ", "UnDCE time:         ",
                                                   "Other stages time:  ", "Total time:         "};
        print_stats(kLabels, context);
    }
}

} // namespace velk
