// Text that came from elsewhere, made fit to be shown.
#ifndef MONCL_TOOLS_SAFE_TEXT_H
#define MONCL_TOOLS_SAFE_TEXT_H

#include <string>
#include <string_view>

namespace tools {

/// @p text with every control character, and every byte that is no UTF-8, written as \xNN: no name
/// of a process or a device may steer a terminal.
std::string safe_text(std::string_view text);

/// @p text with every byte that is no UTF-8 replaced by U+FFFD, for forms that must be UTF-8.
std::string valid_utf8(std::string_view text);

/// Columns that @p text, which must be UTF-8, takes up on a terminal; wide characters take two. The
/// C library decides, so LC_CTYPE must be a UTF-8 locale; otherwise each character counts as one.
std::size_t display_width(std::string_view text);

/// The characters of @p text; what is no UTF-8 is left out.
std::u32string to_characters(std::string_view text);

/// Length in bytes of the UTF-8 sequence that @p text starts with; 0 if it starts with none.
std::size_t sequence_length(std::string_view text);

} // namespace tools

#endif
