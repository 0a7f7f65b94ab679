#include "messages.h"

#include "progress.h"

#include <cerrno>
#include <cstring>

namespace {

bool quiet = false;

void print(const std::string &name, const std::string &what) {
    clear_progress();
    velk::put_message("velkz: " + printable(name) + ": " + what + "\n");
}

} // namespace

Status worse(Status a, Status b) {
    if (a == kError || b == kError) return kError;
    return a == kSuccess ? b : a;
}

Status error(const std::string &name, const std::string &what) {
    print(name, what);
    return kError;
}

Status warning(const std::string &name, const std::string &what) {
    if (!quiet) print(name, what);
    return kWarning;
}

void silence_warnings() {
    quiet = true;
}

std::string errno_text() {
    return std::strerror(errno);
}
