#include "output.h"

#include "platform/streams.h"
#include "signals.h"

#include <cerrno>
#include <cstdio>
#include <random>
#include <unistd.h>

using namespace velk;

namespace {

// Where the name of the file begins in the path.
std::size_t name_place(const std::string &path) {
    return path.find_last_of(kFolderEnds) + 1;
}

// A question on the error stream; only "y" is a yes.
bool agrees(const std::string &name) {
    put_message("velkz: " + printable(name) + " exists; overwrite it? (y/N) ");
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

// Takes names that nobody has, short enough wherever the output's is, until one is given.
template<typename Give>
bool give_temporary(Output &output, Give give) {
    std::random_device random;
    for (int tries = 0; tries < 100; ++tries) {
        std::string name = ".velkz-";
        for (int i = 0; i < 6; ++i)
            name += "abcdefghijklmnopqrstuvwxyz234567"[random() % 32];
        if (give(name)) {
            output.temporary = name;
            remove_on_signal(&output.folder, &output.temporary);
            return true;
        }
        if (errno != EEXIST) break;
    }
    return false;
}

// The file is the user's alone until it gets the input's mode.
Status open_own(Output &output) {
    const std::size_t place = name_place(output.path);
    if (!open_folder(place == 0 ? "./" : output.path.substr(0, place), output.folder))
        return error(output.name, "can't be made: " + errno_text());
    output.is_own = true;
    output.fd = create_nameless(output.folder);
    if (output.fd >= 0) return kSuccess;
    const SignalsHeld held;
    const bool made = give_temporary(output, [&](const std::string &name) {
        output.fd = create_file(output.folder, name);
        return output.fd >= 0;
    });
    return made ? kSuccess : error(output.name, "can't be made: " + errno_text());
}

// By way of another name where a nameless file is to replace one.
bool take_name(Output &output, const std::string &name) {
    if (output.temporary.empty()) {
        if (name_file(output.fd, output.folder, name)) return true;
        if (errno != EEXIST || !output.replaces) return false;
        if (!give_temporary(output, [&](const std::string &temporary) {
                return name_file(output.fd, output.folder, temporary);
            }))
            return false;
    }
    return rename_file(output.folder, output.temporary, name, output.replaces);
}

Status give_name(Output &output) {
    const SignalsHeld held;
    if (!take_name(output, output.path.substr(name_place(output.path)))) {
        return error(output.name, errno == EEXIST ? "exists by now; -f overwrites it"
                                                  : "can't get its name: " + errno_text());
    }
    output.temporary.clear();
    remove_on_signal(nullptr, nullptr);
    return kSuccess;
}

bool close_file(Output &output) {
    const bool closed = output.fd < 0 || close(output.fd) == 0;
    output.fd = -1;
    return closed;
}

} // namespace

Output::~Output() {
    if (fd != kStandardOutput) close_file(*this);
    if (!temporary.empty()) {
        const SignalsHeld held;
        remove_file(folder, temporary);
        remove_on_signal(nullptr, nullptr);
    }
    close_folder(folder);
}

Status open_output(Output &output, const std::string &path, const Input &input,
                   const Options &options) {
    output.path = output.name = path;
    FileFacts there, messages;
    if (path == kStandardStream) return open_in_place(output, input, options);
    if (!look_at(path, false, there)) {
        // Known now rather than when all is done: a name that is too long, for one.
        return errno == ENOENT ? open_own(output) : error(output.name, errno_text());
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
    return open_own(output);
}

Status keep_output(Output &output, const Input &input) {
    if (output.fd == kStandardOutput) return kSuccess; // closed when all is done
    if (output.is_own) copy_attributes(output.fd, input.opened);
    bool safe = !output.is_own || sync_file(output.fd);
    // A nameless file must be open to get a name.
    if (!output.is_own || !output.temporary.empty()) safe = close_file(output) && safe;
    if (!safe) return error(output.name, "can't be written: " + errno_text());
    if (!output.is_own) return kSuccess;
    const Status status = give_name(output);
    if (status != kSuccess) return status;
    // To some file systems a new name is a change of the file, too.
    return (output.fd < 0 || sync_file(output.fd)) && sync_folder(output.folder)
               ? kSuccess
               : warning(output.name, "written, but its folder can't be synchronised");
}
