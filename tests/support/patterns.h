// Regular expressions for tests. One file compiles them: that takes longer than compiling a whole
// test.
#ifndef MONCL_TESTS_PATTERNS_H
#define MONCL_TESTS_PATTERNS_H

#include <string>
#include <vector>

/// Whether @p text has a part that @p pattern matches.
bool has_match(const std::string& text, const std::string& pattern);

/// @p text with each match of @p pattern replaced.
std::string with_replaced(const std::string& text, const std::string& pattern,
                          const std::string& replacement);

/// The groups of each match of @p pattern in @p text, without the match itself; a group that took
/// no part is empty.
std::vector<std::vector<std::string>> groups_of_matches(const std::string& text,
                                                        const std::string& pattern);

#endif
