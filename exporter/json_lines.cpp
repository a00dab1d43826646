// Making lines by the console's own form.
#include "json_lines.h"

#include <stdexcept>
#include <string_view>
#include <utility>

namespace exporter {

json_lines::json_lines() {
    for (const tools::output_form& each : tools::all_outputs())
        if (std::string_view(each.name) == "json")
            form_ = each.make({}, text_);
    if (!form_)
        throw std::logic_error("there is no form json");
}

std::string json_lines::line_of(const tools::subject& what, const std::string& host,
                                const tools::sample& figures, std::optional<double> interval) {
    form_->show({what, host, figures, interval});
    text_.text.pop_back(); // the end of the line
    return std::exchange(text_.text, {});
}

} // namespace exporter
