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

/// How a user wants the output. A form may ignore some of it.
struct output_options {
    bool time_column = false; ///< start rows with a time stamp
    bool colour = false;      ///< the output understands colours
    std::size_t columns = 0;  ///< width of the terminal in characters; 0: not a terminal
    std::size_t lines = 0;    ///< its height; 0: not a terminal
    std::size_t sources = 1;  ///< how many sources samples come from; if several, rows name theirs
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

/// What an interactive output may ask of the session that feeds it.
class session_controls {
public:
    virtual ~session_controls() = default;

    /// Reports from now on come every @p seconds.
    virtual void set_interval(double seconds) = 0;
    /// Only these subjects are asked for from now on, at once for the first time.
    virtual void set_subjects(const std::vector<const subject*>& wanted) = 0;
    /// For recordings only: moves @p reports forward, or back if that is negative.
    virtual void step(long reports) = 0;
    /// For recordings only: starts or stops playing.
    virtual void set_playing(bool on) = 0;
};

/// A failed query, in place of a sample.
struct missing_sample {
    const subject& what;
    const std::string& host;
    const sample& figures; ///< without rows; its time is that of the query
    int code;              ///< of the failed query
    std::string why;       ///< the server's refusal; empty: no readable answer came
};

/// Writes samples in one form. Belongs to one thread.
class output {
public:
    virtual ~output() = default;

    /// Whether it shows rates. If not, a single sample of a counter is enough.
    virtual bool wants_rates() const { return true; }
    /// Whether it shows the first report, which has no rates, too.
    virtual bool shows_first_report() const { return false; }
    /// Writes one sample. The samples of one source come report by report.
    virtual void show(const shown_sample& each) = 0;
    /// Notes that a subject's query failed.
    virtual void miss(const missing_sample& /*each*/) {}
    /// Ends report number @p number, counted from 0, of one source.
    /// @param away the source did not answer
    virtual void end_report(const std::string& /*host*/, long /*number*/, bool /*away*/) {}
    /// Writes the averages of a run of samples.
    virtual void average(const shown_sample& /*mean*/, std::size_t /*samples*/) {}
    /// Writes what is still held back.
    virtual void finish() {}

    /// A descriptor that becomes readable when a key is typed; -1 without a keyboard.
    virtual int keyboard() const { return -1; }
    /// Handles typed keys. Also called without any, at least every half second, so that clocks move
    /// on. Called only if there is a keyboard.
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
