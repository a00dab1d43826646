// Catches what goes to the platform log and to standard output.
#ifndef MONCL_TESTS_LOG_CAPTURE_H
#define MONCL_TESTS_LOG_CAPTURE_H

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

/// Collects the log from its construction on; one at a time.
class log_capture {
public:
    log_capture();
    /// Lines so far as "6 TAG: text", without line ends; a null tag is "-".
    std::vector<std::string> lines() const;
    /// Whether any line is @p line.
    bool has(const std::string& line) const;
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
