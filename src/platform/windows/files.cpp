// Names are UTF-8 (packaging/windows.manifest). All files are opened so that others may
// write, rename and remove them meanwhile, as elsewhere.
#include "platform/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <system_error>
#include <windows.h>

namespace velk {
namespace {

constexpr std::size_t kMostAtOnce = std::size_t{1} << 20; // consoles refuse too much

HANDLE handle_of(int fd) {
    return reinterpret_cast<HANDLE>(_get_osfhandle(fd));
}

void set_errno() {
    const std::error_condition reason =
        std::error_code(static_cast<int>(GetLastError()), std::system_category())
            .default_error_condition();
    errno = reason.category() == std::generic_category() ? reason.value() : EIO;
}

HANDLE open_handle(const std::string &path, DWORD access, DWORD how, DWORD flags) {
    // CreateFileA may refuse names of more than 260 bytes. No byte makes more than one unit.
    std::wstring wide(path.size() + 1, L'\0');
    MultiByteToWideChar(CP_ACP, 0, path.c_str(), -1, wide.data(), static_cast<int>(wide.size()));
    const HANDLE file =
        CreateFileW(wide.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, how, flags, nullptr);
    if (file == INVALID_HANDLE_VALUE) set_errno();
    return file;
}

int open_file(const std::string &path, DWORD access, DWORD how) {
    const HANDLE file = open_handle(path, access, how, FILE_ATTRIBUTE_NORMAL);
    return file == INVALID_HANDLE_VALUE
               ? -1
               : _open_osfhandle(reinterpret_cast<intptr_t>(file), _O_BINARY);
}

FileTime time_of(const FILETIME &time) {
    return {time.dwHighDateTime, time.dwLowDateTime};
}

FILETIME filetime_of(const FileTime &time) {
    return {static_cast<DWORD>(time.low), static_cast<DWORD>(time.high)};
}

// Files have other such points, too: of a cloud that holds their bytes, for one.
bool is_link(HANDLE file) {
    FILE_ATTRIBUTE_TAG_INFO found;
    return GetFileInformationByHandleEx(file, FileAttributeTagInfo, &found, sizeof found) &&
           (found.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           IsReparseTagNameSurrogate(found.ReparseTag);
}

FileFacts facts_of(HANDLE file) {
    FileFacts facts{};
    const DWORD type = GetFileType(file);
    BY_HANDLE_FILE_INFORMATION found;
    if (type != FILE_TYPE_DISK || !GetFileInformationByHandle(file, &found)) {
        // What is on a disk tells of itself, but not the whole of one.
        facts.kind = type == FILE_TYPE_PIPE   ? Kind::kPipe
                     : type == FILE_TYPE_DISK ? Kind::kBlockDevice
                                              : Kind::kDevice;
        return facts;
    }
    const bool folder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    facts.kind = is_link(file) ? Kind::kLink : folder ? Kind::kFolder : Kind::kFile;
    facts.volume = found.dwVolumeSerialNumber;
    facts.number = std::uint64_t{found.nFileIndexHigh} << 32 | found.nFileIndexLow;
    facts.size = std::uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow;
    facts.read = time_of(found.ftLastAccessTime);
    facts.written = time_of(found.ftLastWriteTime);
    return facts;
}

} // namespace

const char *const kFolderEnds = "/\\:";

bool look_at(const std::string &path, bool through_links, FileFacts &facts) {
    // The first flag is for folders.
    const DWORD flags =
        FILE_FLAG_BACKUP_SEMANTICS | (through_links ? 0 : FILE_FLAG_OPEN_REPARSE_POINT);
    const HANDLE file = open_handle(path, FILE_READ_ATTRIBUTES, OPEN_EXISTING, flags);
    if (file == INVALID_HANDLE_VALUE) return false;
    facts = facts_of(file);
    CloseHandle(file);
    return true;
}

bool look_at(int fd, FileFacts &facts) {
    const HANDLE file = handle_of(fd);
    if (file != INVALID_HANDLE_VALUE) facts = facts_of(file);
    return file != INVALID_HANDLE_VALUE; // or else a stream that the caller closed
}

// Pipes and devices have no numbers.
bool same_file(const FileFacts &a, const FileFacts &b) {
    return a.kind == Kind::kFile && b.kind == Kind::kFile && a.volume == b.volume &&
           a.number == b.number;
}

int open_to_read(const std::string &path, [[maybe_unused]] bool through_links) {
    return open_file(path, GENERIC_READ, OPEN_EXISTING);
}

int open_to_write(const std::string &path) {
    return open_file(path, GENERIC_WRITE, OPEN_EXISTING);
}

std::int64_t read_some(int fd, void *buffer, std::size_t size) {
    return _read(fd, buffer, static_cast<unsigned>(std::min(size, kMostAtOnce)));
}

std::int64_t read_some_at(int fd, std::uint64_t offset, void *buffer, std::size_t size) {
    if (_lseeki64(fd, static_cast<std::int64_t>(offset), SEEK_SET) < 0) return -1;
    return read_some(fd, buffer, size);
}

std::int64_t write_some(int fd, const void *buffer, std::size_t size) {
    const int put = _write(fd, buffer, static_cast<unsigned>(std::min(size, kMostAtOnce)));
    // To the C library, a pipe that nobody reads is an invalid argument.
    if (put < 0 && errno == EINVAL && GetFileType(handle_of(fd)) == FILE_TYPE_PIPE) errno = EPIPE;
    return put;
}

bool leave_hole(int fd, std::uint64_t size) {
    const __int64 end = _lseeki64(fd, static_cast<__int64>(size), SEEK_CUR);
    return end >= 0 && _chsize_s(fd, end) == 0;
}

std::int64_t position_of(int fd) {
    return _lseeki64(fd, 0, SEEK_CUR);
}

// Who may do what with a new file follows from its folder.
void copy_attributes(int fd, const FileFacts &from) {
    if (from.kind != Kind::kFile) return;
    const FILETIME read = filetime_of(from.read), written = filetime_of(from.written);
    SetFileTime(handle_of(fd), nullptr, &read, &written);
}

bool sync_file(int fd) {
    return _commit(fd) == 0;
}

bool open_folder(const std::string &path, Folder &folder) {
    folder.path = path;
    return true;
}

void close_folder(Folder &) {}

int create_file(const Folder &folder, const std::string &name) {
    return open_file(folder.path + name, GENERIC_WRITE, CREATE_NEW);
}

int create_nameless(const Folder &) {
    return -1;
}

// tmpfile may want to write to the root of a disk, where users must not.
std::FILE *open_temporary() {
    char *const name = _tempnam(nullptr, "velk");
    if (name == nullptr) return nullptr;
    const int fd =
        _open(name, _O_RDWR | _O_CREAT | _O_EXCL | _O_BINARY | _O_TEMPORARY, _S_IREAD | _S_IWRITE);
    std::free(name);
    return fd < 0 ? nullptr : _fdopen(fd, "w+b");
}

bool name_file(int, const Folder &, const std::string &) {
    return false;
}

bool rename_file(const Folder &folder, const std::string &from, const std::string &to,
                 bool replaces) {
    const DWORD flags = MOVEFILE_WRITE_THROUGH | (replaces ? MOVEFILE_REPLACE_EXISTING : 0);
    if (MoveFileExA((folder.path + from).c_str(), (folder.path + to).c_str(), flags)) return true;
    set_errno();
    return false;
}

void remove_file(const Folder &folder, const std::string &name) {
    DeleteFileA((folder.path + name).c_str());
}

// Names are on the disk as `rename_file` returns.
bool sync_folder(const Folder &) {
    return true;
}

} // namespace velk
