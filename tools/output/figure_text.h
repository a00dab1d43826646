// Figures as text: exact and plain for machines, rounded and scaled for people.
#ifndef MONCL_TOOLS_FIGURE_TEXT_H
#define MONCL_TOOLS_FIGURE_TEXT_H

#include "field.h"
#include "sample.h"

#include <optional>
#include <string>

namespace tools {

/// @p v in the field's unit; nothing if it is text or unknown.
std::optional<double> number_in_unit(const field& of, const value& v);

/// Appends @p v for a machine: integers as they are, other numbers with up to six decimals after a
/// '.', texts unchanged, nothing for what is unknown.
void append_plain(std::string& to, const field& of, const value& v);

/// Appends @p number with up to six decimals after a '.', none from 1e9 on; zeros at their end are
/// left out.
void append_number(std::string& to, double number);

/// @p v for a person, in the unit of the column's heading; "-" for what is unknown. Texts cannot
/// steer a terminal.
std::string cell_text(const field& of, const value& v);

/// @p bytes with one decimal and a unit letter, such as 1.5M.
std::string size_text(double bytes);

/// @p time as 2026-11-21T16:00:00.123Z.
std::string utc_text(std::chrono::system_clock::time_point time);

/// @p time as 2026-11-21 of this machine's time zone.
std::string local_date_text(std::chrono::system_clock::time_point time);

/// @p time as 16:00:00 of this machine's time zone.
std::string local_text(std::chrono::system_clock::time_point time);

} // namespace tools

#endif
