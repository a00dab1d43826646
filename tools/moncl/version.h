// What the console program says of itself.
#ifndef MONCL_TOOLS_VERSION_H
#define MONCL_TOOLS_VERSION_H

#include <string>

namespace tools {

/// "moncl VERSION", which programs may read, then a line "name: value" for each fact of the build.
std::string version_text();

} // namespace tools

#endif
