#include "input.h"

#include "platform/streams.h"

#include <unistd.h>

using namespace velk;

namespace {

// Null for what may be read.
const char *reason_to_skip(Kind kind, bool any_kind) {
    if (kind == Kind::kFolder) return "is a folder, skipped";
    if (any_kind || kind == Kind::kFile) return nullptr;
    return kind == Kind::kLink ? "is a symbolic link, skipped" : "is not a regular file, skipped";
}

Status find_size(Input &input) {
    if (!input.regular()) return kSuccess;
    const std::int64_t start = position_of(input.fd);
    if (start < 0) return error(input.name, errno_text());
    input.start = static_cast<std::uint64_t>(start);
    // Files that the system makes up as they are read say that they are empty.
    if (input.opened.size > input.start) input.size = input.opened.size - input.start;
    return kSuccess;
}

// The kind is looked at before the file is opened, as to open some devices does something,
// and again after, as the name may stand for another file by then.
Status open_named(Input &input, bool any_kind) {
    FileFacts found;
    if (!look_at(input.path, any_kind, found)) return error(input.name, errno_text());
    const char *why = reason_to_skip(found.kind, any_kind);
    if (why != nullptr) return warning(input.name, why);
    input.fd = open_to_read(input.path, any_kind);
    if (input.fd < 0 || !look_at(input.fd, input.opened)) return error(input.name, errno_text());
    why = reason_to_skip(input.opened.kind, any_kind);
    return why != nullptr ? warning(input.name, why) : kSuccess;
}

} // namespace

Input::~Input() {
    if (fd >= 0 && !standard()) close(fd);
}

Status open_input(Input &input, const std::string &path, const Options &options) {
    input.path = path;
    input.name = input.standard() ? "standard input" : path;
    Status status = kSuccess;
    if (input.standard()) {
        input.fd = kStandardInput;
        if (!look_at(input.fd, input.opened)) return error(input.name, errno_text());
        if (input.opened.kind == Kind::kFolder) return warning(input.name, "is a folder, skipped");
        if (options.mode != Mode::kCompress && is_terminal(input.fd))
            return error(input.name, "archives are not read from a terminal; -h for help");
    } else {
        const bool names_output = !options.to_stdout && options.output.empty() &&
                                  options.mode != Mode::kTest && options.mode != Mode::kList;
        status = open_named(input, options.force || !names_output);
    }
    return status == kSuccess ? find_size(input) : status;
}

bool has_changed(const Input &input) {
    FileFacts now;
    return input.regular() && (!look_at(input.fd, now) || now.size != input.opened.size ||
                               now.written != input.opened.written);
}

Status remove_input(const Input &input) {
    FileFacts now;
    if (!look_at(input.path, true, now))
        return error(input.name, "can't be removed: " + errno_text());
    if (!same_file(now, input.opened)) return warning(input.name, "is another file now, kept");
    if (has_changed(input) || now.changed != input.opened.changed)
        return warning(input.name, "has changed since it was read, kept");
    return unlink(input.path.c_str()) == 0 ? kSuccess
                                           : error(input.name, "can't be removed: " + errno_text());
}
