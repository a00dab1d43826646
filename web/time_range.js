// The time that all charts show: the last minutes, moving on, or a fixed stretch of the past. Also its
// tool bar.

import {element, set_text} from "./element.js";
import {clock_text, date_text} from "./format.js";

const spans = [[60, "1 min"], [300, "5 min"], [900, "15 min"], [3600, "1 h"], [21600, "6 h"], [86400, "24 h"]];
const shortest_s = 5;
const longest_s = 31 * 86400;

/// Seconds since the epoch as a date-and-time input of the browser has it.
const input_text = (seconds) => `${date_text(seconds)}T${clock_text(seconds)}`;
const input_time = (text) => new Date(text).getTime() / 1000;

export class time_range {
    /// `now` gives the boards' time; `changed` is called after each change that needs other samples.
    constructor(now, changed) {
        this.now = now;
        this.changed = changed;
        this.span = 300;
        this.from = null; // of a fixed stretch; null: the last `span` seconds
        this.to = null;
    }

    get is_live() {
        return this.from === null;
    }

    bounds() {
        if (!this.is_live)
            return {from: this.from, to: this.to};
        const now = this.now();
        return {from: now - this.span, to: now};
    }

    live(span = this.span) {
        this.from = this.to = null;
        this.span = Math.min(longest_s, Math.max(shortest_s, span));
        this.change();
    }

    fix(from, to) {
        const length = Math.min(longest_s, Math.max(shortest_s, to - from));
        this.to = Math.min(this.now(), (from + to + length) / 2);
        this.from = this.to - length;
        this.span = length;
        this.change();
    }

    /// Moves by a part of what is shown; negative: into the past.
    pan(part) {
        const {from, to} = this.bounds();
        this.fix(from + part * (to - from), to + part * (to - from));
    }

    /// Shows `factor` times as long: around the middle, or up to now.
    scale(factor) {
        if (this.is_live)
            return this.live(this.span * factor);
        const middle = (this.from + this.to) / 2;
        this.fix(middle - this.span * factor / 2, middle + this.span * factor / 2);
    }

    change() {
        this.show();
        this.changed();
    }

    /// What of the page's address says which time is shown.
    to_address(address) {
        address.set("span", this.span.toFixed(0));
        for (const end of ["from", "to"]) {
            address.delete(end);
            if (!this.is_live)
                address.set(end, this[end].toFixed(1));
        }
    }

    from_address(address) {
        const [span, from, to] = ["span", "from", "to"].map((name) => parseFloat(address.get(name)));
        if (span > 0)
            this.span = Math.min(longest_s, Math.max(shortest_s, span));
        if (to > from)
            [this.from, this.to] = [from, to];
    }

    /// Fills the tool bar.
    make_elements(bar) {
        const button = (text, name, act) =>
            element("button", {type: "button", "aria-label": name, title: name, text, onclick: act});
        this.buttons = spans.map(([span, text]) =>
            element("button", {type: "button", text, title: `the last ${text}`, onclick: () => this.live(span)}));
        this.hold = element("button", {type: "button", class: "hold", text: "Pause", onclick: () => {
            const {from, to} = this.bounds();
            if (this.is_live)
                this.fix(from, to);
            else
                this.live();
        }});
        this.shown = element("button", {type: "button", class: "shown", "aria-expanded": "false",
            "aria-controls": "other_time", title: "Show another time", onclick: () => this.toggle_form()});
        this.form = this.make_form();
        bar.replaceChildren(
            element("span", {class: "group"}, ...this.buttons),
            element("span", {class: "group"},
                button("◀", "Earlier", () => this.pan(-0.5)), button("▶", "Later", () => this.pan(0.5)),
                button("−", "Longer", () => this.scale(2)), button("+", "Shorter", () => this.scale(0.5))),
            this.hold, this.shown, this.form);
        this.show();
    }

    make_form() {
        const input = (name) => element("input", {type: "datetime-local", step: "1", name, required: true});
        const [from, to] = [input("from"), input("to")];
        this.inputs = {from, to};
        return element("form", {id: "other_time", hidden: true, onsubmit: (event) => {
            event.preventDefault();
            if (input_time(to.value) > input_time(from.value)) {
                this.toggle_form();
                this.fix(input_time(from.value), input_time(to.value));
            } else {
                to.setCustomValidity("This must be after the beginning.");
                to.reportValidity();
                to.setCustomValidity("");
            }
        }, onkeydown: (event) => {
            if (event.key === "Escape")
                this.toggle_form();
        }},
        element("label", {}, "From ", from), element("label", {}, "to ", to),
        element("button", {type: "submit", text: "Show"}));
    }

    toggle_form() {
        const opens = this.form.hidden;
        this.form.hidden = !opens;
        this.shown.setAttribute("aria-expanded", String(opens));
        if (!opens) {
            this.shown.focus();
            return;
        }
        const {from, to} = this.bounds();
        this.inputs.from.value = input_text(from);
        this.inputs.to.value = input_text(to);
        this.inputs.from.focus();
    }

    /// Shows in the tool bar what the page shows; called each second.
    show() {
        if (!this.shown)
            return;
        const {from, to} = this.bounds();
        const same_day = date_text(from) === date_text(to);
        const date = same_day && date_text(to) === date_text(this.now()) ? "" : `${date_text(from)} `;
        set_text(this.shown, `${date}${clock_text(from)} – ${same_day ? "" : `${date_text(to)} `}${clock_text(to)}`);
        this.buttons.forEach((button, i) =>
            button.setAttribute("aria-pressed", String(this.is_live && this.span === spans[i][0])));
        set_text(this.hold, this.is_live ? "Pause" : "Now");
        this.hold.classList.toggle("is_held", !this.is_live);
    }
}
