// Captures what the library prints to standard output while it decodes: some reports, and
// complaints about what a decoder could not read. Only the outputs may write there.
#ifndef MONCL_TOOLS_LIBRARY_OUTPUT_H
#define MONCL_TOOLS_LIBRARY_OUTPUT_H

#include <streambuf>
#include <string>

namespace tools {

/// Takes std::cout over while it lives; one at a time. Each thread's text is kept apart.
class library_output : private std::streambuf {
public:
    library_output();
    ~library_output() override;
    library_output(const library_output&) = delete;
    library_output& operator=(const library_output&) = delete;

    /// What this thread has printed since the last call; empty if no library_output exists.
    static std::string take();
    /// The first line of @p printed that says that a decoder failed; empty if there is none.
    static std::string failure_in(const std::string& printed);

private:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize size) override;

    std::streambuf* before_;
};

} // namespace tools

#endif
