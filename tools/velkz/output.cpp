#include "output.h"

#include "platform/streams.h"
#include "signals.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

using namespace velk;

namespace {

std::string folder_of(const std::string &path) {
    const std::size_t end = path.find_last_of(kFolderEnds);
    return end == std::string::npos ? "./" : path.substr(0, end + 1);
}

// A question on the error stream; only "y" is a yes.
bool agrees(const std::string &name) {
    std::fprintf(stderr, "velkz: %s exists; overwrite it? (y/N) ", printable(name).c_str());
    char answer = 'n', byte = 0;
    for (bool first = true; read_some(kStandardInput, &byte, 1) == 1 && byte != '\n';
         first = false) {
        if (first) answer = byte;
    }
    if (byte != '\n') std::fputc('\n', stderr);
    return answer == 'y' || answer == 'Y';
}

// A stream or device takes the bytes as they come.
Status open_in_place(Output &output, const Input &input, const Options &options) {
    FileFacts found;
    if (output.path == kStandardStream) {
        output.fd = kStandardOutput;
        output.name = "standard output";
    } else {
        output.fd = open_to_write(output.path);
    }
    if (output.fd < 0 || !look_at(output.fd, found)) return error(output.name, errno_text());
    if (found.kind == Kind::kFile && same_file(found, input.opened))
        return error(output.name, "is the input itself");
    if (options.mode == Mode::kCompress && is_terminal(output.fd))
        return error(output.name, "archives are not written to a terminal; -h for help");
    return kSuccess;
}

// The file is the user's alone until it gets the input's mode. Its name is short enough
// wherever the output's is.
Status open_temporary(Output &output) {
    std::string name = folder_of(output.path) + ".velkz-" + std::string(6, 'X');
    const SignalsHeld held;
    output.fd = make_temporary(name);
    if (output.fd < 0) return error(output.name, "can't be made: " + errno_text());
    output.temporary = name;
    remove_on_signal(output.temporary.c_str());
    return kSuccess;
}

Status give_name(Output &output) {
    const SignalsHeld held;
    if (!rename_file(output.temporary, output.path, output.replaces)) {
        return error(output.name,
                     errno == EEXIST ? "exists by now; -f overwrites it" : errno_text());
    }
    output.temporary.clear();
    remove_on_signal(nullptr);
    return kSuccess;
}

} // namespace

Output::~Output() {
    if (fd >= 0 && fd != kStandardOutput) close(fd);
    if (temporary.empty()) return;
    const SignalsHeld held;
    unlink(temporary.c_str());
    remove_on_signal(nullptr);
}

Status open_output(Output &output, const std::string &path, const Input &input,
                   const Options &options) {
    output.path = output.name = path;
    FileFacts there, messages;
    if (path == kStandardStream) return open_in_place(output, input, options);
    if (!look_at(path, false, there)) {
        // Known now rather than when all is done: a name that is too long, for one.
        return errno == ENOENT ? open_temporary(output) : error(output.name, errno_text());
    }
    if (look_at(path, true, there)) {
        if (there.kind == Kind::kFolder) return error(output.name, "is a folder");
        if (same_file(there, input.opened)) return error(output.name, "is the input itself");
        const bool chosen = !options.output.empty();
        // By another name, such as /dev/stdout.
        if (chosen && look_at(kStandardOutput, messages) && same_file(there, messages)) {
            output.path = kStandardStream;
            return open_in_place(output, input, options);
        }
        const bool harmless = there.kind == Kind::kDevice || there.kind == Kind::kPipe;
        if (chosen && (harmless || (options.force && there.kind == Kind::kBlockDevice)))
            return open_in_place(output, input, options);
        if (there.kind != Kind::kFile) return error(output.name, "is not a regular file");
    }
    if (!options.force) {
        const bool can_ask =
            !input.standard() && is_terminal(kStandardInput) && is_terminal(kStandardError);
        if (!can_ask) return error(output.name, "exists; -f overwrites it");
        if (!agrees(output.name)) return warning(output.name, "exists, skipped");
    }
    output.replaces = true;
    return open_temporary(output);
}

Status keep_output(Output &output, const Input &input) {
    if (output.fd == kStandardOutput) return kSuccess; // closed when all is done
    const bool named_later = !output.temporary.empty();
    if (named_later) copy_attributes(output.fd, input.opened);
    bool safe = !named_later || sync_file(output.fd);
    safe = close(output.fd) == 0 && safe;
    output.fd = -1;
    if (!safe) return error(output.name, "can't be written: " + errno_text());
    if (!named_later) return kSuccess;
    const Status status = give_name(output);
    if (status != kSuccess) return status;
    return sync_folder(folder_of(output.path))
               ? kSuccess
               : warning(output.name, "written, but its folder can't be synchronised");
}
