// A subject: fields declared once, and the function that asks a server for them. A subject is one
// file in tools/subject/ that ends in one registration such as
//
//     const subject_registration registered({
//         "ion", "ion_heap", "Use of the ion heaps",
//         {label("heap", "Heap", "Name of the heap"),
//          gauge("used_bytes", unit::bytes, "Bytes in use").column("used")},
//         ask});
//
// It formats nothing: outputs do.
#ifndef MONCL_TOOLS_SUBJECT_H
#define MONCL_TOOLS_SUBJECT_H

#include "field.h"
#include "sample.h"
#include "selection.h"

#include <functional>
#include <ostream>
#include <vector>

namespace tools {

class board;

/// Asks a server and appends what it answers to the sample.
/// @return 0 or more, or the negative code of a failed query
using asker = std::function<int(board& server, sample& into)>;

/// A subject. All texts are literals.
struct subject {
    const char* name;          ///< as on the command line
    const char* family;        ///< starts the names of its metrics, after "moncl_"
    const char* help;          ///< one line
    std::vector<field> fields; ///< labels, texts, gauges and counters; then the rates
    /// Makes what asks one server; called once for each server.
    asker (*open)(const selection& chosen);

    /// Message for a server that has no such thing (-ENODEV); empty: the error's text.
    const char* lacking = "";
    /// Message for another error of the server; an empty result: the error's text. May be null.
    std::string (*explain)(int code) = nullptr;
    /// Writes the library's own report. @return as an asker. May be null: there is none
    int (*library_report)(board& server, std::ostream& out) = nullptr;
    /// The field by which tables put the rows in order, the greatest first; empty: as they came.
    const char* order_by = "";
    /// Rows on the page that sums the machine up; 0: the subject is not on it.
    std::size_t summary_rows = 0;
    /// Where it stands in lists of subjects: the lowest first, equal ones by name. From 0 on.
    int place = 100;
    /// Whether it answers from what the program itself knows, also while the server is away.
    bool asks_nobody = false;
    /// Whether a sample is still true some seconds later.
    bool changes_slowly = false;
    /// Whether it has so many rows that metrics have it only if it was asked for by name.
    bool has_many_rows = false;
    /// Whether asking for it switches something on in the board's kernel: programs that
    /// ask for many boards at once ask for it only if it was named.
    bool switches_on = false;
    /// Whether it is about processes that must be named.
    bool needs_pids = false;
    /// Whether `open` itself heeds the names that were asked for.
    bool selects_names = false;

    /// Position of the field @p field_name.
    /// @throws std::logic_error if there is none
    std::size_t index_of(std::string_view field_name) const;
    /// Whether it has rates, which need two samples.
    bool has_rates() const;
};

/// Adds a fault for each CPU that was asked for and has no row in @p into. The first value of a row
/// is its CPU.
void miss_cpus(const char* subject_name, const selection& chosen, sample& into);

/// All subjects, by their places.
const std::vector<const subject*>& all_subjects();

/// The subject @p name; null if there is none.
const subject* find_subject(std::string_view name);

/// Registers a subject for as long as the program runs.
class subject_registration {
public:
    /// @throws std::logic_error if a rate stands before another field, or is formed from a counter
    ///         that the subject does not have
    explicit subject_registration(subject what);
};

} // namespace tools

#endif
