// Catches what goes to the platform log and to standard output.
#ifndef MONCL_TESTS_LOG_CAPTURE_H
#define MONCL_TESTS_LOG_CAPTURE_H

#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>

/// The log since its construction, or the last call; one at a time.
class log_capture {
public:
    log_capture() { take(); }
    /// Lines such as "6 TAG: text\n"; a null tag is "-".
    std::string take() {
        std::lock_guard<std::mutex> guard(lock);
        return std::exchange(captured, {});
    }

    static inline std::mutex lock;
    static inline std::string captured;
};

/// Collects standard output while it lives.
class cout_capture {
public:
    cout_capture() : before_(std::cout.rdbuf(text_.rdbuf())) {}
    ~cout_capture() { std::cout.rdbuf(before_); }
    cout_capture(const cout_capture&) = delete;
    cout_capture& operator=(const cout_capture&) = delete;
    /// What was written since the last call.
    std::string take() {
        std::string text = text_.str();
        text_.str({});
        return text;
    }

private:
    std::ostringstream text_;
    std::streambuf* before_;
};

#endif
