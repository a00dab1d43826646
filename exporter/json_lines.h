// Samples as the console's lines of JSON.
#ifndef MONCL_EXPORTER_JSON_LINES_H
#define MONCL_EXPORTER_JSON_LINES_H

#include "output.h"

#include <memory>
#include <optional>
#include <string>

namespace exporter {

/// Makes lines. Belongs to one thread at a time.
class json_lines {
public:
    json_lines();

    /// The line of one sample, without its end.
    std::string line_of(const tools::subject& what, const std::string& host,
                        const tools::sample& figures, std::optional<double> interval);

private:
    tools::writer text_{-1};
    std::unique_ptr<tools::output> form_;
};

} // namespace exporter

#endif
