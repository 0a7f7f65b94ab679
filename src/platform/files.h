// What the system is asked about files, beyond what every C library has.
// Where nothing else is said, what fails returns -1 or false and leaves the reason in `errno`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace velk {

enum class Kind { kFile, kFolder, kLink, kPipe, kDevice, kBlockDevice, kOther };

// In the system's own units.
struct FileTime {
    std::int64_t high, low;
    bool operator==(const FileTime &) const = default;
};

// What the system knows of a file.
struct FileFacts {
    Kind kind;
    std::uint64_t volume, number; // no two files have both in common
    std::uint64_t size;           // bytes of a file
    FileTime read, written;       // when it was last
    FileTime changed;             // or what the system knows of it; zero where it doesn't
    unsigned mode, owner, group;  // of POSIX
};

// through_links: tells of what a link leads to.
[[nodiscard]] bool look_at(const std::string &path, bool through_links, FileFacts &facts);
[[nodiscard]] bool look_at(int fd, FileFacts &facts);
[[nodiscard]] bool same_file(const FileFacts &a, const FileFacts &b);

// through_links: also opens links, and waits for devices that are not ready.
[[nodiscard]] int open_to_read(const std::string &path, bool through_links);
[[nodiscard]] int open_to_write(const std::string &path);

// As read(2), pread(2) and write(2), but signals, and streams that are to be waited for, are
// no errors. To read at a place may change where the file stands.
[[nodiscard]] std::int64_t read_some(int fd, void *buffer, std::size_t size);
[[nodiscard]] std::int64_t read_some_at(int fd, std::uint64_t offset, void *buffer,
                                        std::size_t size);
[[nodiscard]] std::int64_t write_some(int fd, const void *buffer, std::size_t size);
// Moves on beyond the end of the file by so many bytes, which are zeros then and take no room where
// the file system can do that.
[[nodiscard]] bool leave_hole(int fd, std::uint64_t size);
// Where the file stands, in bytes.
[[nodiscard]] std::int64_t position_of(int fd);

// Gives the file as much of the other's mode, owner and times as the system has and allows.
void copy_attributes(int fd, const FileFacts &from);
// What was written is on the disk after it.
[[nodiscard]] bool sync_file(int fd);

// A folder that files are made in, under whatever name it goes by then: on POSIX by its
// descriptor, on Windows, which renames no folder with open files in it, by its path.
struct Folder {
    int fd = -1;
    std::string path; // with the character that ends it
};
[[nodiscard]] bool open_folder(const std::string &path, Folder &folder);
void close_folder(Folder &folder);
// A new file, to be written. Only who may read whatever is made in the folder, or else only the
// user, may read it. Without a name it is gone when it is closed; not every system has that.
[[nodiscard]] int create_file(const Folder &folder, const std::string &name);
[[nodiscard]] int create_nameless(const Folder &folder);
// Another one, to be written and read, in the folder for what is temporary: TMPDIR tells it, on
// Windows TMP. nullptr when it can't be.
[[nodiscard]] std::FILE *open_temporary();
// Gives a nameless file its name; fails with EEXIST where there is one.
[[nodiscard]] bool name_file(int fd, const Folder &folder, const std::string &name);
// replaces: another file; or else fails with EEXIST where there is one.
[[nodiscard]] bool rename_file(const Folder &folder, const std::string &from, const std::string &to,
                               bool replaces);
// May be called by a signal handler.
void remove_file(const Folder &folder, const std::string &name);
// The names in it are on the disk after it.
[[nodiscard]] bool sync_folder(const Folder &folder);

// The characters that end the name of a folder in a path.
extern const char *const kFolderEnds;

} // namespace velk
