#include "program.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string quoted(const std::string &text) {
    std::string result = "'";
    for (const char c : text)
        c == '\'' ? result += "'\\''" : result += c;
    return result + "'";
}

Finished run(const std::string &program, const std::vector<std::string> &arguments,
             const std::string &prefix, const std::string &suffix) {
    const ScratchFolder folder;
    const std::string out = folder.path("out"), err = folder.path("err");
    std::string command = prefix + " " VELK_EMULATOR " " + quoted(program);
    for (const std::string &argument : arguments)
        command += " " + quoted(argument);
    command = "{ " + command + " " + suffix + "; } >" + quoted(out) + " 2>" + quoted(err);
    const int result = std::system(command.c_str());
    const auto text = [](const std::string &path) {
        const Bytes bytes = read_file(path);
        return std::string(bytes.begin(), bytes.end());
    };
    const int status = WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
    return {status, text(out), text(err)};
}

} // namespace

Finished run_velk(const std::vector<std::string> &arguments, const std::string &prefix,
                  const std::string &suffix) {
    return run(VELK_PROGRAM, arguments, prefix, suffix);
}

Finished run_velkinfo(const std::vector<std::string> &arguments, const std::string &suffix) {
    return run(VELKINFO_PROGRAM, arguments, "", suffix);
}

ScratchFolder::ScratchFolder() {
    // mkdtemp wants six of them.
    const std::string name_form = "velk-test-" + std::string(6, 'X');
    std::string name = (std::filesystem::temp_directory_path() / name_form).string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    folder_ = name;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void write_file(const std::string &path, const Bytes &bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

Bytes read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}
