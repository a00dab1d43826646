// The page of one board: key figures, then its blocks.

import {ask_history} from "./api.js";
import {blocks} from "./blocks.js";
import {element, set_text} from "./element.js";
import {clock_text, date_text, format_value} from "./format.js";
import {key_figures, key_subjects} from "./key_figures.js";
import {show_meter} from "./table.js";
import {time_of} from "./track.js";
import {make_block} from "./views.js";

const points_max = 600;
const settle_ms = 80; // samples of one round come one after the other: draw them together
// What changes slowly is asked for seldom: lines come from before the time shown, and a table's sample
// may be from before its end.
const line_reach_s = 15;
const table_reach_s = 60;

const charted = new Set(blocks.filter((each) => each.chart).map((each) => each.subject));

export class board_page {
    /// `known` is the boards, `declarations` a Map of the subjects, `range` the time shown.
    constructor(host, known, declarations, range, say) {
        Object.assign(this, {host, known, declarations, range, say});
        this.subjects = [...new Set([...key_subjects, ...blocks.map((each) => each.subject)])]
            .filter((name) => declarations.has(name));
        this.blocks = new Map(); // by id
        this.shown = new Map(); // samples of the time shown, by subject
        this.loads = 0;
        this.make_elements();
        this.load();
    }

    make_elements() {
        this.keys = key_figures.map((figure) => {
            const value = element("dd");
            return {figure, value, element: element("div", {title: figure.help}, element("dt", {text: figure.title}), value)};
        });
        this.notice = element("p", {class: "notice"});
        this.grid = element("div", {class: "blocks"});
        this.missing = element("p", {class: "missing"});
        this.element = element("div", {class: "board"},
            element("dl", {class: "keys", "aria-label": "Key figures"}, ...this.keys.map((each) => each.element)),
            this.notice, this.grid, this.missing);
        this.hooks = {
            cursor_group: "board", say: this.say, redraw: () => this.redraw(), live: () => this.range.live(),
            zoom: (from, to) => this.range.fix(from, to), pan: (part) => this.range.pan(part),
            scale: (factor) => this.range.scale(factor),
        };
    }

    /// Asks for the samples of the time shown, one subject after the other as the answers come.
    async load() {
        const load = ++this.loads;
        this.loaded_at = this.known.now();
        const {from, to} = this.range.bounds();
        await Promise.all(this.subjects.map(async (subject) => {
            const since = charted.has(subject) ? from - line_reach_s : to - table_reach_s;
            try {
                const samples = await ask_history(this.host, subject, since, to, charted.has(subject) ? points_max : 0);
                if (load === this.loads)
                    this.take(subject, samples);
            } catch (error) {
                this.failure = error.message;
            }
        }));
        if (load === this.loads)
            this.missing_text();
    }

    take(subject, samples) {
        this.failure = null;
        const own = blocks.filter((each) => each.subject === subject);
        const there = samples.some((each) => each.rows.length);
        for (const block of own)
            if (there || this.blocks.has(block.id))
                this.block(block).load(samples);
        this.shown.delete(subject);
        if (samples.length)
            this.shown.set(subject, samples.at(-1));
        const newest = this.known.of(this.host).latest.get(subject);
        if (this.range.is_live && newest)
            this.sample(newest);
        this.redraw();
    }

    /// Takes a sample that has just come.
    sample(sample) {
        if (!this.range.is_live)
            return;
        this.shown.set(sample.subject, sample);
        for (const block of blocks)
            if (block.subject === sample.subject && (sample.rows.length || this.blocks.has(block.id)))
                this.block(block).show(sample);
        this.redraw();
    }

    // Made when its first row comes: not every board has everything.
    block(entry) {
        if (!this.blocks.has(entry.id)) {
            const made = make_block(entry, this.declarations.get(entry.subject), this.hooks);
            const place = blocks.indexOf(entry);
            const after = blocks.slice(place + 1).map((each) => this.blocks.get(each.id)?.element).find(Boolean);
            this.grid.insertBefore(made.element, after ?? null);
            this.blocks.set(entry.id, made);
        }
        return this.blocks.get(entry.id);
    }

    missing_text() {
        const absent = blocks.filter((each) => !this.blocks.has(each.id)).map((each) => each.title);
        set_text(this.missing, absent.length ? `No figures of: ${absent.join("; ")}.` : "");
    }

    /// Called each second.
    tick() {
        const reload_s = Math.max(30, this.range.span / 60);
        if (this.range.is_live && this.range.span > 900 && this.known.now() - this.loaded_at > reload_s)
            this.load();
        this.redraw();
    }

    redraw() {
        this.waiting ??= setTimeout(() => requestAnimationFrame(() => {
            this.waiting = undefined;
            this.draw();
        }), settle_ms);
    }

    draw() {
        const {from, to} = this.range.bounds();
        const now = this.known.now();
        const is_away = this.known.state_of(this.host).kind === "bad";
        this.element.classList.toggle("away", is_away && this.range.is_live);
        this.show_keys(is_away);
        for (const [id, block] of this.blocks) {
            const entry = blocks.find((each) => each.id === id);
            if (block.draw) {
                block.draw({from, to, now});
                if (this.range.is_live)
                    block.forget_before(from - 30);
                continue;
            }
            const sample = this.shown.get(entry.subject);
            set_text(block.moment, sample && (is_away || !this.range.is_live) ? `as of ${clock_text(time_of(sample))}` : "");
        }
        this.show_notice(from, is_away);
    }

    show_keys(is_away) {
        for (const {figure, value, element: box} of this.keys) {
            const sample = this.shown.get(figure.subject);
            const has_it = Boolean(sample?.rows.length);
            const known = has_it && !(is_away && this.range.is_live) ? figure.of(sample.rows) : null;
            box.classList.toggle("absent", !has_it);
            set_text(value, format_value(known, figure.unit));
            value.classList.toggle("alarm", known !== null && Boolean(figure.warn?.(known)));
            if (figure.meter)
                show_meter(value, known);
        }
    }

    show_notice(from, is_away) {
        const {text} = this.known.of(this.host);
        const starts = [...this.blocks.values()].flatMap((each) => each.track?.times[0] ?? []);
        const first = Math.min(...starts);
        if (this.failure)
            set_text(this.notice, this.failure);
        else if (is_away && this.range.is_live)
            set_text(this.notice, this.known.connected ? text : "");
        else if (!this.range.is_live && !starts.length)
            set_text(this.notice, "There are no figures of this time.");
        else if (first > from + 0.1 * this.range.span)
            set_text(this.notice, `Figures begin at ${date_text(first)} ${clock_text(first)}.`);
        else
            set_text(this.notice, "");
        this.notice.classList.toggle("alarm", is_away && this.range.is_live);
    }

    recolour() {
        for (const block of this.blocks.values())
            block.recolour?.();
        this.redraw();
    }

    leave() {
        ++this.loads;
        for (const block of this.blocks.values())
            block.leave?.();
    }
}
