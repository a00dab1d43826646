// The text scanner, read by read, compared with a stream. The input is the reads, a NUL and the
// text.
#include "fuzz_support.h"
#include "text_reader.h"

#include <iomanip>
#include <sstream>

namespace {
template<class Int>
void read_number(text_reader& reader, std::istream& stream) {
    Int mine = 7;
    Int theirs = 7;
    reader.number(mine);
    stream >> theirs;
    fuzz::expect(mine == theirs, "number");
}

void read_columns(text_reader& reader, std::istream& stream, std::size_t count) {
    std::uint64_t mine[16];
    const std::string_view columns = reader.columns(mine, count);
    std::ostringstream written;
    for (std::size_t i = 0; i < columns.size() / eight_digits::column_width; ++i) {
        std::uint64_t theirs = 7;
        stream >> theirs;
        fuzz::expect(mine[i] == theirs, "column");
        written << std::setw(eight_digits::column_width) << theirs;
    }
    fuzz::expect(written.str() == columns, "text of columns");
}

void read_text(text_reader& reader, std::istream& stream, int kind) {
    std::string_view mine = "before";
    std::string theirs = "before";
    constexpr char terminators[] = {'\n', ':', ','};
    if (kind < 3) {
        reader.next_line(mine, terminators[kind]);
        std::getline(stream, theirs, terminators[kind]);
    } else {
        reader.word(mine);
        stream >> theirs;
    }
    fuzz::expect(mine == theirs, "text");
}

void read_one(text_reader& reader, std::istream& stream, unsigned char what) {
    char mine = '!';
    char theirs = '!';
    switch (what % 12) {
    case 0:
        return read_number<std::uint64_t>(reader, stream);
    case 1:
        return read_number<std::int64_t>(reader, stream);
    case 2:
        return read_number<std::uint32_t>(reader, stream);
    case 3:
        return read_number<std::int32_t>(reader, stream);
    case 4:
        return read_number<std::uint16_t>(reader, stream);
    case 5:
        return read_number<std::int16_t>(reader, stream);
    case 6:
        reader.character(mine);
        stream >> theirs;
        return fuzz::expect(mine == theirs, "character");
    case 7:
        if (what >= 128)
            return read_columns(reader, stream, what % 16);
        reader.skip_blanks();
        stream >> std::ws;
        return;
    default:
        return read_text(reader, stream, what % 12 - 8);
    }
}
} // namespace

void fuzz_text_reader(const std::uint8_t* data, std::size_t size) {
    fuzz::input in(data, size);
    const std::string_view reads = in.text();
    // Nothing ends the text: a reader must stop at its size.
    const std::string_view given = in.bytes(size);
    const auto memory = std::make_unique<char[]>(given.size());
    std::copy(given.begin(), given.end(), memory.get());
    const std::string_view text(memory.get(), given.size());

    // Once as a whole text, and once as its first line. The reader of a line may look at those
    // after it.
    std::string_view line;
    text_reader lines(text);
    const bool any = lines.next_line(line);
    text_reader readers[] = {text_reader(text), any ? lines.fields_of(line) : text_reader({})};
    std::istringstream streams[] = {std::istringstream(std::string(text)),
                                    std::istringstream(std::string(line))};
    for (int i : {0, 1})
        for (const char what : reads) {
            read_one(readers[i], streams[i], static_cast<unsigned char>(what));
            fuzz::expect(static_cast<bool>(readers[i]) == !streams[i].fail(), "state");
        }
}

static const fuzz::target registered("text_reader", fuzz_text_reader);
