// Choosing the form of metrics by what a client accepts.
#ifndef MONCL_EXPORTER_ACCEPT_H
#define MONCL_EXPORTER_ACCEPT_H

#include "openmetrics.h"

#include <string>

namespace exporter {

/// The form that the header Accept prefers, by its q values; the older form if it has no
/// preference, because people and older tools expect that one. @param accept empty if there was
/// none
tools::metrics_form preferred_form(const std::string& accept);

/// The Content-Type of a form.
const char* content_type(tools::metrics_form form);

} // namespace exporter

#endif
