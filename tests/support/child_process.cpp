// Separate processes and folders of files.
#include "child_process.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
using clock_type = std::chrono::steady_clock;
constexpr std::chrono::seconds patience{20};
} // namespace

child_process::child_process(const std::vector<std::string>& command) {
    int out_pipe[2];
    int err_pipe[2];
    if (pipe(out_pipe) != 0 || pipe(err_pipe) != 0)
        throw std::runtime_error("pipe");
    std::vector<char*> arguments;
    // Our own programs may be built for another architecture than this machine's.
    std::string emulator = TEST_EMULATOR;
    if (!emulator.empty() && (command[0] == MONCL_PROGRAM || command[0] == MONSRV_PROGRAM))
        arguments.push_back(emulator.data());
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(out_pipe[1], STDOUT_FILENO);
        dup2(err_pipe[1], STDERR_FILENO);
        for (int fd : {out_pipe[0], out_pipe[1], err_pipe[0], err_pipe[1]})
            close(fd);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(out_pipe[1]);
    close(err_pipe[1]);
    out_fd_ = out_pipe[0];
    err_fd_ = err_pipe[0];
}

child_process::~child_process() {
    if (pid_ != -1) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(out_fd_);
    close(err_fd_);
}

// Returns false at the end of both streams, or when nothing came in time.
bool child_process::read_some(int timeout_ms) {
    pollfd items[] = {{out_fd_, POLLIN, 0}, {err_fd_, POLLIN, 0}};
    if (poll(items, 2, timeout_ms) <= 0)
        return false;
    bool any = false;
    for (pollfd& item : items) {
        if (item.revents == 0)
            continue;
        char part[65536];
        const ssize_t n = read(item.fd, part, sizeof part);
        int& fd = item.fd == out_fd_ ? out_fd_ : err_fd_;
        if (n > 0) {
            (item.fd == out_fd_ ? out : err).append(part, static_cast<std::size_t>(n));
            any = true;
        } else {
            close(fd);
            fd = -1;
        }
    }
    return any || out_fd_ != -1 || err_fd_ != -1;
}

std::string child_process::read_until(const std::string& text, bool error) {
    std::string& stream = error ? err : out;
    const std::size_t start = stream.size();
    const auto deadline = clock_type::now() + patience;
    while (stream.find(text, start) == stream.npos) {
        if (!read_some(1000) && clock_type::now() > deadline) {
            ADD_FAILURE() << "no '" << text << "' in: " << out << err;
            break;
        }
        if (out_fd_ == -1 && err_fd_ == -1) {
            ADD_FAILURE() << "ended without '" << text << "': " << out << err;
            break;
        }
    }
    return stream.substr(start);
}

void child_process::stop_reading() {
    close(out_fd_);
    out_fd_ = -1;
}

void child_process::send_signal(int number) const {
    kill(pid_, number);
}

int child_process::wait() {
    const auto deadline = clock_type::now() + patience;
    while ((out_fd_ != -1 || err_fd_ != -1) && clock_type::now() < deadline)
        read_some(200);
    if (clock_type::now() >= deadline) {
        ADD_FAILURE() << "still running: " << out << err;
        kill(pid_, SIGKILL);
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

file_tree::file_tree() {
    char name[] = "/tmp/moncl_test_XXXXXX";
    if (mkdtemp(name) == nullptr)
        throw std::runtime_error("mkdtemp");
    root_ = name;
}

file_tree::~file_tree() {
    std::filesystem::remove_all(root_);
}

void file_tree::write(const std::string& path, const std::string& text) const {
    const std::filesystem::path file = root_ + path;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
}
