// The interrupt table: decoding it and printing it again.
#include "interrupt.h"

#include "common_func.h"
#include "text_number.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <iostream>
#include <utility>

namespace {
// The largest table: 50 packets.
constexpr std::size_t table_max = static_cast<std::size_t>(answer_parts_max) * answer_payload_max;

bool is_numbered(std::string_view line) {
    return line.size() > 2 && line[2] >= '0' && line[2] <= '9';
}

// Not inlined, like `read_rest`: a row has few words besides its counts.
__attribute__((noinline)) std::string read_word(text_reader& fields) {
    std::string_view word;
    fields.word(word);
    return std::string(word);
}

__attribute__((noinline)) std::string read_rest(text_reader& fields) {
    std::string_view rest;
    fields.next_line(rest);
    return std::string(rest);
}

// Reads counts. Once one is missing, its read and all that follow fail: those counts stay 0.
// Returns the source text of the counts if printing them would reproduce it, else an empty one.
std::string_view read_counts(text_reader& fields, std::vector<std::uint64_t>& counts) {
    const std::string_view columns = fields.columns(counts.data(), counts.size());
    std::size_t i = columns.size() / eight_digits::column_width;
    const bool all = i == counts.size();
    while (i < counts.size() && fields.number(counts[i++]))
        i += fields.columns(counts.data() + i, counts.size() - i).size() /
             eight_digits::column_width;
    return all ? columns : std::string_view();
}

// Both return what `read_counts` does.
std::string_view read_inter_processor(text_reader fields, interrupt& record) {
    record.IPI_int_num = read_word(fields);
    const std::string_view counts = read_counts(fields, record.int_cnt);
    record.IPI_int_describe = read_rest(fields);
    return counts;
}

std::string_view read_numbered(text_reader fields, interrupt& record) {
    std::string_view number;
    fields.word(number);
    number.remove_suffix(1); // the colon
    record.logic_int_num = leading_number<unsigned long>(number, "stoul");
    const std::string_view counts = read_counts(fields, record.int_cnt);
    record.int_dev = read_word(fields);
    fields.number(record.hardware_int_num);
    record.trigger_mode = read_word(fields);
    record.int_name = read_rest(fields);
    return counts;
}

__attribute__((noinline)) std::shared_ptr<interrupt> read_error(text_reader fields) {
    auto record = std::make_shared<interrupt>();
    fields.skip_words(1);
    fields.number(record->err_cnt);
    return record;
}

// Writes fields as an output stream does, blank-filled and decimal, but without a stream's cost for
// each of them: a large table has tens of thousands. Call `finish` at the end: a destructor could
// not pass on what a failing stream throws.
class column_writer {
public:
    // cppcheck-suppress uninitMemberVar ; the buffer is filled before it is read
    column_writer(std::ostream& out, bool left) : out_(out), left_(left) {}
    column_writer(const column_writer&) = delete;
    column_writer& operator=(const column_writer&) = delete;

    // Not inlined: a row has few fields besides its counts.
    __attribute__((noinline)) void add(std::string_view text, std::size_t width = 0) {
        const std::size_t blanks = width > text.size() ? width - text.size() : 0;
        if (!left_)
            put(field_blanks.substr(0, blanks));
        put(text);
        if (left_)
            put(field_blanks.substr(0, blanks));
    }
    __attribute__((noinline)) void add(std::uint64_t number, std::size_t width) {
        char field[32];
        std::memset(field, ' ', sizeof field);
        char* const end = field + sizeof field;
        char* start = end;
        do
            *--start = static_cast<char>('0' + number % 10);
        while ((number /= 10) != 0);
        if (left_)
            return add(std::string_view(start, static_cast<std::size_t>(end - start)), width);
        start = std::min(start, end - width);
        put({start, static_cast<std::size_t>(end - start)});
    }

    // Copies the source text of the counts when it is formatted already: without that, an answer of
    // 19,200 counts takes a third more of the asking thread's time.
    void add_counts(const std::vector<std::uint64_t>& counts, std::string_view text) {
        if (!left_ && !text.empty())
            return put(text);
        for (std::uint64_t count : counts)
            add(count, eight_digits::column_width);
    }

    void finish() {
        flush();
        out_.flush();
    }

private:
    static constexpr std::string_view field_blanks = "           ";

    void flush() {
        out_.write(buffer_, used_);
        used_ = 0;
    }
    void put(std::string_view text) {
        const auto size = static_cast<std::streamsize>(text.size());
        if (size > static_cast<std::streamsize>(sizeof buffer_) - used_)
            flush();
        if (size > static_cast<std::streamsize>(sizeof buffer_)) {
            out_.write(text.data(), size);
            return;
        }
        text.copy(buffer_ + used_, text.size());
        used_ += size;
    }

    std::ostream& out_;
    bool left_;
    std::streamsize used_ = 0;
    char buffer_[8192];
};
} // namespace

unsigned int interrupt_parser::parse_interrupt(unsigned char* msg) {
    const std::string_view text = payload_text(msg, table_max);
    interrupts = std::make_unique<std::vector<std::shared_ptr<interrupt>>>();
    std::vector<std::string_view> counts;
    const int result = take_table(text, counts);
    show_table(counts);
    return static_cast<unsigned int>(result);
}

int interrupt_parser::parse_int(const std::string& text) {
    std::vector<std::string_view> counts;
    return take_table(text, counts);
}

// `counts_text` gets what `read_counts` returned for each record, so it is empty for some.
int interrupt_parser::take_table(std::string_view text,
                                 std::vector<std::string_view>& counts_text) {
    try {
        text_reader lines(text);
        std::string_view line;
        lines.next_line(line);
        const auto cpus = static_cast<std::size_t>(std::count(line.begin(), line.end(), 'C'));
        std::size_t counts = 0;
        while (lines.next_line(line)) {
            const bool inter_processor = line.substr(0, 3) == "IPI";
            if (inter_processor || is_numbered(line)) {
                // Without a limit a header alone could make every line take any amount of memory.
                counts += cpus;
                if (counts > table_max)
                    throw std::length_error("too many counts");
                auto record = std::make_shared<interrupt>();
                record->int_cnt.resize(cpus);
                const auto read = inter_processor ? read_inter_processor : read_numbered;
                counts_text.push_back(read(lines.fields_of(line), *record));
                interrupts->push_back(std::move(record));
            } else if (line.substr(0, 3) == "Err") {
                counts_text.emplace_back();
                interrupts->push_back(read_error(lines.fields_of(line)));
            }
        }
        return 1;
    } catch (const std::exception& e) {
        std::cout << "parse_interrupt failed!" << e.what() << std::endl;
        return 0;
    }
}

void interrupt_parser::show_table(const std::vector<std::string_view>& counts_text) const {
    column_writer table(std::cout, (std::cout.flags() & std::ios::adjustfield) == std::ios::left);
    table.add("    ");
    const std::size_t cpus = interrupts->empty() ? 0 : interrupts->front()->int_cnt.size();
    for (std::size_t i = 0; i < cpus; ++i) {
        // The headings are right-aligned whatever the stream is set to.
        table.add("       CPU");
        table.add(std::to_string(i));
    }
    table.add("\n");
    for (std::size_t i = 0; i < interrupts->size(); ++i) {
        const auto& record = (*interrupts)[i];
        if (record->IPI_int_num.empty() && record->logic_int_num != 0) {
            table.add(record->logic_int_num, 3);
            table.add(":");
            table.add_counts(record->int_cnt, counts_text[i]);
            table.add(record->int_dev, 11);
            table.add(record->hardware_int_num, 5);
            table.add(" ");
            table.add(record->trigger_mode);
            table.add(record->int_name);
        } else if (record == interrupts->back()) {
            table.add("Err:");
            table.add(record->err_cnt, 11);
        } else {
            table.add(record->IPI_int_num, 3);
            table.add_counts(record->int_cnt, counts_text[i]);
            table.add(record->IPI_int_describe);
        }
        table.add("\n");
    }
    table.finish();
}
