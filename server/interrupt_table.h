// The kernel's interrupt table in the form that clients decode.
//
// Clients know a row by its first three characters: "IPI", "Err", or a digit in the third. They
// take the column's position for the CPU's number. The kernel's own layout keeps to neither: a
// machine with more than 999 interrupts widens the first column, and CPUs that are off line have no
// column.
#ifndef MONSRV_INTERRUPT_TABLE_H
#define MONSRV_INTERRUPT_TABLE_H

#include <cstddef>
#include <string>
#include <string_view>

namespace monsrv {

/// A table and what is missing in it.
struct fitted_table {
    std::string text;
    std::size_t rows_left_out = 0;
    std::size_t idle_rows_left_out = 0; ///< those of them that never fired
};

/// Puts @p kernel_text, the text of /proc/interrupts, in the form that clients decode: numbers
/// right-aligned in three characters, a blank after each label, and a column for each CPU up to the
/// last one on line. A CPU that is off line gets zeros: the kernel does not give its counts.
///
/// A table above @p size_max bytes loses the blanks that align its counts; if that is not enough,
/// whole rows, those with the smallest totals first and of equal ones the last. The header and the
/// error line stay.
fitted_table fit_interrupt_table(std::string_view kernel_text, std::size_t size_max);

} // namespace monsrv

#endif
