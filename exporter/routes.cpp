// Finding what answers a request.
#include "routes.h"

namespace exporter {

namespace {
bool accepts_gzip(const request& asked) {
    const std::string accepted = asked.header("accept-encoding").value_or("");
    return accepted.find("gzip") != accepted.npos && accepted.find("gzip;q=0") == accepted.npos;
}

// The files change only with the program, so a browser that has one only asks whether it has
// changed.
response send_file(const web_file& file, const request& asked) {
    response made;
    made.type = file.type;
    made.headers = {{"ETag", std::string(file.tag)},
                    {"Cache-Control", "no-cache"},
                    {"Vary", "Accept-Encoding"}};
    const std::string known = asked.header("if-none-match").value_or("");
    if (known.find(file.tag) != known.npos) {
        made.status = 304;
        return made;
    }
    const bool packed = !file.packed.empty() && accepts_gzip(asked);
    if (packed)
        made.headers.emplace_back("Content-Encoding", "gzip");
    made.body = packed ? file.packed : file.plain;
    return made;
}

response no_page(const request&) {
    return fault(404, "this moncl-exporter was built without its page, for which the build needs "
                      "npm; /metrics and /api/v1/subjects are there");
}
} // namespace

routes::routes(const host_names& names, password_check& passwords, metrics_pages& scrapes,
               api& figures)
    : names_(names), passwords_(passwords) {
    handlers_ = {
        {"/", no_page},
        {"/metrics", [&](const request& asked) { return scrapes.metrics(asked); }},
        {"/probe", [&](const request& asked) { return scrapes.probe(asked); }},
        {"/api/v1/subjects", [&](const request& asked) { return figures.subjects(asked); }},
        {"/api/v1/hosts", [&](const request& asked) { return figures.hosts(asked); }},
        {"/api/v1/latest", [&](const request& asked) { return figures.latest(asked); }},
        {"/api/v1/history", [&](const request& asked) { return figures.find_history(asked); }},
        {"/api/v1/stream", [&](const request& asked) { return figures.stream(asked); }},
    };
    for (const web_file& each : web_files()) {
        const std::string path =
            each.name == "index.html" ? "/" : "/assets/" + std::string(each.name);
        handlers_[path] = [each](const request& asked) { return send_file(each, asked); };
    }
}

// The status 200 of an empty response stands for no refusal.
response routes::refuse(const request& asked) const {
    const bool none = asked.headers.count("host") == 0 && asked.is_http_1_0;
    const auto host = asked.header("host");
    if (asked.headers.count("host") == 0 && !none)
        return fault(400, "a request needs the header Host");
    if (!none && (!host || !names_.has(*host)))
        return fault(421,
                     "this is not the host that was asked for; --allow-host gives it more names");
    switch (passwords_.check(asked.header("authorization"))) {
    case password_check::verdict::good:
        break;
    case password_check::verdict::bad: {
        response made = fault(401, "a user and a password are needed");
        made.headers = {{"WWW-Authenticate", "Basic realm=\"moncl\", charset=\"UTF-8\""}};
        return made;
    }
    case password_check::verdict::too_many: {
        response made = fault(429, "too many passwords were wrong; try again in a second");
        made.headers = {{"Retry-After", "1"}};
        return made;
    }
    }
    return {};
}

response routes::answer(const request& asked) const {
    if (response refused = refuse(asked); refused.status != 200)
        return refused;
    const auto found = handlers_.find(asked.path);
    return found == handlers_.end() ? fault(404, "there is nothing at " + asked.path)
                                    : found->second(asked);
}

} // namespace exporter
