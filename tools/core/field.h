// The declaration of a figure. A subject declares its fields once, and every output reads them.
//
//     label("device", "Device", "Name of the block device"),
//     counter("read_bytes", unit::bytes, "Bytes read since boot"),
//     rate("read_bytes_per_second", unit::bytes_per_second, "Bytes read per second")
//         .per_second_of("read_bytes")
//         .column("rd_kB/s"),
#ifndef MONCL_TOOLS_FIELD_H
#define MONCL_TOOLS_FIELD_H

#include <vector>

namespace tools {

/// How a field's values change over time.
enum class kind {
    label,   ///< names its row, together with the other labels
    text,    ///< describes its row; may change
    gauge,   ///< goes up and down
    counter, ///< only grows, until it is set back
    rate     ///< formed from the growth of counters between two samples
};

/// What a field's values are measured in.
enum class unit {
    none, ///< a count, or a number of the device's own
    bytes,
    bytes_per_second,
    percent,
    celsius,
    hertz,
    seconds,
    frames_per_second,
    per_second
};

/// How a rate is formed: the growth of the counters `plus`, less that of `minus`, divided by the
/// growth of the counters `over`, times `factor`. Without `over` the divisor is the time between
/// the two samples, in seconds.
struct formula {
    std::vector<const char*> plus; ///< names of counters
    std::vector<const char*> minus;
    std::vector<const char*> over;
    double factor = 1;
};

/// One figure of a subject. All texts are literals.
struct field {
    const char* name; ///< JSON key, CSV column and tail of the metric's name; carries the unit
    kind what;
    unit in;
    const char* help;         ///< one line
    const char* heading = ""; ///< of the table's column; empty: the table leaves it out
    int rank = 0;             ///< where a table is too wide, the columns of highest rank go first
    unsigned per_unit = 1;    ///< integers are counted in 1/per_unit of the unit, such as ticks
    const char* family = "";  ///< metric shared by several fields; empty: it has its own
    const char* split_label = ""; ///< label of that metric by which the fields differ
    const char* split_value = ""; ///< this field's value of that label
    formula formed = {};          ///< of a rate

    /// Shows the field in tables under @p text.
    field column(const char* text, int drop_rank = 1) && {
        heading = text;
        rank = drop_rank;
        return static_cast<field&&>(*this);
    }
    /// Says that integer values are counted in 1/@p parts of the unit.
    field counted_in(unsigned parts) && {
        per_unit = parts;
        return static_cast<field&&>(*this);
    }
    /// Puts the field into the metric @p metric, with the label @p label = @p value_of_label.
    field share_of(const char* metric, const char* label, const char* value_of_label) && {
        family = metric;
        split_label = label;
        split_value = value_of_label;
        return static_cast<field&&>(*this);
    }
    /// Growth of @p counter in a second, times @p factor.
    field per_second_of(const char* counter, double factor = 1) && {
        formed = {{counter}, {}, {}, factor};
        return static_cast<field&&>(*this);
    }
    /// Any other formula.
    field formed_by(formula how) && {
        formed = static_cast<formula&&>(how);
        return static_cast<field&&>(*this);
    }
};

/// A label, shown in tables under @p heading.
inline field label(const char* name, const char* heading, const char* help) {
    return {name, kind::label, unit::none, help, heading, 0};
}
inline field text(const char* name, const char* help) {
    return {name, kind::text, unit::none, help};
}
inline field gauge(const char* name, unit in, const char* help) {
    return {name, kind::gauge, in, help};
}
inline field counter(const char* name, unit in, const char* help) {
    return {name, kind::counter, in, help};
}
inline field rate(const char* name, unit in, const char* help) {
    return {name, kind::rate, in, help};
}

} // namespace tools

#endif
