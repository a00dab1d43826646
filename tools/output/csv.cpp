// CSV as RFC 4180 has it: a heading once, then a record for each row; an empty field for what is
// unknown.
#include "figure_text.h"
#include "output.h"

#include <utility>

namespace tools {
namespace {

constexpr const char* line_end = "\r\n";

// A field with a comma, a quote or a line end in it stands in quotes.
void append_quoted(std::string& to, std::string_view text) {
    if (text.find_first_of(",\"\r\n") == text.npos) {
        to += text;
        return;
    }
    to += '"';
    for (const char c : text) {
        if (c == '"')
            to += '"';
        to += c;
    }
    to += '"';
}

class csv : public output {
public:
    explicit csv(writer& to) : to_(to) {}

    void show(const shown_sample& each) override {
        if (!std::exchange(headed_, true)) {
            to_.add("time,host");
            for (const field& f : each.what.fields)
                to_.add("," + std::string(f.name));
            to_.add(line_end);
        }
        const std::string time = utc_text(each.figures.time);
        for (const row& r : each.figures.rows) {
            std::string line = time + ",";
            append_quoted(line, each.host);
            for (std::size_t i = 0; i < r.values.size(); ++i) {
                std::string figure;
                append_plain(figure, each.what.fields[i], r.values[i]);
                line += ',';
                append_quoted(line, figure);
            }
            to_.add(line + line_end);
        }
    }

private:
    writer& to_;
    bool headed_ = false;
};

std::unique_ptr<output> make(const output_options&, writer& to) {
    return std::make_unique<csv>(to);
}

const output_registration registered({"csv", "CSV with a heading; one subject only", make});

} // namespace
} // namespace tools
