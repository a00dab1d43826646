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

std::string read_word(text_reader& fields) {
    std::string_view word;
    fields.word(word);
    return std::string(word);
}

std::string read_rest(text_reader& fields) {
    std::string_view rest;
    fields.next_line(rest);
    return std::string(rest);
}

// Once a count is missing, its read and all that follow fail: those counts stay 0.
void read_counts(text_reader& fields, std::vector<std::uint64_t>& counts) {
    std::size_t i = fields.columns(counts.data(), counts.size());
    while (i < counts.size() && fields.number(counts[i])) {
        ++i;
        i += fields.columns(counts.data() + i, counts.size() - i);
    }
}

void read_inter_processor(text_reader fields, interrupt& record) {
    record.IPI_int_num = read_word(fields);
    read_counts(fields, record.int_cnt);
    record.IPI_int_describe = read_rest(fields);
}

void read_numbered(text_reader fields, interrupt& record) {
    std::string_view number;
    fields.word(number);
    number.remove_suffix(1); // the colon
    record.logic_int_num = leading_number<unsigned long>(number, "stoul");
    read_counts(fields, record.int_cnt);
    record.int_dev = read_word(fields);
    fields.number(record.hardware_int_num);
    record.trigger_mode = read_word(fields);
    record.int_name = read_rest(fields);
}

std::shared_ptr<interrupt> read_error(text_reader fields) {
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

    void add(std::string_view text, std::size_t width = 0) {
        const std::size_t blanks = width > text.size() ? width - text.size() : 0;
        if (!left_)
            put(field_blanks.substr(0, blanks));
        put(text);
        if (left_)
            put(field_blanks.substr(0, blanks));
    }
    void add(std::uint64_t number, std::size_t width) {
        char digits[digits_max];
        char* const end = digits + sizeof digits;
        const char* const start = write_before(end, number);
        add(std::string_view(start, static_cast<std::size_t>(end - start)), width);
    }

    // Counts are most of a table, so right-aligned ones are written straight to their place.
    void add_counts(const std::vector<std::uint64_t>& counts) {
        for (const std::uint64_t count : counts) {
            if (left_ || count > widest_count) {
                add(count, count_width);
                continue;
            }
            if (sizeof buffer_ - used_ < count_width)
                flush();
            char* const column = buffer_ + used_;
            std::memcpy(column, zero_count, count_width);
            if (count != 0)
                write_before(column + count_width, count);
            used_ += count_width;
        }
    }

    void finish() {
        flush();
        out_.flush();
    }

private:
    static constexpr std::string_view field_blanks = "           ";
    static constexpr std::size_t count_width = 11;
    static constexpr char zero_count[] = "          0";
    static constexpr std::uint64_t widest_count = 99999999999;
    static constexpr std::size_t digits_max = 20;

    // Writes `number` so that it ends at `end`, and returns its start.
    static char* write_before(char* end, std::uint64_t number) {
        do
            *--end = static_cast<char>('0' + number % 10);
        while ((number /= 10) != 0);
        return end;
    }
    void flush() {
        out_.write(buffer_, static_cast<std::streamsize>(used_));
        used_ = 0;
    }
    void put(std::string_view text) {
        if (text.size() > sizeof buffer_ - used_)
            flush();
        if (text.size() > sizeof buffer_) {
            out_.write(text.data(), static_cast<std::streamsize>(text.size()));
            return;
        }
        text.copy(buffer_ + used_, text.size());
        used_ += text.size();
    }

    std::ostream& out_;
    bool left_;
    std::size_t used_ = 0;
    char buffer_[8192];
};
} // namespace

unsigned int interrupt_parser::parse_interrupt(unsigned char* msg) {
    const std::string_view text = payload_text(msg, table_max);
    interrupts = std::make_unique<std::vector<std::shared_ptr<interrupt>>>();
    const int result = take_table(text);
    show_table();
    return static_cast<unsigned int>(result);
}

int interrupt_parser::parse_int(const std::string& text) {
    return take_table(text);
}

int interrupt_parser::take_table(std::string_view text) {
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
                read(lines.fields_of(line), *record);
                interrupts->push_back(std::move(record));
            } else if (line.substr(0, 3) == "Err") {
                interrupts->push_back(read_error(lines.fields_of(line)));
            }
        }
        return 1;
    } catch (const std::exception& e) {
        std::cout << "parse_interrupt failed!" << e.what() << std::endl;
        return 0;
    }
}

void interrupt_parser::show_table() const {
    column_writer table(std::cout, (std::cout.flags() & std::ios::adjustfield) == std::ios::left);
    table.add("    ");
    const std::size_t cpus = interrupts->empty() ? 0 : interrupts->front()->int_cnt.size();
    for (std::size_t i = 0; i < cpus; ++i) {
        // The headings are right-aligned whatever the stream is set to.
        table.add("       CPU");
        table.add(std::to_string(i));
    }
    table.add("\n");
    for (const auto& record : *interrupts) {
        if (record->IPI_int_num.empty() && record->logic_int_num != 0) {
            table.add(record->logic_int_num, 3);
            table.add(":");
            table.add_counts(record->int_cnt);
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
            table.add_counts(record->int_cnt);
            table.add(record->IPI_int_describe);
        }
        table.add("\n");
    }
    table.finish();
}
