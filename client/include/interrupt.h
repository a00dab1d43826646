// The interrupt table.
#ifndef MONCL_INTERRUPT_H
#define MONCL_INTERRUPT_H

#include "moncl_export.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// One line of the interrupt table.
class interrupt {
public:
    // Not defaulted: std::make_shared would clear the record twice.
    interrupt() noexcept {}

    std::uint64_t logic_int_num = 0;    ///< number of a numbered line
    std::uint64_t hardware_int_num = 0; ///< the controller's own number
    std::string int_name;               ///< rest of a numbered line, leading blanks kept
    std::string int_dev;                ///< interrupt controller
    std::vector<std::uint64_t> int_cnt; ///< one count per CPU
    std::string trigger_mode;           ///< such as "Level" or "Edge"
    std::string IPI_int_num;            ///< first word of an inter-processor line, with its colon
    std::string IPI_int_describe;       ///< rest of an inter-processor line, leading blanks kept
    std::uint64_t err_cnt = 0;          ///< count of the error line
};

/// Decodes the interrupt table, the text of /proc/interrupts, and prints it to standard output.
class MONCL_API interrupt_parser {
public:
    /// Decodes @p msg, text of at most 409600 bytes, then prints the records to standard output,
    /// also if decoding failed. Their fields are aligned as that stream is set to.
    /// @return what `parse_int` returned
    unsigned int parse_interrupt(unsigned char* msg);
    /// Appends a record for each line of @p text to `interrupts`, which must not be null. Each
    /// numbered or inter-processor record gets one count per CPU heading, 0 where the line has
    /// none.
    /// @return 1; 0 after an exception, which has been written to standard output; the records
    ///         before it stay. A table of more than 409600 counts is such an exception
    int parse_int(const std::string& text);

    /// Records of the latest table, in the order of its lines; null before the first.
    std::unique_ptr<std::vector<std::shared_ptr<interrupt>>> interrupts;

private:
    MONCL_LOCAL int take_table(std::string_view text, std::vector<std::string_view>& counts_text);
    MONCL_LOCAL void show_table(const std::vector<std::string_view>& counts_text) const;
};

#endif
