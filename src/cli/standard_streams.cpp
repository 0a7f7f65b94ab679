#include "cli/standard_streams.h"

#include "cli/file_names.h"

#include <cstdio>
#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#elif __has_include(<unistd.h>)
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace velk {

#ifdef _WIN32

void prepare_standard_streams() {
    for (std::FILE *stream : {stdin, stdout, stderr})
        _setmode(_fileno(stream), _O_BINARY);
}

bool takes_messages(const char *name) {
    BY_HANDLE_FILE_INFORMATION output, messages;
    const HANDLE standard = GetStdHandle(STD_OUTPUT_HANDLE);
    if (!GetFileInformationByHandle(standard, &messages)) return false; // no file
    const HANDLE file = CreateFileW(path_of(name).c_str(), 0,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    const bool known = GetFileInformationByHandle(file, &output) != 0;
    CloseHandle(file);
    return known && output.dwVolumeSerialNumber == messages.dwVolumeSerialNumber &&
           output.nFileIndexHigh == messages.nFileIndexHigh &&
           output.nFileIndexLow == messages.nFileIndexLow;
}

#else

void prepare_standard_streams() {
    // Three opened files take the free numbers for the whole run.
    for (int i = 0; i < 3; ++i) {
        [[maybe_unused]] const std::FILE *held = std::fopen("/dev/null", "r+");
    }
}

bool takes_messages([[maybe_unused]] const char *name) {
#if __has_include(<unistd.h>)
    struct stat output, messages;
    return stat(name, &output) == 0 && fstat(STDOUT_FILENO, &messages) == 0 &&
           output.st_dev == messages.st_dev && output.st_ino == messages.st_ino &&
           !S_ISCHR(output.st_mode);
#else
    return false;
#endif
}

#endif

} // namespace velk
