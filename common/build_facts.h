// How this program was built, for --version.
#ifndef MONCL_BUILD_FACTS_H
#define MONCL_BUILD_FACTS_H

#include <string>

namespace build_facts {

/// "@p program VERSION", then a line "name: value" for each fact that all programs share: the
/// libraries with their versions, whether encryption is available, and the compiler. No line end
/// after the last.
std::string text_of(const std::string& program);

} // namespace build_facts

#endif
