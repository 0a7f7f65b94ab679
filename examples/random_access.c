// Writes a part of what an archive holds to the standard output; only the blocks that it
// lies in are restored:
//
//   random_access ARCHIVE OFFSET SIZE
#include <stdio.h>
#include <stdlib.h>
#include <velk.h>
#ifdef _WIN32 // where streams are text unless told otherwise
#include <fcntl.h>
#include <io.h>
#endif

static int64_t read_archive(void *user, uint64_t offset, void *buffer, size_t size) {
    FILE *file = (FILE *)user;
    if (fseek(file, (long)offset, SEEK_SET) != 0) return -1;
    const size_t got = fread(buffer, 1, size, file);
    return ferror(file) ? -1 : (int64_t)got;
}

static velk_status copy_part(velk_reader *reader, uint64_t offset, uint64_t left) {
    char buffer[4096];
    while (left != 0) {
        size_t got;
        const size_t size = left < sizeof buffer ? (size_t)left : sizeof buffer;
        const velk_status status = velk_reader_read(reader, offset, buffer, size, &got);
        if (status != VELK_OK) return status;
        if (got == 0) break;
        if (fwrite(buffer, 1, got, stdout) != got) return VELK_ERROR_WRITE;
        offset += got;
        left -= got;
    }
    return VELK_OK;
}

int main(int argument_count, char **arguments) {
#ifdef _WIN32
    _setmode(_fileno(stdout), _O_BINARY);
#endif
    FILE *file = argument_count == 4 ? fopen(arguments[1], "rb") : NULL;
    velk_reader *reader = NULL;
    velk_status status = VELK_ERROR_ARGUMENT;
    if (file != NULL) {
        status = velk_reader_open(&reader, NULL, read_archive, file, VELK_SIZE_UNKNOWN, NULL);
    }
    if (status == VELK_OK)
        status =
            copy_part(reader, strtoull(arguments[2], NULL, 10), strtoull(arguments[3], NULL, 10));
    velk_reader_close(reader);
    if (status == VELK_OK) return EXIT_SUCCESS;
    fprintf(stderr, "random_access: %s\n", velk_status_text(status));
    return EXIT_FAILURE;
}
