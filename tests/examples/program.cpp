#include "examples/program.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

Outcome run(const std::string& program, const std::vector<std::string>& arguments, double interruptAfter)
{
    const ScratchDirectory scratch;
    const std::string outPath = scratch.path("out");
    const std::string errPath = scratch.path("err");
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& a : arguments)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);

    const pid_t child = fork();
    if (child == 0) {
        dup2(open(outPath.c_str(), O_CREAT | O_WRONLY, 0600), STDOUT_FILENO);
        dup2(open(errPath.c_str(), O_CREAT | O_WRONLY, 0600), STDERR_FILENO);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    if (child < 0)
        throw std::runtime_error("fork failed");
    if (interruptAfter > 0.0) {
        usleep(static_cast<useconds_t>(1e6 * interruptAfter));
        kill(child, SIGINT);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ScratchDirectory::read(outPath), ScratchDirectory::read(errPath)};
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
