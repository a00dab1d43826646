// A program as a separate process, with its output.
#ifndef MONCL_TESTS_CHILD_PROCESS_H
#define MONCL_TESTS_CHILD_PROCESS_H

#include <string>
#include <sys/types.h>
#include <vector>

/// Starts a program; kills it, if it still runs, when destroyed.
class child_process {
public:
    explicit child_process(const std::vector<std::string>& command);
    ~child_process();
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;

    pid_t pid() const { return pid_; }
    /// Reads standard output (or error) up to and with @p text; fails a test that waits for more
    /// than 20 s.
    /// @return all that was read by this call
    std::string read_until(const std::string& text, bool error = false);
    /// Closes the reading end of its standard output.
    void stop_reading();
    void send_signal(int number) const;
    /// Waits for its end, at most 20 s, reading all output.
    /// @return the exit status, or the negated signal that ended it
    int wait();

    std::string out; ///< standard output so far
    std::string err; ///< standard error so far

private:
    bool read_some(int timeout_ms);

    pid_t pid_ = -1;
    int out_fd_ = -1;
    int err_fd_ = -1;
};

/// A folder of files that is removed at the end.
class file_tree {
public:
    file_tree();
    ~file_tree();
    file_tree(const file_tree&) = delete;
    file_tree& operator=(const file_tree&) = delete;

    /// Writes @p text to @p path below the folder, in place if the file is there.
    void write(const std::string& path, const std::string& text) const;
    const std::string& root() const { return root_; }

private:
    std::string root_;
};

#endif
