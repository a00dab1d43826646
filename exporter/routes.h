// Which request is answered by what, and which not at all.
#ifndef MONCL_EXPORTER_ROUTES_H
#define MONCL_EXPORTER_ROUTES_H

#include "api.h"
#include "host_names.h"
#include "http_message.h"
#include "metrics.h"
#include "password_check.h"
#include "web_files.h"

#include <functional>
#include <map>
#include <string>

namespace exporter {

/// Sends requests where they belong, once it is known that they may be answered. From any thread.
class routes {
public:
    /// @param names, passwords, scrapes, figures outlive this
    routes(const host_names& names, password_check& passwords, metrics_pages& scrapes,
           api& figures);

    response answer(const request& asked) const;

private:
    response refuse(const request& asked) const;

    const host_names& names_;
    password_check& passwords_;
    std::map<std::string, std::function<response(const request&)>> handlers_; // by path
};

} // namespace exporter

#endif
