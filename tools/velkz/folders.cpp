#include "folders.h"

#include "platform/files.h"

#include <algorithm>
#include <dirent.h>
#include <functional>

using namespace velk;

namespace {

bool is_folder(const std::string &path) {
    FileFacts facts;
    return look_at(path, false, facts) && facts.kind == Kind::kFolder;
}

bool add_names(const std::string &folder, std::vector<std::string> &paths) {
    DIR *const open = opendir(folder.c_str());
    if (open == nullptr) return false;
    const std::size_t before = paths.size();
    while (const dirent *const entry = readdir(open)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") paths.push_back(folder + '/' + name);
    }
    closedir(open);
    // The last one is taken first.
    std::sort(paths.begin() + static_cast<std::ptrdiff_t>(before), paths.end(), std::greater<>());
    return true;
}

} // namespace

Status expand_folders(Options &options) {
    Status status = kSuccess;
    std::vector<std::string> files;
    for (const std::string &name : options.names) {
        if (name == kStandardStream || !is_folder(name)) {
            files.push_back(name);
            continue;
        }
        for (std::vector<std::string> left = {name}; !left.empty();) {
            const std::string path = left.back();
            left.pop_back();
            FileFacts facts;
            if (!look_at(path, false, facts)) {
                status = error(path, errno_text());
            } else if (facts.kind == Kind::kFolder) {
                if (!add_names(path, left)) status = error(path, errno_text());
            } else if (facts.kind == Kind::kFile &&
                       has_suffix(path, options) == (options.mode != Mode::kCompress)) {
                files.push_back(path);
            }
        }
    }
    options.names = files;
    return status;
}
