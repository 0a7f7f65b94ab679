// velkz: VELK archives as streams and beside their files, by all processors.
#include "folders.h"
#include "list.h"
#include "platform/streams.h"
#include "signals.h"
#include "work.h"

#include <cstdio>
#include <unistd.h>

using namespace velk;

int main(int argument_count, char **arguments) {
    prepare_standard_streams(true);
    prepare_terminal();
    catch_signals();
    Options options;
    Status status = kSuccess;
    if (parse_options(argument_count, arguments, options, status)) {
        if (options.quiet) silence_warnings();
        if (options.recursive) status = expand_folders(options);
        if (options.mode == Mode::kList) {
            status = worse(status, list_archives(options));
        } else {
            for (const std::string &name : options.names)
                status = worse(status, process(name, options));
        }
    }
    // A full disk may only show now.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || close(kStandardOutput) != 0)
        status = error("standard output", "can't be written: " + errno_text());
    return status;
}
