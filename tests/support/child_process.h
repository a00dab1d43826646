// A program as a separate process, with its output; and a folder of files for it to read.
#ifndef MONCL_TESTS_CHILD_PROCESS_H
#define MONCL_TESTS_CHILD_PROCESS_H

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

/// Starts a program; kills it, if it still runs, when destroyed.
class child_process {
public:
    explicit child_process(std::vector<std::string> command) {
        // Our own programs may be built for another architecture than this machine's.
        if (const std::string emulator = TEST_EMULATOR;
            !emulator.empty() && (command[0] == MONCL_PROGRAM || command[0] == MONSRV_PROGRAM ||
                                  command[0] == MONCL_EXPORTER_PROGRAM))
            command.insert(command.begin(), emulator);
        std::vector<char*> arguments;
        for (std::string& word : command)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        pid_ = fork();
        if (pid_ != 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        sigset_t none; // a session of this process has blocked signals for good
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        dup2(out_file_, STDOUT_FILENO);
        dup2(err_file_, STDERR_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    ~child_process() {
        if (pid_ != 0 && kill(pid_, SIGKILL) == 0)
            waitpid(pid_, nullptr, 0);
        close(out_file_);
        close(err_file_);
    }
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;

    pid_t pid() const { return pid_; }
    void send_signal(int number) const { kill(pid_, number); }
    /// Waits until more of standard output (or error) than was seen before holds @p text; fails a
    /// test that waits for more than 20 s.
    void read_until(const std::string& text, bool error = false) {
        const std::string& stream = error ? err : out;
        read_while([&, start = stream.size()] { return stream.find(text, start) == stream.npos; });
    }
    /// Waits for its end, at most 20 s, and reads all output.
    /// @return the exit status, or the negated signal that ended it
    int wait() {
        int status = 0;
        read_while([&] { return waitpid(pid_, &status, WNOHANG) == 0; });
        if (kill(pid_, 0) != 0)
            pid_ = 0;
        read_more();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    std::string out; ///< standard output so far
    std::string err; ///< standard error so far

private:
    void read_while(const std::function<bool()>& more) {
        for (int turn = 0; more(); ++turn) {
            ASSERT_LT(turn, 4000) << "neither end nor text in: " << out << err;
            usleep(5000);
            read_more();
        }
    }
    void read_more() {
        char part[65536];
        for (auto [file, text] : {std::pair(out_file_, &out), {err_file_, &err}})
            while (const ssize_t n =
                       pread(file, part, sizeof part, static_cast<off_t>(text->size())))
                text->append(part, static_cast<std::size_t>(n));
    }

    int out_file_ = memfd_create("out", MFD_CLOEXEC);
    int err_file_ = memfd_create("err", MFD_CLOEXEC);
    pid_t pid_ = 0;
};

/// The options that let monsrv keep what the user of these tests may do.
inline std::vector<std::string> own_rights() {
    if (geteuid() == 0)
        return {"--user", "root", "--all-processes"};
    return {};
}

/// monsrv at a port, which stays its own when it is started again.
struct server_process : child_process {
    explicit server_process(int wanted = 0, const std::string& option = "--root=/",
                            const std::vector<std::string>& rights = own_rights())
        : child_process(command(free_again(wanted), option, rights)) {
        read_until("\n");
        port = std::stoi(out.substr(out.rfind(':') + 1));
    }
    // While a server is away, another process may have its port for a moment.
    static int free_again(int wanted) {
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        at.sin_port = htons(static_cast<std::uint16_t>(wanted));
        for (bool is_free = false; !is_free; usleep(is_free ? 0 : 50000)) {
            const int on = 1;
            const int taking = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            setsockopt(taking, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
            is_free = bind(taking, reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0;
            close(taking);
        }
        return wanted;
    }
    static std::vector<std::string> command(int wanted, const std::string& option,
                                            const std::vector<std::string>& rights) {
        std::vector<std::string> all{MONSRV_PROGRAM, option, "--port", std::to_string(wanted)};
        all.insert(all.end(), rights.begin(), rights.end());
        return all;
    }
    int port;
};

/// A folder of files that is removed at the end.
class file_tree {
public:
    file_tree() { mkdtemp(root_.data()); }
    ~file_tree() { std::filesystem::remove_all(root_); }
    file_tree(const file_tree&) = delete;
    file_tree& operator=(const file_tree&) = delete;

    /// Writes @p text to @p path below the folder, in place if the file is there.
    void write(const std::string& path, const std::string& text) const {
        const std::filesystem::path file = root_ + path;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
    }
    const std::string& root() const { return root_; }

private:
    std::string root_ = "/tmp/moncl_test_XXXXXX";
};

#endif
