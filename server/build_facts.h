// How this program was built, for --version.
#ifndef MONSRV_BUILD_FACTS_H
#define MONSRV_BUILD_FACTS_H

#include <string>

namespace monsrv {

/// "@p program VERSION", then a line "name: value" for each fact that all programs share: the
/// libraries with their versions, whether encryption is available, and the compiler. No line end
/// after the last.
std::string build_facts(const std::string& program);

} // namespace monsrv

#endif
