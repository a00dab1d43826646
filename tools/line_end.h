// The line end that many of the library's reports leave to their caller.
#ifndef MONCL_TOOLS_LINE_END_H
#define MONCL_TOOLS_LINE_END_H

#include <ostream>

namespace tools {

/// Ends the report of a query on @p out, unless the query failed or @p out is null.
/// @return @p code, the query's own
inline int end_line(int code, std::ostream* out) {
    if (code >= 0 && out != nullptr)
        *out << "\n";
    return code;
}

} // namespace tools

#endif
