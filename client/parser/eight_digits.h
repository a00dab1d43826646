// Decimal digits, eight characters at a time: what `text_reader` reads numbers with.
//
// Eight characters of text make one 64-bit word. The first character is the lowest byte, which is
// drawn on the left here:
//
//                                 byte 0  1  2  3  4  5  6  7
//     the text "4096  R " as a word   34 30 39 36 20 20 52 20
//     ^ all_bytes('0')                04 00 09 06 10 10 62 10    a digit becomes its value
//     marked_others()                 00 00 00 00 80 80 80 80    no digit: top bit set
//     its first marked byte is 4, so four digits lead:
//     << 8 * (8 - 4)                  00 00 00 00 04 00 09 06    leading zeros
//     number_of()                     4096
#ifndef MONCL_EIGHT_DIGITS_H
#define MONCL_EIGHT_DIGITS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace eight_digits {

/// The word whose eight bytes are all @p byte: 0x0101010101010101 times it.
constexpr std::uint64_t all_bytes(unsigned char byte) {
    return ~std::uint64_t{0} / 255 * byte;
}

/// The eight characters at @p text as a word.
inline std::uint64_t load(const char* text) {
    std::uint64_t word;
    std::memcpy(&word, text, sizeof word);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    word = __builtin_bswap64(word);
#endif
    return word;
}

/// The lowest byte of @p word that has a bit set, 0 to 7; @p word must not be 0.
inline unsigned first_byte(std::uint64_t word) {
    return static_cast<unsigned>(__builtin_ctzll(word)) / 8;
}

/// Sets the top bit of each byte of @p bytes that is above 9, and clears all else. A byte of 138 or
/// more may corrupt the bits of those after it; up to the first marked byte all bits are right.
///
/// Adding 0x76 = 128 - 10 takes 0..9 to 118..127, below the top bit, and 10..127 to 128 and more.
/// Above 127 the byte has its top bit already, so the `or` keeps it. From 138 = 256 - 0x76 on the
/// sum carries into the next byte.
inline std::uint64_t marked_others(std::uint64_t bytes) {
    return ((bytes + all_bytes(0x76)) | bytes) & all_bytes(0x80);
}

/// The number of eight decimal digits. Each byte of @p digits is one, 0 to 9, the lowest byte the
/// highest digit.
///
/// For "12345678" the bytes and then, after the first step, what they hold (`..` is not used):
///
///     digits                01 02 03 04 05 06 07 08
///     digits >> 8           02 03 04 05 06 07 08 00
///     digits * 10 + that    12 .. 34 .. 56 .. 78 ..    at most 99 a byte: nothing carries
///
/// Two masks leave a pair in each half of a word: 12 in the low half and 56 in the high one, and,
/// after a shift by 16 bits, 34 and 78. Such a word is L + (H << 32). Multiplied by a + (b << 32),
/// it has L * b + H * a in its upper half: L * a stays in the lower half, and H * b is shifted out.
/// The upper half of the sum of both products is so 12 * 1000000 + 56 * 100 + 34 * 10000 + 78.
inline std::uint32_t number_of(std::uint64_t digits) {
    constexpr std::uint64_t pair_of_each_half = 0x000000FF000000FF;
    constexpr std::uint64_t weights_12_56 = (std::uint64_t{1000000} << 32) + 100;
    constexpr std::uint64_t weights_34_78 = (std::uint64_t{10000} << 32) + 1;
    const std::uint64_t pairs = digits * 10 + (digits >> 8);
    return static_cast<std::uint32_t>(((pairs & pair_of_each_half) * weights_12_56 +
                                       ((pairs >> 16) & pair_of_each_half) * weights_34_78) >>
                                      32);
}

/// The number that @p text starts with, of up to eight digits.
/// @param text  eight characters that may be read
/// @param value receives it if there is any digit
/// @return how many digits it has: 0, or 8 if all characters are digits and more may follow
inline unsigned first_digits(const char* text, std::uint32_t& value) {
    const std::uint64_t bytes = load(text) ^ all_bytes('0');
    const std::uint64_t others = marked_others(bytes);
    const unsigned digits = others == 0 ? 8 : first_byte(others);
    if (digits > 0)
        value = number_of(bytes << (64 - 8 * digits));
    return digits;
}

/// Characters of a column of counts as the kernel prints its tables.
constexpr std::size_t column_width = 11;

/// Reads one column: a number of up to eight digits without a leading zero, right-aligned in eleven
/// characters. Printing the number in eleven characters would so give the same text.
///
///     the column       "        1234"  is read as two words that overlap: bytes 0..7 and 3..10
///
///                       byte 0  1  2  3  4  5  6  7
///     bytes 3..10           20 20 20 20 31 32 33 34    "    1234"
///     ^ all_bytes('0')      10 10 10 10 01 02 03 04
///     marked_others()       80 80 80 80 00 00 00 00
///     blanks                FF FF FF FF 00 00 00 00    all up to the last marked byte
///
/// A blank becomes 0x10, which is marked and carries nothing into the next byte, so the marks of a
/// column that is in this form are right. One that is not has another byte than a blank up to its
/// last mark, or a mark on its last byte.
/// @param text  the column
/// @param value receives the number
/// @return whether @p text is in this form; if not, @p value is as it was
inline bool column_number(const char* text, std::uint64_t& value) {
    const std::uint64_t before = (load(text) ^ all_bytes(' ')) << 40; // bytes 0 to 2
    const std::uint64_t last = load(text + column_width - 8);
    const std::uint64_t bytes = last ^ all_bytes('0');
    // Most interrupts never happen on most CPUs: seven blanks and a zero.
    if ((before | (bytes ^ (all_bytes(' ' ^ '0') >> 8))) == 0) {
        value = 0;
        return true;
    }
    const std::uint64_t others = marked_others(bytes);
    if (static_cast<std::int64_t>(others) < 0)
        return false;
    const std::uint64_t blanks = others == 0 ? 0 : ~std::uint64_t{0} >> __builtin_clzll(others);
    const std::uint64_t number = bytes & ~blanks;
    const std::uint64_t first_digit =
        (blanks << 8 | 0xFF) ^ blanks; // FF in the byte after the blanks
    if ((before | ((last ^ all_bytes(' ')) & blanks)) != 0 || (number & first_digit) == 0)
        return false;
    value = number_of(number);
    return true;
}

} // namespace eight_digits

#endif
