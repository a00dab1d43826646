// Regular expressions for tests.
#include "patterns.h"

#include <regex>

bool has_match(const std::string& text, const std::string& pattern) {
    return std::regex_search(text, std::regex(pattern));
}

std::string with_replaced(const std::string& text, const std::string& pattern,
                          const std::string& replacement) {
    return std::regex_replace(text, std::regex(pattern), replacement);
}

std::vector<std::vector<std::string>> groups_of_matches(const std::string& text,
                                                        const std::string& pattern) {
    const std::regex wanted(pattern);
    std::vector<std::vector<std::string>> all;
    for (std::sregex_iterator it(text.begin(), text.end(), wanted), end; it != end; ++it) {
        all.emplace_back();
        for (std::size_t group = 1; group < it->size(); ++group)
            all.back().push_back((*it)[group]);
    }
    return all;
}
