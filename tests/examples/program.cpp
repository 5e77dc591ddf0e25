// SPDX-License-Identifier: LicenseRef-qxkernel
#include "examples/program.hpp"

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

// In the child: becomes the program.
[[noreturn]] void become(const std::string& program, const std::vector<std::string>& arguments)
{
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& a : arguments)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
}

int statusOf(pid_t child)
{
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

Outcome run(const std::string& program, const std::vector<std::string>& arguments)
{
    const ScratchDirectory scratch;
    const std::string outPath = scratch.path("out");
    const std::string errPath = scratch.path("err");
    const pid_t child = fork();
    if (child == 0) {
        dup2(open(outPath.c_str(), O_CREAT | O_WRONLY, 0600), STDOUT_FILENO);
        dup2(open(errPath.c_str(), O_CREAT | O_WRONLY, 0600), STDERR_FILENO);
        become(program, arguments);
    }
    if (child < 0)
        throw std::runtime_error("fork failed");
    const int status = statusOf(child);
    return {status, ScratchDirectory::read(outPath), ScratchDirectory::read(errPath)};
}

bool hasTerminals()
{
    int ours = -1;
    int theirs = -1;
    if (openpty(&ours, &theirs, nullptr, nullptr, nullptr) != 0)
        return false;
    close(ours);
    close(theirs);
    return true;
}

Outcome runOnTerminal(const std::string& program, const std::vector<std::string>& arguments, const std::string& awaited,
                      const std::string& keys)
{
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0)
        become(program, arguments);
    if (child < 0)
        throw std::runtime_error("no terminal");
    std::string text;
    bool typed = keys.empty();
    char piece[4096];
    for (ssize_t n = 0; (n = read(terminal, piece, sizeof piece)) > 0;) { // fails when the program has ended
        text.append(piece, static_cast<std::size_t>(n));
        if (!typed && text.find(awaited) != std::string::npos)
            typed = write(terminal, keys.data(), keys.size()) > 0;
    }
    close(terminal);
    return {statusOf(child), text, ""};
}

ScratchDirectory::ScratchDirectory()
{
    std::string pattern = std::filesystem::temp_directory_path() / "qxkernel-XXXXXX";
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("no temporary directory");
    directory_ = pattern;
}

ScratchDirectory::~ScratchDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}

std::string ScratchDirectory::file(const std::string& name, const std::string& text) const
{
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
}

std::string ScratchDirectory::read(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
