// The text reader gives what std::istringstream gives, on random lines.
#include "text_reader.h"

#include <gtest/gtest.h>
#include <random>
#include <sstream>

namespace {
// A line of pieces that are likely to matter: blanks of all kinds, signs, digits, edges of the
// types.
std::string random_line(std::mt19937& random) {
    static const char* const pieces[] = {" ",
                                         "  ",
                                         "\t",
                                         "\v",
                                         "\f",
                                         "\r",
                                         "\n",
                                         "-",
                                         "+",
                                         "--",
                                         "0",
                                         "00",
                                         "7",
                                         "42",
                                         "a",
                                         "x",
                                         "0x1f",
                                         "1e3",
                                         ":",
                                         ",",
                                         "cpu0",
                                         "65535",
                                         "65536",
                                         "32768",
                                         "2147483647",
                                         "2147483648",
                                         "-1",
                                         "-32769",
                                         "12345678",
                                         "123456789",
                                         "1234567890123456",
                                         "12345678901234567",
                                         "1.5",
                                         "\x80",
                                         "",
                                         "4294967295",
                                         "4294967296",
                                         "-0",
                                         "012",
                                         "-2147483648",
                                         "-2147483649",
                                         "9223372036854775807",
                                         "9223372036854775808",
                                         "-9223372036854775808",
                                         "-9223372036854775809",
                                         "18446744073709551615",
                                         "18446744073709551616",
                                         "-18446744073709551615",
                                         "-18446744073709551616",
                                         "99999999999999999999999",
                                         "00000000000000000000000000012",
                                         "-4294967296"};
    std::string line;
    for (auto n = random() % 9; n > 0; --n)
        line += pieces[random() % std::size(pieces)];
    return line;
}

// One read with both readers; what they were to read into starts out alike.
template<class Int>
void compare_number(text_reader& reader, std::istream& stream, unsigned start) {
    Int mine = static_cast<Int>(start);
    Int theirs = mine;
    reader.number(mine);
    stream >> theirs;
    ASSERT_EQ(mine, theirs);
}

void compare_step(text_reader& reader, std::istream& stream, std::mt19937& random) {
    std::string_view view = "before";
    std::string text = "before";
    char mine = '!';
    char theirs = '!';
    const auto start = static_cast<unsigned>(random());
    const char terminators[] = {'\n', ':', ','};
    const char terminator = terminators[random() % 3];
    switch (random() % 12) {
    case 0:
        return compare_number<std::uint64_t>(reader, stream, start);
    case 1:
        return compare_number<std::int64_t>(reader, stream, start);
    case 2:
        return compare_number<std::uint32_t>(reader, stream, start);
    case 3:
        return compare_number<std::int32_t>(reader, stream, start);
    case 4:
        return compare_number<std::uint16_t>(reader, stream, start);
    case 5:
        return compare_number<std::int16_t>(reader, stream, start);
    case 6:
        reader.character(mine);
        stream >> theirs;
        ASSERT_EQ(mine, theirs);
        return;
    case 7:
    case 8:
        reader.word(view);
        stream >> text;
        ASSERT_EQ(view, text);
        return;
    case 9:
        reader.skip_words(2);
        stream >> text >> text;
        return;
    case 10:
        reader.skip_blanks();
        stream >> std::ws;
        return;
    default:
        reader.next_line(view, terminator);
        std::getline(stream, text, terminator);
        ASSERT_EQ(view, text);
    }
}
} // namespace

TEST(text_reader, agrees_with_a_stream_on_random_lines) {
    std::mt19937 random(20261121);
    for (int i = 0; i < 200000; ++i) {
        const std::string line = random_line(random);
        // As a text of its own, and as a line with others behind it, which may be looked at.
        const bool alone = line.find('\n') != line.npos || random() % 2 == 0;
        const std::string text = alone ? line : line + "\n1234567890 " + random_line(random);
        text_reader lines(text);
        std::string_view first;
        text_reader reader =
            alone || !lines.next_line(first) ? text_reader(text) : lines.fields_of(first);
        std::istringstream stream(line);
        for (int step = 0; step < 8; ++step) {
            compare_step(reader, stream, random);
            ASSERT_EQ(static_cast<bool>(reader), !stream.fail());
            if (testing::Test::HasFatalFailure()) {
                ADD_FAILURE() << "line " << i << ", step " << step << ": '" << line << "'";
                return;
            }
        }
    }
}

TEST(text_reader, splits_text_into_lines_as_getline_does) {
    std::mt19937 random(7);
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (auto n = random() % 6; n > 0; --n)
            text += random_line(random) + (random() % 4 != 0 ? "\n" : "");
        std::istringstream stream(text);
        text_reader lines(text);
        std::string_view line;
        for (std::string expected; std::getline(stream, expected);) {
            ASSERT_TRUE(lines.next_line(line)) << text;
            ASSERT_EQ(line, expected) << text;
        }
        ASSERT_FALSE(lines.next_line(line)) << text;
    }
}

TEST(text_reader, takes_a_null_payload_as_a_logic_error) {
    EXPECT_THROW(payload_text(nullptr), std::logic_error);
}
