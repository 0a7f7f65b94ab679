#include "program.h"

#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string quoted(const std::string &text) {
    std::string result = "'";
    for (const char c : text)
        c == '\'' ? result += "'\\''" : result += c;
    return result + "'";
}

std::string make_folder() {
    // mkdtemp wants six of them.
    const std::string name_form = "velk-test-" + std::string(6, 'X');
    std::string name = (std::filesystem::temp_directory_path() / name_form).string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    return name;
}

Finished run(const std::string &program, const std::vector<std::string> &arguments,
             const std::string &prefix, const std::string &suffix) {
    std::string command = prefix + " " + emulator() + " " + quoted(program);
    for (const std::string &argument : arguments)
        command += " " + quoted(argument);
    return run_shell(command + " " + suffix);
}

} // namespace

std::string given_or(const char *variable, const char *otherwise) {
    const char *const given = std::getenv(variable);
    return given != nullptr ? given : otherwise;
}

std::string emulator() {
    return given_or("VELK_EMULATOR", VELK_EMULATOR);
}

Finished run_shell(const std::string &script) {
    const ScratchFolder streams;
    const std::string out = streams.path("out"), err = streams.path("err");
    const std::string command = "{ " + script + "\n} >" + quoted(out) + " 2>" + quoted(err);
    const int result = std::system(command.c_str());
    const int status = WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
    return {status, to_text(read_file(out)), to_text(read_file(err))};
}

Finished run_velk(const std::vector<std::string> &arguments, const std::string &prefix,
                  const std::string &suffix) {
    return run(given_or("VELK_PROGRAM", VELK_PROGRAM), arguments, prefix, suffix);
}

Finished run_velkinfo(const std::vector<std::string> &arguments, const std::string &suffix,
                      const std::string &prefix) {
    return run(given_or("VELKINFO_PROGRAM", VELKINFO_PROGRAM), arguments, prefix, suffix);
}

ScratchFolder::ScratchFolder() : folder(make_folder()) {}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}
