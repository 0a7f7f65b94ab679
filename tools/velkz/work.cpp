#include "work.h"

#include "bell.h"
#include "failure.h"
#include "input.h"
#include "output.h"
#include "platform/streams.h"
#include "progress.h"
#include "random_access.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <vector>

using namespace velk;

namespace {

constexpr std::size_t kPartBytes = 256 << 10; // of input and of output
constexpr std::size_t kHoleBytes = 64 << 10;

// One archive, or several in a row.
struct Run {
    const Input &input;
    const Output *output; // null: what is restored is only checked
    const Options &options;
    std::uint64_t size; // of the input; VELK_SIZE_UNKNOWN: up to its end
    Progress progress;
    velk_report told{};
    std::uint64_t bytes_read = 0, bytes_written = 0;
    int stream_error = 0;                       // errno
    std::size_t kept = 0;                       // bytes in `in` of an input that is no archive
    std::uint8_t header[VELK_HEADER_SIZE] = {}; // of an archive
    std::vector<std::uint8_t> in = std::vector<std::uint8_t>(kPartBytes), out = in;

    [[nodiscard]] bool compresses() const { return options.mode == Mode::kCompress; }
    // What is no archive, from its first bytes on.
    [[nodiscard]] bool passes_on() const {
        return !compresses() && options.force && options.to_stdout && output != nullptr;
    }
    [[nodiscard]] Amounts done() const { // up to the last block that was written
        return compresses() ? Amounts{told.size, told.archive_size, told.blocks}
                            : Amounts{told.archive_size, told.size, told.blocks};
    }
};

// Reads a part, and no more than belongs to the input. ended: there is no more.
bool read_part(Run &run, velk_buffers &buffers, bool &ended) {
    // Until a header can be there, behind what came before.
    if (run.bytes_read >= VELK_HEADER_SIZE) run.kept = 0;
    const std::uint64_t left = run.size - run.bytes_read;
    const auto most =
        static_cast<std::size_t>(std::min<std::uint64_t>(kPartBytes - run.kept, left));
    std::uint8_t *const place = run.in.data() + run.kept;
    const std::int64_t got = most == 0 ? 0 : read_some(run.input.fd, place, most);
    if (got < 0) return false;
    buffers.in = place;
    buffers.in_size = static_cast<std::size_t>(got);
    run.kept += buffers.in_size;
    if (run.bytes_read < VELK_HEADER_SIZE)
        std::memcpy(run.header, run.in.data(), std::min<std::size_t>(run.kept, VELK_HEADER_SIZE));
    run.bytes_read += buffers.in_size;
    ended = got == 0 || run.bytes_read == run.size;
    return true;
}

bool is_zeros(const std::uint8_t *bytes, std::size_t size) {
    return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, size - 1) == 0;
}

// Writes what was given; in place of kHoleBytes zeros, at a multiple of that, it leaves a hole in a
// file of its own.
bool write_part(Run &run, std::size_t size) {
    if (run.output == nullptr) return true;
    const bool sparse = !run.compresses() && !run.options.no_sparse && run.output->is_own;
    for (std::size_t at = 0; at < size;) {
        const std::uint8_t *const bytes = run.out.data() + at;
        const std::size_t room = kHoleBytes - run.bytes_written % kHoleBytes;
        std::size_t part = sparse ? std::min(size - at, room) : size - at;
        if (sparse && part == kHoleBytes && is_zeros(bytes, part)) {
            if (!leave_hole(run.output->fd, part)) return false;
        } else {
            const std::int64_t put = write_some(run.output->fd, bytes, part);
            if (put <= 0) return false;
            part = static_cast<std::size_t>(put);
        }
        at += part;
        run.bytes_written += part;
    }
    return true;
}

// Takes and gives what can be, and tells how much was given.
velk_status step(Run &run, velk_flow *flow, velk_buffers &buffers, bool ended, std::size_t &given) {
    buffers.out = run.out.data();
    buffers.out_size = kPartBytes;
    const velk_status status = velk_flow_run(flow, &buffers, ended ? VELK_FINISH : VELK_RUN);
    given = kPartBytes - buffers.out_size;
    if (!write_part(run, given)) {
        run.stream_error = errno;
        return VELK_ERROR_WRITE;
    }
    velk_flow_report(flow, &run.told);
    run.progress.show(run.done());
    return status;
}

// A finished block leaves at once, also while the input is silent.
velk_status run_flow(Run &run, velk_flow *flow, Bell &bell) {
    velk_buffers buffers{};
    std::size_t given;
    for (bool ended = false;;) {
        const velk_status status = step(run, flow, buffers, ended, given);
        if (status == VELK_BUSY) {
            velk_flow_wait(flow);
        } else if (status != VELK_OK) {
            return status == VELK_DONE ? VELK_OK : status;
        } else if (buffers.in_size == 0 && buffers.out_size != 0 &&
                   bell.wait_for_input(run.input.fd) && !read_part(run, buffers, ended)) {
            run.stream_error = errno;
            break;
        }
    }
    do { // what came before the fault
        velk_flow_wait(flow);
        const velk_status status = step(run, flow, buffers, false, given);
        if (status != VELK_OK) return status;
    } while (given != 0);
    return VELK_ERROR_READ;
}

Status report(const Run &run, velk_status status) {
    errno = run.stream_error;
    if (status == VELK_ERROR_WRITE)
        return error(run.output->name, "can't be written: " + errno_text());
    if (status == VELK_ERROR_READ && errno == 0)
        return error(run.input.name,
                     "ended early, after " + std::to_string(run.bytes_read) + " bytes");
    if (status == VELK_ERROR_MEMORY && run.options.library.memory_limit != 0)
        return report_limit(run.input, run.options.library, run.size,
                            run.compresses() ? nullptr : run.header);
    Archive archive{run.input, run.options};
    if (status == VELK_ERROR_DAMAGED && run.input.regular())
        static_cast<void>(open_reader(archive)); // it may fail, too
    return report(run.input, status, run.told, archive.reader.get());
}

bool more_follows(const Input &input) {
    char byte;
    return read_some(input.fd, &byte, 1) > 0;
}

// Writes the input as it is.
Status pass_on(Run &run) {
    run.told.whole = 1; // what is no archive has no end to miss
    std::int64_t got = static_cast<std::int64_t>(run.kept);
    for (; got > 0; got = read_some(run.input.fd, run.in.data(), kPartBytes)) {
        run.out.swap(run.in);
        if (!write_part(run, static_cast<std::size_t>(got)))
            return error(run.output->name, "can't be written: " + errno_text());
        run.out.swap(run.in);
    }
    return got == 0 ? kSuccess : error(run.input.name, "can't be read: " + errno_text());
}

velk_status transfer(Run &run) {
    Bell bell; // outlives the flow
    velk_flow *flow;
    const velk_options *const options = &run.options.library;
    const velk_status status = run.compresses()
                                   ? velk_flow_compress(&flow, options, run.size, Bell::ring, &bell)
                                   : velk_flow_restore(&flow, options, Bell::ring, &bell);
    if (status != VELK_OK) return status;
    const velk_status ended = run_flow(run, flow, bell);
    velk_flow_close(flow);
    return ended;
}

Status compress(Run &run) {
    const velk_status status = transfer(run);
    if (status != VELK_OK) return report(run, status);
    if (run.options.size != VELK_SIZE_UNKNOWN && more_follows(run.input))
        return error(run.input.name,
                     "has more than the " + std::to_string(run.size) + " bytes of --size");
    return has_changed(run.input) ? warning(run.input.name, "was written to while it was read")
                                  : kSuccess;
}

Status restore(Run &run) {
    run.size = VELK_SIZE_UNKNOWN;
    const velk_status status = transfer(run);
    if (status == VELK_ERROR_FORMAT && run.passes_on() && run.told.archive_size == 0)
        return pass_on(run);
    if (status != VELK_OK) return report(run, status);
    if (run.told.bytes_follow == 0) return kSuccess;
    const std::uint64_t size = run.input.size;
    if (size == VELK_SIZE_UNKNOWN || size < run.told.archive_size) // it has grown
        return warning(run.input.name, "what follows the archive's end is left out");
    return warning(run.input.name, std::to_string(size - run.told.archive_size) +
                                       " bytes that follow the archive's end are left out");
}

} // namespace

Status transfer(const Input &input, const Output *output, const Options &options,
                velk_report &told) {
    const bool compresses = options.mode == Mode::kCompress;
    const bool text_on_terminal =
        output != nullptr && output->fd == kStandardOutput && is_terminal(kStandardOutput);
    const bool shown =
        !options.quiet && !options.no_progress && !text_on_terminal && is_terminal(kStandardError);
    const std::uint64_t size = options.size != VELK_SIZE_UNKNOWN ? options.size : input.size;
    Run run{input, output, options, size, {input.name, size, compresses, shown}};
    const Status status = compresses ? compress(run) : restore(run);
    told = run.told;
    if (status != kError && options.verbose && options.mode != Mode::kList) {
        clear_progress();
        const char *const plain =
            told.whole != 0 ? ""
                            : ", a plain archive, which can't tell whether its end was cut off";
        put_message(printable(input.name) + ": " + run.progress.summary(run.done()) + plain + "\n");
    }
    return status;
}

namespace {

// Where the output goes: kStandardStream, or the name of a file.
Status name_output(const Input &input, const Options &options, std::string &path) {
    path = options.output;
    if (!path.empty()) return kSuccess;
    path = kStandardStream;
    if (options.to_stdout || input.standard()) return kSuccess;
    const bool suffixed = has_suffix(input.path, options);
    if (options.mode == Mode::kCompress) {
        path = input.path + options.suffix;
        if (!suffixed || options.force) return kSuccess;
        return warning(input.name, "has the suffix " + options.suffix + " already, skipped");
    }
    path = suffixed ? without_suffix(input.path, options) : "";
    return !path.empty() ? kSuccess
                         : warning(input.name, "does not end in " + options.suffix +
                                                   ", skipped; -o names the output");
}

} // namespace

Status process(const std::string &path, const Options &options) {
    Input input;
    Status status = open_input(input, path, options);
    if (status != kSuccess) return status;
    velk_report told{};
    if (options.mode == Mode::kTest) return transfer(input, nullptr, options, told);

    std::string output_path;
    status = name_output(input, options, output_path);
    if (status != kSuccess) return status;
    Output output;
    status = open_output(output, output_path, input, options);
    if (status != kSuccess) return status;
    status = options.ranged ? restore_range(input, output, options)
                            : transfer(input, &output, options, told);
    if (status == kError) return status;
    const bool in_place = !output.is_own;
    status = worse(status, keep_output(output, input));
    if (status != kSuccess || !options.remove || input.standard()) return status;
    if (in_place) return warning(input.name, "kept, as the output is not a file of its own");
    if (told.whole != 0) return remove_input(input);
    warning(input.name, "kept, as a plain archive can't tell whether its end was cut off");
    return kSuccess;
}
