// Writing to a descriptor, with every error noticed.
#ifndef MONCL_TOOLS_WRITER_H
#define MONCL_TOOLS_WRITER_H

#include <string>
#include <string_view>

namespace tools {

/// Collects text and writes it out in as few pieces as it can, so that lines stay whole.
class writer {
public:
    /// @param fd where to write; it stays the caller's. -1 keeps all text in `text`
    explicit writer(int fd) : fd_(fd) {}

    void add(std::string_view more) { text += more; }
    /// Writes out what was added; gives up, and drops it, at the first error.
    void flush();

    /// Whether the reader has gone or an error was met. Nothing more is written then.
    bool is_closed() const { return error_ != 0; }
    /// The error by which text was lost, as errno; 0 if none was. A reader that goes away is no
    /// error.
    int error() const;

    std::string text; ///< what was not written out yet

private:
    int fd_;
    int error_ = 0;
};

} // namespace tools

#endif
