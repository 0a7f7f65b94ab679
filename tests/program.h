// Runs the real program as a process of its own.
#pragma once

#include "data.h"

#include <filesystem>

struct Finished {
    int status;      // exit status; 128 + the signal for a program that was killed
    std::string out; // standard output stream
    std::string err; // standard error stream
};

// The value of the variable, or else the default. The environment may name other programs,
// such as those of another system and what runs them; scripts/test-windows does.
std::string given_or(const char *variable, const char *otherwise);
std::string emulator();

Finished run_shell(const std::string &script);
// Runs VELK with these arguments, given to a shell behind `prefix`, with `suffix`
// (redirections) after them. Both streams are kept.
Finished run_velk(const std::vector<std::string> &arguments, const std::string &prefix = "",
                  const std::string &suffix = "");
Finished run_velkinfo(const std::vector<std::string> &arguments, const std::string &suffix = "",
                      const std::string &prefix = "");

// A folder for one test's files, removed with all that is in it at the end.
struct ScratchFolder {
    ScratchFolder();
    ~ScratchFolder();
    std::string path(const std::string &name) const { return (folder / name).string(); }

    const std::filesystem::path folder;
    const std::string input = path("input"), archive = path("archive"), output = path("output");
};
