#include "support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sstream>

extern char** environ;

namespace test {

namespace {

struct Pipe {
    int ends[2] = {-1, -1};

    Pipe() {
        if (pipe2(ends, O_CLOEXEC) != 0) ends[0] = ends[1] = -1;
    }
    ~Pipe() {
        Close(0);
        Close(1);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    void Close(int end) {
        if (ends[end] >= 0) close(ends[end]);
        ends[end] = -1;
    }
};

int ExitCode(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<char*> Arguments(const std::vector<std::string>& argv) {
    std::vector<char*> arguments;
    for (const std::string& word : argv)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    return arguments;
}

// Takes what there is; false at the end.
bool Drain(int fd, std::string& text) {
    std::array<char, 65536> block;
    const ssize_t got = read(fd, block.data(), block.size());
    if (got > 0) text.append(block.data(), static_cast<size_t>(got));
    return got > 0;
}

}  // namespace

RunResult Run(const std::vector<std::string>& argv, int limit_seconds) {
    RunResult result;
    Pipe out;
    Pipe err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.ends[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err.ends[1], 2);
    std::vector<char*> arguments = Arguments(argv);
    pid_t pid = -1;
    const int spawned = posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        result.exit_code = 127;
        return result;
    }
    out.Close(1);
    err.Close(1);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(limit_seconds);
    bool killed = false;
    while (out.ends[0] >= 0 || err.ends[0] >= 0) {
        pollfd watched[2] = {{out.ends[0], POLLIN, 0}, {err.ends[0], POLLIN, 0}};
        poll(watched, 2, 200);
        if ((watched[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0 && !Drain(out.ends[0], result.out)) out.Close(0);
        if ((watched[1].revents & (POLLIN | POLLHUP | POLLERR)) != 0 && !Drain(err.ends[0], result.err)) err.Close(0);
        if (!killed && std::chrono::steady_clock::now() > end) {
            kill(pid, SIGKILL);
            killed = true;
        }
    }
    int status = 0;
    rusage used{};
    wait4(pid, &status, 0, &used);
    result.exit_code = ExitCode(status);
    result.peak_kib = used.ru_maxrss;
    return result;
}

Background::Background(const std::vector<std::string>& argv) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::vector<char*> arguments = Arguments(argv);
    if (posix_spawnp(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
}

Background::~Background() {
    if (pid_ < 0) return;
    kill(pid_, SIGKILL);
    Wait();
}

void Background::Signal(int number) const {
    if (pid_ > 0) kill(pid_, number);
}

int Background::Wait() {
    if (pid_ < 0) return 127;
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return ExitCode(status);
}

bool HaveProgram(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (access((std::filesystem::path(folder) / name).c_str(), X_OK) == 0) return true;
    }
    return false;
}

}  // namespace test
