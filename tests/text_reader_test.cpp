// The text reader gives what std::istringstream gives, on random lines.
#include "text_reader.h"

#include <gtest/gtest.h>
#include <random>

namespace {
// Pieces that are likely to matter: blanks of all kinds, signs, digits, edges of the types.
const std::string pieces =
    " |  |\t|\v|\f|\r|\n|-|+|--|0|00|7|42|a|x|0x1f|1e3|:|,|cpu0|65535|65536|32768|2147483647|"
    "2147483648|-1|-32769|12345678|123456789|1234567890123456|12345678901234567|1.5|\x80|"
    "4294967295|4294967296|-0|012|-2147483648|-2147483649|9223372036854775807|9223372036854775808|"
    "-9223372036854775808|-9223372036854775809|18446744073709551615|18446744073709551616|"
    "-18446744073709551615|-18446744073709551616|99999999999999999999999|-4294967296|"
    "00000000000000000000000000012|          0|   12345678|  123456789|       1 23|        012|7 4 "
    "      0|    "
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
} // namespace

// The fuzz target, which ends the process if reader and stream differ.
void fuzz_text_reader(const std::uint8_t* data, std::size_t size);

TEST(text_reader, agrees_with_a_stream_on_random_lines) {
    std::mt19937 random(20261121);
    for (int i = 0; i < 50000; ++i) {
        std::string input;
        for (int read = 0; read < 8; ++read)
            input += static_cast<char>(1 + random() % 255);
        input += '\0' + random_line(random);
        if (random() % 2 == 0) // which a reader of the line may look at
            input += "\n1234567890 " + random_line(random);
        fuzz_text_reader(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    }
    EXPECT_THROW(payload_text(nullptr), std::logic_error);
}
