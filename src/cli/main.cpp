// The entry point: banner, command line, one file driver, the end.
#include "archive/coder_context.h"
#include "archive/file_drivers.h"
#include "cli/error.h"
#include "cli/switches.h"
#include "platform/streams.h"

#include <csignal>
#include <cstdio>

using namespace velk;

namespace {

constexpr const char *kBanner =
    "\nBlock-sorting compressor/decompressor, Version " VELK_VERSION " alpha\n"
    "Copyright (c) 2026 The VELK authors\n";

constexpr const char *kUsage =
    "Usage: VELK <e|d> inputfile outputfile [<switches>]\n"
    "\n"
    "  <Switches>\n"
    "    -bN     Set maximum blocksize in kb (def: -b2048, min: -b128, max: -b16383)\n"
    "    -a      Disable automatic blocksize detection\n"
    "    -e      Disable EOL filter\n"
    "    -f      Disable FLT32 filter\n"
    "    -l      Disable DELTA filter\n"
    "    -z      Disable LZP preprocessing stage\n"
    "    -w      Disable BWT stage\n"
    "    -t      Replace BWT with ST 21 bit (faster for big blocks)\n"
    "    -r      Disable RLE after-BWT stage\n"
    "    -d      Disable DCE (Distance+Entropy Coding) stage\n"
    "    -o      Do not omit BWT & RLE stages when outputsize > inputsize\n"
    "    -s      Show statistics (time per stage)\n"
    "\n"
    "Example: VELK e FILENAME_IN FILENAME_OUT -b1024aeflzr\n"
    "  (set blocksize to 1 Mb and perform compression with BWT and DCE stages only)\n"
    "Memory requirements: to compress 8.125*N + 768 kb, to decompress 5*N";

} // namespace

int main(int argument_count, char **arguments) {
    prepare_standard_streams(false);
#ifdef SIGPIPE
    // A reader of our messages that goes away must not end a good run half-way.
    std::signal(SIGPIPE, SIG_IGN);
#endif
#ifdef SIGXFSZ
    // A limit on file sizes is to be met as a full disk is: by a message.
    std::signal(SIGXFSZ, SIG_IGN);
#endif

    CoderContext context{};
    std::fputs(kBanner, stderr);
    if (argument_count < 4) error_exit(ERR_USAGE, kUsage);

    const char *command = arguments[1];
    const bool one_letter = command[0] != '\0' && command[1] == '\0';
    const bool compress = one_letter && (command[0] == 'e' || command[0] == 'E');
    const bool decompress = one_letter && (command[0] == 'd' || command[0] == 'D');
    if (!compress && !decompress) error_exit(ERR_COMMAND, command);

    const int wrong = parse_switches(argument_count, arguments, context.settings);
    if (wrong != 0) error_exit(ERR_SWITCH, arguments[wrong]);
    context.settings.input_name = arguments[2];
    context.settings.output_name = arguments[3];

    if (compress) {
        compress_file(context);
    } else {
        decompress_file(context);
    }
    error_exit(ERR_NONE, "");
}
