// What an output is: it is given samples and the declarations of their fields, and writes them in
// one form. An output is one file in tools/output/ that ends in one registration such as
//
//     const output_registration registered({"json", "JSON Lines, an object a sample", make});
#ifndef MONCL_TOOLS_OUTPUT_H
#define MONCL_TOOLS_OUTPUT_H

#include "subject.h"
#include "writer.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tools {

/// How a user wants the output. Not every form heeds all of it.
struct output_options {
    bool time_column = false; ///< start rows with a time stamp
    bool colour = false;      ///< the output understands colours
    std::size_t columns = 0;  ///< width of the terminal in characters; 0: not a terminal
    std::size_t lines = 0;    ///< its height; 0: not a terminal
    std::size_t sources = 1;  ///< from how many samples come; if several, rows name theirs
    std::size_t subjects = 1; ///< how many are shown
    bool summary = false;     ///< the page that sums the machine up: few rows of each subject
};

/// One sample to show.
struct shown_sample {
    const subject& what;
    const std::string& host;
    const sample& figures;
    std::optional<double> interval; ///< seconds that its rates are formed over
};

/// What an output that somebody types at may ask of the session that feeds it.
class session_controls {
public:
    virtual ~session_controls() = default;

    /// Reports from now on come every @p seconds.
    virtual void set_interval(double seconds) = 0;
    /// Only these subjects are asked for from now on, at once for the first time.
    virtual void set_subjects(const std::vector<const subject*>& wanted) = 0;
    /// Of a recording: goes @p reports further, or back if that is negative.
    virtual void step(long reports) = 0;
    /// Of a recording: lets the reports follow one another, or stands still.
    virtual void set_playing(bool on) = 0;
};

/// A sample that there is not.
struct missing_sample {
    const subject& what;
    const std::string& host;
    const sample& figures; ///< when it was asked for; without rows
    int code;              ///< of the failed query
    std::string why;       ///< of a refusal; empty: no answer came, or none that could be read
};

/// Writes samples in one form. Belongs to one thread.
class output {
public:
    virtual ~output() = default;

    /// Whether rates are of use to it: if not, a single sample of a counter is enough.
    virtual bool wants_rates() const { return true; }
    /// Whether it shows the first report, which has no rates, too.
    virtual bool shows_first_report() const { return false; }
    /// Writes one sample. Of each source they come report by report.
    virtual void show(const shown_sample& each) = 0;
    /// Says that a subject's query failed.
    virtual void miss(const missing_sample& /*each*/) {}
    /// Says that a source's report number @p number, from 0, ends here.
    /// @param away the source did not answer
    virtual void end_report(const std::string& /*host*/, long /*number*/, bool /*away*/) {}
    /// Writes what a run of samples comes to.
    virtual void average(const shown_sample& /*mean*/, std::size_t /*samples*/) {}
    /// Writes what is still held back.
    virtual void finish() {}

    /// A descriptor that can be read when somebody has typed; -1: nobody can.
    virtual int keyboard() const { return -1; }
    /// Takes what was typed; also called when nothing was, at least every half second, for what
    /// changes with time alone. Only if there is a keyboard.
    /// @return false to end the session
    virtual bool take_keys(session_controls& /*controls*/) { return true; }
};

/// A form of output.
struct output_form {
    const char* name; ///< as in --format
    const char* help; ///< one line
    std::unique_ptr<output> (*make)(const output_options& options, writer& to);
};

/// All forms, by name.
std::vector<output_form> all_outputs();

/// Registers a form for as long as the program runs.
class output_registration {
public:
    explicit output_registration(output_form form);
};

} // namespace tools

#endif
