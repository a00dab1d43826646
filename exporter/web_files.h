// The page's files, which the build puts into the program.
#ifndef MONCL_EXPORTER_WEB_FILES_H
#define MONCL_EXPORTER_WEB_FILES_H

#include <string_view>
#include <vector>

namespace exporter {

/// One file. All of it lives as long as the program.
struct web_file {
    std::string_view name; ///< without its folder
    std::string_view type; ///< Content-Type
    std::string_view tag;  ///< ETag, from its contents
    std::string_view plain;
    std::string_view packed; ///< by gzip
};

/// All files; none if the program was built without the page.
std::vector<web_file> web_files();

} // namespace exporter

#endif
