#include "work.h"

#include "failure.h"
#include "input.h"
#include "output.h"
#include "platform/streams.h"
#include "progress.h"
#include "random_access.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

using namespace velk;

namespace {

// One call of the library.
struct Run {
    const Input &input;
    const Output *output; // null: what is restored is only checked
    const Options &options;
    Progress progress;
    Amounts done; // up to the last block that was written
    std::uint64_t bytes_read = 0;
    int callback_error = 0; // errno
    velk_report told{};
};

std::int64_t read_input(void *user, void *buffer, std::size_t size) {
    Run &run = *static_cast<Run *>(user);
    const std::int64_t got = read_some(run.input.fd, buffer, size);
    if (got < 0) run.callback_error = errno;
    if (got > 0) run.bytes_read += static_cast<std::uint64_t>(got);
    run.progress.show(run.done);
    return got;
}

std::int64_t write_output(void *user, const void *buffer, std::size_t size) {
    Run &run = *static_cast<Run *>(user);
    if (run.output == nullptr) return static_cast<std::int64_t>(size);
    const std::int64_t put = write_some(run.output->fd, buffer, size);
    if (put < 0) run.callback_error = errno;
    return put;
}

int note_block(void *user, std::uint64_t bytes_in, std::uint64_t bytes_out) {
    Run &run = *static_cast<Run *>(user);
    run.done = {bytes_in, bytes_out};
    run.progress.show(run.done);
    return 0;
}

Status report(const Run &run, velk_status status) {
    errno = run.callback_error;
    if (status == VELK_ERROR_WRITE)
        return error(run.output->name, "can't be written: " + errno_text());
    if (status == VELK_ERROR_READ && errno == 0)
        return error(run.input.name,
                     "ended early, after " + std::to_string(run.bytes_read) + " bytes");
    return report(run.input.name, status, run.told, run.options);
}

bool more_follows(const Input &input) {
    char byte;
    return read_some(input.fd, &byte, 1) > 0;
}

Status compress(Run &run, const velk_stream &stream) {
    const bool told = run.options.size != VELK_SIZE_UNKNOWN;
    const std::uint64_t size = told ? run.options.size : run.input.size;
    const velk_status status = velk_compress_stream(&run.options.library, &stream, size);
    if (status != VELK_OK) return report(run, status);
    if (told && more_follows(run.input))
        return error(run.input.name,
                     "has more than the " + std::to_string(size) + " bytes of --size");
    return has_changed(run.input) ? warning(run.input.name, "was written to while it was read")
                                  : kSuccess;
}

Status restore(Run &run, const velk_stream &stream) {
    const velk_status status = velk_decompress_stream(&run.options.library, &stream);
    if (status != VELK_OK) return report(run, status);
    return run.told.bytes_follow != 0
               ? warning(run.input.name, "what follows the archive's end is left out")
               : kSuccess;
}

// whole: whether the archive is known to be.
Status transfer(const Input &input, const Output *output, const Options &options, bool &whole) {
    const bool compresses = options.mode == Mode::kCompress;
    const bool text_on_terminal =
        output != nullptr && output->fd == kStandardOutput && is_terminal(kStandardOutput);
    const bool shown =
        !options.quiet && !options.no_progress && !text_on_terminal && is_terminal(kStandardError);
    const std::uint64_t size = options.size != VELK_SIZE_UNKNOWN ? options.size : input.size;
    Run run{input, output, options, {input.name, size, compresses, shown}, {}};
    velk_stream stream{};
    stream.user = &run;
    stream.read = read_input;
    stream.write = write_output;
    stream.progress = note_block;
    stream.report = &run.told;
    const Status status = compresses ? compress(run, stream) : restore(run, stream);
    whole = run.told.whole != 0;
    if (status != kError && options.verbose) {
        clear_progress();
        std::fprintf(stderr, "%s: %s%s\n", printable(input.name).c_str(),
                     run.progress.summary(run.done).c_str(),
                     whole ? ""
                           : ", a plain archive, which can't tell whether its end was cut off");
    }
    return status;
}

// Where the output goes: kStandardStream, or the name of a file.
Status name_output(const Input &input, const Options &options, std::string &path) {
    path = options.output;
    if (!path.empty()) return kSuccess;
    path = kStandardStream;
    if (options.to_stdout || input.standard()) return kSuccess;
    path = input.path;
    const bool suffixed = path.ends_with(options.suffix);
    if (options.mode == Mode::kCompress) {
        path += options.suffix;
        if (!suffixed || options.force) return kSuccess;
        return warning(input.name, "has the suffix " + options.suffix + " already, skipped");
    }
    if (suffixed) path.resize(path.size() - options.suffix.size());
    const bool named =
        suffixed && !path.empty() && std::strchr(kFolderEnds, path.back()) == nullptr;
    return named ? kSuccess
                 : warning(input.name,
                           "does not end in " + options.suffix + ", skipped; -o names the output");
}

} // namespace

Status process(const std::string &path, const Options &options) {
    Input input;
    Status status = open_input(input, path, options);
    if (status != kSuccess) return status;
    bool whole = true;
    if (options.mode == Mode::kTest) return transfer(input, nullptr, options, whole);

    std::string output_path;
    status = name_output(input, options, output_path);
    if (status != kSuccess) return status;
    Output output;
    status = open_output(output, output_path, input, options);
    if (status != kSuccess) return status;
    status = options.ranged ? restore_range(input, output, options)
                            : transfer(input, &output, options, whole);
    if (status == kError) return status;
    const bool in_place = output.temporary.empty();
    status = worse(status, keep_output(output, input));
    if (status != kSuccess || !options.remove || input.standard()) return status;
    if (in_place) return warning(input.name, "kept, as the output is not a file of its own");
    if (whole) return remove_input(input);
    warning(input.name, "kept, as a plain archive can't tell whether its end was cut off");
    return kSuccess;
}
