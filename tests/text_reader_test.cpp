// The text reader gives what std::istringstream gives, on random lines.
#include "text_reader.h"

#include <gtest/gtest.h>
#include <random>
#include <sstream>

namespace {
// Pieces that are likely to matter: blanks of all kinds, signs, digits, edges of the types.
const std::string pieces =
    " |  |\t|\v|\f|\r|\n|-|+|--|0|00|7|42|a|x|0x1f|1e3|:|,|cpu0|65535|65536|32768|2147483647|"
    "2147483648|-1|-32769|12345678|123456789|1234567890123456|12345678901234567|1.5|\x80|"
    "4294967295|4294967296|-0|012|-2147483648|-2147483649|9223372036854775807|9223372036854775808|"
    "-9223372036854775808|-9223372036854775809|18446744073709551615|18446744073709551616|"
    "-18446744073709551615|-18446744073709551616|99999999999999999999999|-4294967296|"
    "00000000000000000000000000012|          0|   12345678|  123456789|       1 23|7 4       0|    "
    "   \t123|"
    "      -1234|      \xb1 123";

std::string random_line(std::mt19937& random) {
    std::string line;
    for (auto n = random() % 9; n > 0; --n) {
        const std::size_t start = pieces.rfind('|', random() % pieces.size()) + 1;
        line += pieces.substr(start, pieces.find('|', start) - start);
    }
    return line;
}

// Reads of both readers into what starts out alike.
template<class Int>
void number(text_reader& reader, std::istream& stream, unsigned start) {
    Int mine = static_cast<Int>(start);
    Int theirs = mine;
    reader.number(mine);
    stream >> theirs;
    ASSERT_EQ(mine, theirs);
}

void columns(text_reader& reader, std::istream& stream, unsigned start) {
    std::uint64_t mine[4];
    const std::size_t n = reader.columns(mine, start % 5);
    for (std::size_t i = 0; i < n; ++i) {
        std::uint64_t theirs = start;
        stream >> theirs;
        ASSERT_EQ(mine[i], theirs);
    }
}

template<bool line>
void text(text_reader& reader, std::istream& stream, unsigned start) {
    std::string_view mine = "before";
    std::string theirs = "before";
    const char end = start % 2 == 0 ? ':' : '\n';
    line ? reader.next_line(mine, end) : reader.word(mine);
    line ? std::getline(stream, theirs, end) : stream >> theirs;
    ASSERT_EQ(mine, theirs);
}

void character(text_reader& reader, std::istream& stream, unsigned) {
    char mine = '!', theirs = '!';
    reader.character(mine);
    stream >> theirs;
    ASSERT_EQ(mine, theirs);
}

void skip(text_reader& reader, std::istream& stream, unsigned start) {
    std::string skipped;
    if (start % 2 == 0) {
        reader.skip_blanks();
        stream >> std::ws;
    } else {
        reader.skip_words(2);
        stream >> skipped >> skipped;
    }
}

template<class... Int>
void one_of(text_reader& reader, std::istream& stream, unsigned start) {
    void (*const steps[])(text_reader&, std::istream&, unsigned) = {
        number<Int>..., columns, text<true>, text<false>, character, skip};
    steps[start % std::size(steps)](reader, stream, start / 16);
}
} // namespace

TEST(text_reader, agrees_with_a_stream_on_random_lines) {
    std::mt19937 random(20261121);
    for (int i = 0; i < 200000; ++i) {
        const std::string line = random_line(random);
        // As a text of its own, and as a line with others behind it, which may be looked at.
        const bool alone = line.find('\n') != line.npos || random() % 2 == 0;
        const std::string all = alone ? line : line + "\n1234567890 " + random_line(random);
        text_reader lines(all);
        std::string_view first;
        auto reader = alone || !lines.next_line(first) ? text_reader(all) : lines.fields_of(first);
        std::istringstream stream(line);
        for (int step = 0; step < 8; ++step) {
            one_of<std::uint64_t, std::int64_t, std::uint32_t, std::int32_t, std::uint16_t,
                   std::int16_t>(reader, stream, static_cast<unsigned>(random()));
            ASSERT_EQ(static_cast<bool>(reader), !stream.fail()) << line;
            ASSERT_FALSE(HasFatalFailure()) << "line " << i << ", step " << step << ": " << line;
        }
    }
    EXPECT_THROW(payload_text(nullptr), std::logic_error);
}
