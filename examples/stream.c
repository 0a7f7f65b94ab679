// Compresses the standard input to the standard output, or restores it with -d, with a
// thread for each processor, and tells how far it is:
//
//   stream [-d] < INPUT > OUTPUT
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <velk.h>
#ifdef _WIN32 // where streams are text unless told otherwise
#include <fcntl.h>
#include <io.h>
#endif

static int64_t read_input(void *user, void *buffer, size_t size) {
    (void)user;
    const size_t got = fread(buffer, 1, size, stdin);
    return ferror(stdin) ? -1 : (int64_t)got;
}

static int64_t write_output(void *user, const void *buffer, size_t size) {
    (void)user;
    return (int64_t)fwrite(buffer, 1, size, stdout);
}

static int show_progress(void *user, uint64_t bytes_in, uint64_t bytes_out) {
    (void)user;
    fprintf(stderr, "\r%llu -> %llu", (unsigned long long)bytes_in, (unsigned long long)bytes_out);
    return 0; // any other value would end the run
}

int main(int argument_count, char **arguments) {
#ifdef _WIN32
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
#endif
    const int restore = argument_count == 2 && strcmp(arguments[1], "-d") == 0;
    velk_report report;
    velk_stream stream = {NULL, read_input, write_output, show_progress, &report, {NULL}};
    velk_status status = restore ? velk_decompress_stream(NULL, &stream)
                                 : velk_compress_stream(NULL, &stream, VELK_SIZE_UNKNOWN);
    if (status == VELK_OK && fflush(stdout) != 0) status = VELK_ERROR_WRITE;
    fprintf(stderr, "\n%s\n", velk_status_text(status));
    if (status == VELK_OK && report.whole == 0)
        fprintf(stderr, "the archive has no index and may have been cut between two blocks\n");
    if (status == VELK_OK && report.bytes_follow != 0)
        fprintf(stderr, "what follows the archive was left out\n");
    return status == VELK_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
