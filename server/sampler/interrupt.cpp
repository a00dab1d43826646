// The interrupt table: /proc/interrupts, in the form that clients decode.
#include "interrupt_table.h"
#include "sampler.h"

#include <iostream>
#include <memory>

namespace monsrv {
namespace {

/// Answers the table and logs what an answer has no room for.
class interrupts {
public:
    explicit interrupts(const host& env) : env_(env) {}

    int sample(reply& answer) {
        if (const int error = env_.read_again("/proc/interrupts", text_); error < 0)
            return error;
        answer.allow_parts();
        const fitted_table table = fit_interrupt_table(text_, answer.room() - 1);
        log(table);
        answer.add_lines(table.text);
        return 0;
    }

private:
    // Logs changes only, because clients ask every second.
    void log(const fitted_table& table) {
        if (table.rows_left_out == logged_)
            return;
        logged_ = table.rows_left_out;
        if (logged_ > 0)
            std::cerr << "monsrv: the interrupt table exceeds an answer: " << logged_
                      << " rows are left out, " << table.idle_rows_left_out
                      << " of which never fired" << std::endl;
    }

    const host& env_;
    std::string text_; // kept to be reused
    std::size_t logged_ = 0;
};

void install(sampler_table& table, const host& env) {
    auto all = std::make_shared<interrupts>(env);
    table.on(
        cpu_command, cpu_request::interrupts,
        shared_briefly(env, [all](const request&, reply& answer) { return all->sample(answer); }));
}

const sampler_registration registered(install);

} // namespace
} // namespace monsrv
