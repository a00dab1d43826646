// Asking about the video pipeline.
#include "video_command.h"

#include <iostream>
#include <sstream>

namespace tools {

namespace {
class redirected_output {
public:
    redirected_output() : before_(std::cout.rdbuf(text_.rdbuf())) {}
    ~redirected_output() { std::cout.rdbuf(before_); }
    redirected_output(const redirected_output&) = delete;
    redirected_output& operator=(const redirected_output&) = delete;
    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::streambuf* before_;
};
} // namespace

command_action video_command(CLI::App& app, video_report report) {
    return [when = add_schedule(app), report](session& asking) {
        vio_info_manager manager(asking.new_connection());
        return asking.repeat(
            *when, {[&](std::ostream* out) { return report(manager, *out, asking.err()); },
                    {manager.client}});
    };
}

int take_output(vio_info_manager& manager, int (vio_info_manager::*query)(), std::string& printed) {
    const redirected_output output;
    const int code = (manager.*query)();
    printed = output.text();
    return code;
}

int drop_reports(vio_info_manager& manager, int (vio_info_manager::*query)(), std::ostream& err) {
    std::string printed;
    const int code = take_output(manager, query, printed);
    std::istringstream lines(printed);
    for (std::string line; std::getline(lines, line);)
        if (line.find(" failed!") != line.npos)
            err << "moncl: cannot read all of an answer: " << line << std::endl;
    return code;
}

char shown_character(std::uint8_t character) {
    return character > ' ' && character <= '~' ? static_cast<char>(character) : '-';
}

} // namespace tools
