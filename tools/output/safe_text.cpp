// Looking at UTF-8.
#include "safe_text.h"

#include <cwchar>

namespace tools {

namespace {
unsigned byte_at(std::string_view text, std::size_t i) {
    return static_cast<unsigned char>(text[i]);
}

// The character of a sequence of @p length bytes.
char32_t decode(std::string_view text, std::size_t length) {
    if (length == 1)
        return byte_at(text, 0);
    char32_t character = byte_at(text, 0) & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i)
        character = character << 6 | (byte_at(text, i) & 0x3FU);
    return character;
}

bool is_control(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

// Calls `each` with every sequence, or with a byte that is none and false.
template<class Each>
void for_each_sequence(std::string_view text, Each each) {
    while (!text.empty()) {
        const std::size_t length = sequence_length(text);
        const std::size_t taken = length == 0 ? 1 : length;
        each(text.substr(0, taken), length != 0);
        text.remove_prefix(taken);
    }
}
} // namespace

std::size_t sequence_length(std::string_view text) {
    if (text.empty())
        return 0;
    const unsigned first = byte_at(text, 0);
    const std::size_t length = first < 0x80   ? 1
                               : first < 0xC2 ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF5 ? 4
                                              : 0;
    if (length > text.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte_at(text, i) & 0xC0) != 0x80)
            return 0;
    // Overlong forms, surrogates and what lies beyond U+10FFFF are no characters.
    const char32_t character = length == 0 ? 0 : decode(text, length);
    if ((length == 3 && (character < 0x800 || (character >= 0xD800 && character < 0xE000))) ||
        (length == 4 && (character < 0x10000 || character > 0x10FFFF)))
        return 0;
    return length;
}

std::string safe_text(std::string_view text) {
    constexpr char digits[] = "0123456789abcdef";
    std::string safe;
    for_each_sequence(text, [&](std::string_view sequence, bool valid) {
        if (valid && !is_control(decode(sequence, sequence.size()))) {
            safe += sequence;
            return;
        }
        for (std::size_t i = 0; i < sequence.size(); ++i) {
            safe += "\\x";
            safe += digits[byte_at(sequence, i) >> 4];
            safe += digits[byte_at(sequence, i) & 15];
        }
    });
    return safe;
}

std::string valid_utf8(std::string_view text) {
    std::string valid;
    for_each_sequence(text, [&](std::string_view sequence, bool is_valid) {
        valid += is_valid ? sequence : std::string_view("\xEF\xBF\xBD");
    });
    return valid;
}

std::u32string to_characters(std::string_view text) {
    std::u32string characters;
    for_each_sequence(text, [&](std::string_view sequence, bool valid) {
        if (valid)
            characters += decode(sequence, sequence.size());
    });
    return characters;
}

std::size_t display_width(std::string_view text) {
    std::size_t width = 0;
    for_each_sequence(text, [&](std::string_view sequence, bool) {
        const int columns = sequence.size() == 1
                                ? 1
                                : wcwidth(static_cast<wchar_t>(decode(sequence, sequence.size())));
        width += columns < 0 ? 1 : static_cast<std::size_t>(columns);
    });
    return width;
}

} // namespace tools
