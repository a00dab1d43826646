// The kernel's interrupt table in the form that clients decode.
#include "interrupt_table.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <vector>

namespace monsrv {

namespace {
constexpr std::size_t kernel_width = 10; // of a count, after one blank
constexpr std::size_t cpus_max = 8192;   // no kernel is built for more
// A header that names few CPUs with high numbers could otherwise ask for any amount of memory.
constexpr std::size_t text_max = 1 << 24;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_number(std::string_view word) {
    return !word.empty() && std::all_of(word.begin(), word.end(), is_digit);
}

// Takes the next line off @p text; its line end is dropped.
std::string_view take_line(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

// Takes the next blank-separated word off @p text; empty at the end.
std::string_view take_word(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(word.size());
    return word;
}

// The number of each column's CPU.
struct column_list {
    std::vector<std::size_t> cpus;
    bool has_gaps = false; // CPUs without a column

    // If the header does not name CPUs as the kernel does, columns are numbered by position.
    explicit column_list(std::string_view header) {
        bool named = true;
        for (std::string_view word; !(word = take_word(header)).empty();) {
            std::size_t cpu = cpus_max;
            if (word.substr(0, 3) == "CPU")
                std::from_chars(word.data() + 3, word.data() + word.size(), cpu);
            named = named && cpu < cpus_max && (cpus.empty() || cpu > cpus.back());
            cpus.push_back(cpu);
        }
        for (std::size_t i = 0; !named && i < cpus.size(); ++i)
            cpus[i] = i;
        has_gaps = !cpus.empty() && cpus.back() >= cpus.size();
    }
};

void add_header(const column_list& columns, std::string& out) {
    out.append(kernel_width + 1, ' ');
    for (std::size_t cpu = 0; cpu <= columns.cpus.back(); ++cpu) {
        const std::string number = std::to_string(cpu);
        out.append("CPU").append(number);
        out.append(number.size() < 8 ? 8 - number.size() : 1, ' ');
    }
}

void add_label(std::string_view label, std::string& out) {
    if (is_number(label))
        out.append(label.size() < 3 ? 3 - label.size() : 0, ' ');
    else if (label.size() > 2 && is_digit(label[2]) && label.substr(0, 3) != "IPI")
        out.append(3, ' '); // clients would take it for a number, and fail
    out.append(label).push_back(':');
}

// A row's counts, right-aligned in @p width characters after a blank each, and all after them. A
// row with fewer counts than the table has columns is left as it is.
// Returns the sum of the counts.
std::uint64_t add_counts(std::string_view fields, const column_list& columns, std::size_t width,
                         std::string& out) {
    const std::size_t start = out.size();
    const auto add = [&](std::string_view count) {
        out.append(1 + (width > count.size() ? width - count.size() : 0), ' ').append(count);
    };
    std::string_view rest = fields;
    std::uint64_t total = 0;
    std::size_t next_cpu = 0;
    for (const std::size_t cpu : columns.cpus) {
        const std::string_view word = take_word(rest);
        if (!is_number(word)) {
            out.resize(start);
            rest = fields;
            if (!rest.empty() && rest.front() != ' ')
                out.push_back(' ');
            break;
        }
        std::uint64_t count = 0;
        std::from_chars(word.data(), word.data() + word.size(), count);
        total += count;
        for (; next_cpu < cpu; ++next_cpu)
            add("0");
        add(word);
        ++next_cpu;
    }
    out.append(rest);
    return total;
}

bool is_error_line(std::string_view label) {
    return label.substr(0, 3) == "Err";
}

struct row {
    std::size_t start; // in the table's text
    std::size_t size;
    std::uint64_t total;
    bool always_kept;
};

struct written_table {
    std::string text;
    std::size_t header_size = 0;
    std::vector<row> rows;
    std::size_t rows_missing = 0;
};

// With @p width 0 the counts are not aligned. Totals are only found where the counts are rewritten.
written_table write_table(std::string_view kernel_text, std::size_t width) {
    written_table table;
    std::string& out = table.text;
    out.reserve(std::min(kernel_text.size() + kernel_text.size() / 16, text_max));
    const std::string_view header = take_line(kernel_text);
    const column_list columns(header);
    if (columns.has_gaps)
        add_header(columns, out);
    else
        out.append(header);
    out.push_back('\n');
    table.header_size = out.size();
    while (!kernel_text.empty()) {
        const std::string_view line = take_line(kernel_text);
        const std::size_t colon = line.find(':');
        const std::size_t label_start = line.find_first_not_of(' ');
        if (colon == line.npos || label_start == colon)
            continue; // no row of the kernel's
        if (out.size() > text_max) {
            ++table.rows_missing;
            continue;
        }
        const std::string_view label = line.substr(label_start, colon - label_start);
        const std::string_view fields = line.substr(colon + 1);
        const std::size_t start = out.size();
        add_label(label, out);
        std::uint64_t total = 0;
        if (columns.has_gaps || width != kernel_width) {
            total = add_counts(fields, columns, width, out);
        } else {
            if (!fields.empty() && fields.front() != ' ')
                out.push_back(' ');
            out.append(fields);
        }
        out.push_back('\n');
        table.rows.push_back({start, out.size() - start, total, is_error_line(label)});
    }
    return table;
}

// Leaves rows out until the others fit.
fitted_table cut_down(const written_table& table, std::size_t size_max) {
    std::vector<const row*> candidates;
    for (const row& each : table.rows)
        if (!each.always_kept)
            candidates.push_back(&each);
    std::sort(candidates.begin(), candidates.end(), [](const row* a, const row* b) {
        return a->total != b->total ? a->total < b->total : a->start > b->start;
    });
    fitted_table fitted;
    fitted.rows_left_out = table.rows_missing;
    std::vector<const row*> left_out;
    std::size_t size = table.text.size();
    for (const row* each : candidates) {
        if (size <= size_max)
            break;
        size -= each->size;
        left_out.push_back(each);
        ++fitted.rows_left_out;
        fitted.idle_rows_left_out += each->total == 0 ? 1 : 0;
    }
    fitted.text = table.text.substr(0, table.header_size);
    std::sort(left_out.begin(), left_out.end());
    for (const row& each : table.rows)
        if (!std::binary_search(left_out.begin(), left_out.end(), &each))
            fitted.text.append(table.text, each.start, each.size);
    return fitted;
}
} // namespace

fitted_table fit_interrupt_table(std::string_view kernel_text, std::size_t size_max) {
    if (kernel_text.empty())
        return {};
    written_table table = write_table(kernel_text, kernel_width);
    if (table.text.size() <= size_max)
        return {std::move(table.text)};
    return cut_down(write_table(kernel_text, 0), size_max);
}

} // namespace monsrv
