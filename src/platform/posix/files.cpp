// The answers of systems with POSIX: Linux, the BSDs, macOS.
#include "platform/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace velk {
namespace {

constexpr std::size_t kMostAtOnce = std::size_t{1} << 30; // what all systems take

Kind kind_of(mode_t mode) {
    if (S_ISREG(mode)) return Kind::kFile;
    if (S_ISDIR(mode)) return Kind::kFolder;
    if (S_ISLNK(mode)) return Kind::kLink;
    if (S_ISFIFO(mode)) return Kind::kPipe;
    if (S_ISCHR(mode)) return Kind::kDevice;
    return S_ISBLK(mode) ? Kind::kBlockDevice : Kind::kOther;
}

FileTime time_of(const timespec &time) {
    return {time.tv_sec, time.tv_nsec};
}

timespec timespec_of(const FileTime &time) {
    return {static_cast<time_t>(time.high), static_cast<long>(time.low)};
}

FileFacts facts_of(const struct stat &file) {
    FileFacts facts{};
    facts.kind = kind_of(file.st_mode);
    facts.volume = static_cast<std::uint64_t>(file.st_dev);
    facts.number = file.st_ino;
    facts.size = static_cast<std::uint64_t>(file.st_size);
#ifdef __APPLE__
    facts.read = time_of(file.st_atimespec);
    facts.written = time_of(file.st_mtimespec);
    facts.changed = time_of(file.st_ctimespec);
#else
    facts.read = time_of(file.st_atim);
    facts.written = time_of(file.st_mtim);
    facts.changed = time_of(file.st_ctim);
#endif
    facts.mode = file.st_mode & 07777;
    facts.owner = file.st_uid;
    facts.group = file.st_gid;
    return facts;
}

// False when `errno` tells of anything but a stream that is not ready, as those that others
// left non-blocking may be, or a signal.
bool wait_for(int fd, short events) {
    if (errno == EINTR) return true;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
    pollfd ready{fd, events, 0};
    return poll(&ready, 1, -1) > 0 || errno == EINTR;
}

mode_t usual_mode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

} // namespace

const char *const kFolderEnds = "/";

bool look_at(const std::string &path, bool through_links, FileFacts &facts) {
    struct stat found;
    if ((through_links ? stat(path.c_str(), &found) : lstat(path.c_str(), &found)) != 0)
        return false;
    facts = facts_of(found);
    return true;
}

bool look_at(int fd, FileFacts &facts) {
    struct stat found;
    if (fstat(fd, &found) != 0) return false;
    facts = facts_of(found);
    return true;
}

bool same_file(const FileFacts &a, const FileFacts &b) {
    return a.volume == b.volume && a.number == b.number;
}

int open_to_read(const std::string &path, bool through_links) {
    const int careful = through_links ? 0 : O_NOFOLLOW | O_NONBLOCK;
    return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | careful);
}

int open_to_write(const std::string &path) {
    return open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
}

std::int64_t read_some(int fd, void *buffer, std::size_t size) {
    ssize_t got;
    do
        got = read(fd, buffer, std::min(size, kMostAtOnce));
    while (got < 0 && wait_for(fd, POLLIN));
    return got;
}

std::int64_t read_some_at(int fd, std::uint64_t offset, void *buffer, std::size_t size) {
    ssize_t got;
    do
        got = pread(fd, buffer, std::min(size, kMostAtOnce), static_cast<off_t>(offset));
    while (got < 0 && errno == EINTR);
    return got;
}

std::int64_t write_some(int fd, const void *buffer, std::size_t size) {
    ssize_t put;
    do
        put = write(fd, buffer, std::min(size, kMostAtOnce));
    while (put < 0 && wait_for(fd, POLLOUT));
    return put;
}

bool leave_hole(int fd, std::uint64_t size) {
    const off_t end = lseek(fd, static_cast<off_t>(size), SEEK_CUR);
    return end >= 0 && ftruncate(fd, end) == 0;
}

std::int64_t position_of(int fd) {
    return lseek(fd, 0, SEEK_CUR);
}

// Nobody may read the output who may not read the input: where the group is another one,
// it and all others get what both had. The set-id bits are not for other bytes.
void copy_attributes(int fd, const FileFacts &from) {
    if (from.kind == Kind::kPipe || from.kind == Kind::kOther) {
        fchmod(fd, usual_mode());
        return;
    }
    mode_t mode = from.mode & 0777;
    if (from.kind != Kind::kFile) {
        fchmod(fd, mode & usual_mode());
        return;
    }
    [[maybe_unused]] const int owner_kept = fchown(fd, from.owner, static_cast<gid_t>(-1));
    if (fchown(fd, static_cast<uid_t>(-1), from.group) != 0) {
        const mode_t common = (mode >> 3) & mode & 7;
        mode = (mode & 0700) | common << 3 | common;
    }
    fchmod(fd, mode);
    const timespec times[2] = {timespec_of(from.read), timespec_of(from.written)};
    futimens(fd, times);
}

// Some file systems have no fsync, and write at once.
bool sync_file(int fd) {
    return fsync(fd) == 0 || errno == EINVAL || errno == ENOTSUP || errno == ENOSYS;
}

bool open_folder(const std::string &path, Folder &folder) {
    folder.path = path;
    folder.fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
#ifdef O_PATH // one that may be written to, but not read
    if (folder.fd < 0) folder.fd = open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
#endif
    return folder.fd >= 0;
}

void close_folder(Folder &folder) {
    if (folder.fd >= 0) close(folder.fd);
    folder.fd = -1;
}

int create_file(const Folder &folder, const std::string &name) {
    return openat(folder.fd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
}

// What /proc shows of a descriptor is the only way to a name that every user has.
static std::string path_of(int fd) {
    return "/proc/self/fd/" + std::to_string(fd);
}

int create_nameless([[maybe_unused]] const Folder &folder) {
#ifdef O_TMPFILE
    if (access(path_of(folder.fd).c_str(), F_OK) == 0)
        return openat(folder.fd, ".", O_WRONLY | O_TMPFILE | O_CLOEXEC, 0600);
#endif
    return -1;
}

std::FILE *open_temporary() {
    const char *const folder = std::getenv("TMPDIR");
    std::string name = folder == nullptr || *folder == 0 ? "/tmp" : folder;
    name += "/velk-" + std::string(6, 'X');
    const int fd = mkstemp(name.data());
    if (fd < 0) return nullptr;
    unlink(name.c_str());
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    return fdopen(fd, "w+b");
}

bool name_file(int fd, const Folder &folder, const std::string &name) {
    return linkat(AT_FDCWD, path_of(fd).c_str(), folder.fd, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

// linkat(2), other than renameat(2), fails where a file has come to be meanwhile; but not all
// file systems have it.
bool rename_file(const Folder &folder, const std::string &from, const std::string &to,
                 bool replaces) {
    struct stat there;
    if (!replaces) {
        if (linkat(folder.fd, from.c_str(), folder.fd, to.c_str(), 0) == 0)
            return unlinkat(folder.fd, from.c_str(), 0) == 0;
        if (errno == EEXIST || fstatat(folder.fd, to.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0) {
            errno = EEXIST;
            return false;
        }
    }
    return renameat(folder.fd, from.c_str(), folder.fd, to.c_str()) == 0;
}

void remove_file(const Folder &folder, const std::string &name) {
    unlinkat(folder.fd, name.c_str(), 0);
}

bool sync_folder(const Folder &folder) {
    return sync_file(folder.fd);
}

} // namespace velk
