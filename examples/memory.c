// Compresses a file in memory, restores it and compares:
//
//   memory FILE
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <velk.h>

static int fail(const char *what, velk_status status) {
    fprintf(stderr, "memory: %s: %s\n", what, velk_status_text(status));
    return EXIT_FAILURE;
}

int main(int argument_count, char **arguments) {
    FILE *file = argument_count == 2 ? fopen(arguments[1], "rb") : NULL;
    if (file == NULL || fseek(file, 0, SEEK_END) != 0)
        return fail("a file, please", VELK_ERROR_ARGUMENT);
    const size_t size = (size_t)ftell(file);
    rewind(file);

    velk_options options;
    velk_options_init(&options);
    options.threads = 1;
    const size_t bound = velk_compress_bound(size, &options);
    unsigned char *original = (unsigned char *)malloc(size + 1);
    unsigned char *archive = (unsigned char *)malloc(bound);
    unsigned char *restored = (unsigned char *)malloc(size + 1);
    if (original == NULL || archive == NULL || restored == NULL)
        return fail("buffers", VELK_ERROR_MEMORY);
    if (fread(original, 1, size, file) != size) return fail(arguments[1], VELK_ERROR_READ);
    fclose(file);

    size_t archive_size, restored_size;
    velk_status status = velk_compress(&options, original, size, archive, bound, &archive_size);
    if (status != VELK_OK) return fail("compression", status);
    status = velk_decompress(&options, archive, archive_size, restored, size, &restored_size, NULL);
    if (status != VELK_OK) return fail("restoring", status);

    const int same = restored_size == size && memcmp(original, restored, size) == 0;
    printf("%zu -> %zu -> %zu, %s\n", size, archive_size, restored_size,
           same ? "the same" : "not the same");
    free(original);
    free(archive);
    free(restored);
    return same ? EXIT_SUCCESS : EXIT_FAILURE;
}
