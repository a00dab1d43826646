// A number at the start of a text, as std::stol and std::stoul read it, and lines of "key: number".
#ifndef MONCL_TEXT_NUMBER_H
#define MONCL_TEXT_NUMBER_H

#include "text_reader.h"

#include <stdexcept>

/// The decimal number that @p text starts with. Blanks may come before it and anything after it.
/// @param function name of the standard function, which is the exception's text
/// @throws std::invalid_argument if there is no number, std::out_of_range if it is too large
template<class Int>
Int leading_number(std::string_view text, const char* function) {
    Int value = 0;
    if (text_reader(text).number(value))
        return value;
    if (value == 0)
        throw std::invalid_argument(function);
    throw std::out_of_range(function);
}

/// Calls @p take(key, value) for each line of @p text. The key is all before the first colon, the
/// value is the number after it.
/// @throws std::invalid_argument "stol" for a line without a number, std::out_of_range "stol" for
///         a number that is too large
template<class Take>
void for_each_figure(std::string_view text, Take take) {
    text_reader lines(text);
    for (std::string_view line; lines.next_line(line);) {
        const std::size_t colon = line.find(':');
        const std::string_view key = line.substr(0, colon);
        const std::string_view value =
            colon == line.npos ? std::string_view() : line.substr(colon + 1);
        take(key, leading_number<long>(value, "stol"));
    }
}

#endif
