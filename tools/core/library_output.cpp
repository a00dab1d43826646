// Keeping what the library prints.
#include "library_output.h"

#include <algorithm>
#include <iostream>
#include <utility>

namespace tools {

namespace {
// The largest report is the interrupt table's, of about the size of its answer.
constexpr std::size_t text_max = 1 << 20;
thread_local std::string printed;
} // namespace

library_output::library_output() : before_(std::cout.rdbuf(this)) {}

library_output::~library_output() {
    std::cout.rdbuf(before_);
}

std::string library_output::take() {
    return std::exchange(printed, {});
}

std::string library_output::failure_in(const std::string& text) {
    // "parse_meminfo failed:stol", "parse_sys_stat failed!..."
    const std::size_t found = text.find(" failed");
    if (found == text.npos)
        return {};
    const std::size_t start = text.rfind('\n', found) + 1; // npos + 1 is 0
    return text.substr(start, text.find('\n', found) - start);
}

library_output::int_type library_output::overflow(int_type character) {
    const char c = traits_type::to_char_type(character);
    return traits_type::eq_int_type(character, traits_type::eof()) || xsputn(&c, 1) == 1
               ? traits_type::not_eof(character)
               : traits_type::eof();
}

std::streamsize library_output::xsputn(const char* text, std::streamsize size) {
    const std::size_t room = text_max - std::min(text_max, printed.size());
    printed.append(text, std::min(room, static_cast<std::size_t>(size)));
    return size;
}

} // namespace tools
