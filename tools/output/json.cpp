// JSON Lines: an object for each sample, all values in base units, null for what is unknown.
#include "figure_text.h"
#include "output.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

namespace tools {
namespace {

constexpr int schema = 1;

void append_string(std::string& to, const std::string& text) {
    const bool plain = std::all_of(text.begin(), text.end(), [](char c) {
        return c >= ' ' && c <= '~' && c != '"' && c != '\\';
    });
    if (plain) {
        to += '"';
        to += text;
        to += '"';
        return;
    }
    // Processes choose their names themselves, so some are not UTF-8.
    using nlohmann::json;
    to += json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

void append_value(std::string& to, const field& of, const value& v) {
    if (const auto* text = std::get_if<std::string>(&v))
        append_string(to, *text);
    else if (is_known(v))
        append_plain(to, of, v);
    else
        to += "null";
}

class json_lines : public output {
public:
    explicit json_lines(writer& to) : to_(to) {}

    void show(const shown_sample& each) override {
        std::string line = "{\"schema\":" + std::to_string(schema) + ",\"time\":\"" +
                           utc_text(each.figures.time) + "\",\"host\":";
        append_string(line, each.host);
        line += ",\"subject\":";
        append_string(line, each.what.name);
        line += ",\"interval_s\":";
        if (each.interval)
            append_number(line, *each.interval);
        else
            line += "null";
        line += ",\"rows\":[";
        const std::vector<std::string>& keys = keys_of(each.what);
        for (const row& r : each.figures.rows) {
            for (std::size_t i = 0; i < r.values.size(); ++i) {
                line += keys[i];
                append_value(line, each.what.fields[i], r.values[i]);
            }
            line += "},";
        }
        if (line.back() == ',')
            line.pop_back();
        line += "]}\n";
        to_.add(line);
    }

private:
    // What stands before each value of a row, such as `,"idle_seconds":`.
    const std::vector<std::string>& keys_of(const subject& what) {
        std::vector<std::string>& keys = keys_[&what];
        if (keys.empty()) {
            for (const field& each : what.fields) {
                std::string key = keys.empty() ? "{" : ",";
                append_string(key, each.name);
                keys.push_back(key + ":");
            }
        }
        return keys;
    }

    writer& to_;
    std::map<const subject*, std::vector<std::string>> keys_;
};

std::unique_ptr<output> make(const output_options&, writer& to) {
    return std::make_unique<json_lines>(to);
}

const output_registration registered({"json", "JSON Lines: an object for each sample", make});

} // namespace
} // namespace tools
