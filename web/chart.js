// A block that draws lines over time: the chart, its legend with the values at the cursor, and a table
// of the same values for who does not see the chart.

import {colour_name, resolve_colour, translucent} from "./colours.js";
import {element, set_text} from "./element.js";
import {clock_text, date_text, format_marks, format_value} from "./format.js";
import {line_set} from "./lines.js";
import {first_from, track} from "./track.js";

const dashes = [[], [5, 3], [2, 2]]; // by which of a row's fields a line is
const day_s = 86400;

/// Sums each column up with those before it; what is unknown adds nothing and is drawn as a gap.
function stack(columns) {
    const sums = new Array(columns[0]?.length ?? 0).fill(0);
    return columns.map((column) => column.map((value, i) => value === null ? null : (sums[i] += value)));
}

/// The least round number that is not below `value`: 1, 2 or 5 times a power of ten, or of two.
function round_up(value, unit) {
    if (unit.startsWith("bytes"))
        return 2 ** Math.ceil(Math.log2(value));
    const power = 10 ** Math.floor(Math.log10(value));
    return [1, 2, 3, 4, 5, 6, 8, 10].find((times) => times * power >= value) * power;
}

const byte_steps = Array.from({length: 50}, (_, i) => 2 ** i);

function time_marks(_chart, marks, _axis, _space, step) {
    return marks.map((mark) => step >= day_s ? date_text(mark).slice(5) : clock_text(mark, step < 60));
}

export class chart_block {
    /// `declared` is the subject's declaration. `page` has the functions zoom(from, to), pan(part),
    /// scale(factor), live() and say(text), and the cursor's name `cursor_group`.
    constructor(block, declared, page) {
        this.block = block;
        this.page = page;
        const labels = declared.fields.filter((each) => each.kind === "label").map((each) => each.name);
        this.lines = new line_set(block.chart, labels);
        this.track = new track((rows) => this.lines.values_of(rows));
        const first_field = block.chart.field ?? Object.keys(block.chart.fields ?? {})[0];
        const field = declared.fields.find((each) => each.name === first_field);
        this.unit = block.chart.unit ?? field?.unit ?? "";
        this.drawn = null; // names of the lines that the chart has
        this.ever_busy = new Set();
        this.items = new Map();
        this.make_elements(field?.help ?? declared.help);
    }

    make_elements(help) {
        const {id, title} = this.block;
        this.moment = element("span", {class: "moment"});
        this.legend = element("ul", {class: "legend", id: `legend-${id}`});
        this.plot = element("div", {
            class: "plot", tabindex: "0", role: "application", "aria-roledescription": "chart",
            "aria-label": `${title}. Arrow keys read values, shift with arrows moves in time, plus and minus ` +
                "zoom, Home goes to now.",
            "aria-describedby": `legend-${id}`, onkeydown: (event) => this.key(event),
            onwheel: (event) => this.wheel(event),
        });
        this.body = element("tbody");
        this.details = element("div", {
            class: "scroll values", id: `values-${id}`, hidden: true, tabindex: "0", role: "region",
            "aria-label": `${title}: values`,
        },
        element("table", {}, element("caption", {class: "unseen", text: `${title} in the time shown`}),
            element("thead", {}, element("tr", {}, ...["Line", "Last", "Least", "Mean", "Greatest"].map(
                (text, i) => element("th", {scope: "col", class: i ? "number" : null, text})))),
            this.body));
        const toggle = element("button", {
            type: "button", class: "quiet", text: "Table", title: `${title} as a table`, "aria-expanded": "false",
            "aria-controls": this.details.id, onclick: () => {
                this.details.hidden = !this.details.hidden;
                this.plot.hidden = this.legend.hidden = !this.details.hidden;
                toggle.setAttribute("aria-expanded", String(!this.details.hidden));
                this.page.redraw();
            },
        });
        this.element = element("section", {class: "block", id: `block-${id}`, "aria-labelledby": `title-${id}`},
            element("div", {class: "heading"}, element("h2", {id: `title-${id}`, text: title, title: help}),
                this.moment, toggle),
            this.plot, this.legend, this.details);
        this.in_view = true;
        new IntersectionObserver((seen) => {
            this.in_view = seen.at(-1).isIntersecting;
            if (this.in_view)
                this.page.redraw();
        }, {rootMargin: "200px"}).observe(this.plot);
        new ResizeObserver(() => this.page.redraw()).observe(this.plot);
    }

    /// Takes the samples of the time shown, or null before they have come.
    load(samples) {
        this.ever_busy.clear();
        this.track.load(samples);
        this.take_top(samples.at(-1));
    }

    show(sample) {
        this.track.append(sample);
        this.take_top(sample);
    }

    take_top(sample) {
        const {top} = this.block.chart;
        this.top = typeof top === "string" ? sample?.rows[0]?.[top] ?? this.top : top;
    }

    /// Draws the time from `from` to `to`; `now` is the end of what can be known.
    draw({from, to, now}) {
        const as_table = !this.details.hidden;
        if (!as_table && (!this.in_view || !this.plot.clientWidth))
            return;
        const {times, lines, step} = this.track;
        const first = Math.max(0, first_from(times, from) - 1);
        const end = first_from(times, to) + 1;
        this.times = times.slice(first, end);
        const cut = new Map([...lines].map(([name, column]) => [name, column.slice(first, end)]));
        const names = [...cut.keys()].filter((name) => this.is_drawn(name, cut.get(name)));
        this.columns = names.map((name) => cut.get(name));
        if (this.drawn === null || names.join("\n") !== this.drawn.join("\n"))
            this.rebuild(names, cut.size - names.length);
        this.is_current = this.times.length > 0 && Math.min(now, to) - this.times.at(-1) < 2.5 * step + 1.5;
        if (as_table) {
            this.show_table(from, to);
            return;
        }
        const data = [this.times, ...(this.block.chart.stacked ? stack(this.columns) : this.columns)];
        const {clientWidth: width, clientHeight: height} = this.plot;
        this.uplot.batch(() => {
            if (width !== this.uplot.width || height !== this.uplot.height)
                this.uplot.setSize({width, height});
            this.uplot.setData(data, false);
            this.uplot.setScale("x", {min: from, max: to});
        });
        // The cursor stays where it is, over what is now another point.
        const {left, top} = this.uplot.cursor;
        if (left >= 0)
            this.uplot.setCursor({left, top}, false);
        this.show_values();
    }

    is_drawn(name, column) {
        if (!this.block.chart.hide_idle || this.ever_busy.has(name))
            return true;
        if (!column.some((value) => value > 0))
            return false;
        this.ever_busy.add(name);
        return true;
    }

    rebuild(names, idle) {
        this.drawn = names;
        this.uplot?.destroy();
        this.legend.replaceChildren();
        this.body.replaceChildren();
        this.items.clear();
        const series = names.map((name) => this.make_line(name));
        if (idle)
            this.legend.append(element("li", {class: "idle", text: `${idle} idle`}));
        this.uplot = new uPlot(this.options(series), [[], ...names.map(() => [])], this.plot);
    }

    make_line(name) {
        const look = this.lines.looks.get(name);
        const variable = colour_name(look.field, look.row_number);
        const colour = resolve_colour(variable);
        // Rows beyond the palette repeat its colours with other dashes.
        const dash = dashes[(look.field_number * !this.block.chart.stacked *
            Boolean(this.block.chart.each_row) + Math.floor(look.row_number / 10)) % dashes.length];
        const value = element("b");
        const swatch = element("i", {class: dash.length ? "swatch dashed" : "swatch", "aria-hidden": "true"});
        swatch.style.borderColor = `var(${variable})`;
        this.legend.append(element("li", {}, swatch, element("span", {class: "name", text: name, title: name}), value));
        const cells = Array.from({length: 4}, () => element("td", {class: "number"}));
        this.body.append(element("tr", {}, element("th", {scope: "row", text: name}), ...cells));
        this.items.set(name, {value, cells});
        return {
            label: name, stroke: colour, width: this.block.chart.stacked ? 1 : 1.5, dash, points: {show: false},
            fill: this.block.chart.stacked ? translucent(colour, 0.75) : undefined,
        };
    }

    options(series) {
        const style = getComputedStyle(this.plot);
        const axis = {
            stroke: resolve_colour("--faint"), font: `${style.fontSize} ${style.fontFamily}`,
            grid: {stroke: resolve_colour("--grid"), width: 1}, ticks: {show: false},
        };
        const em = parseFloat(style.fontSize);
        return {
            width: this.plot.clientWidth, height: this.plot.clientHeight, legend: {show: false},
            padding: [em / 2, em / 2, 0, 0], series: [{}, ...series],
            bands: this.block.chart.stacked ? series.slice(1).map((_, i) => ({series: [i + 2, i + 1]})) : [],
            scales: {x: {time: true}, y: {range: (_chart, least, greatest) => this.range(least, greatest)}},
            axes: [
                {...axis, values: time_marks, size: 2 * em, gap: 3, space: 6 * em},
                {
                    ...axis, size: 6 * em, gap: 4, space: 2.2 * em,
                    values: (_chart, marks) => format_marks(marks, this.unit),
                    ...(this.unit.startsWith("bytes") ? {incrs: byte_steps} : {}),
                },
            ],
            cursor: {
                y: false, points: {size: 5}, drag: {x: true, y: false, setScale: false},
                sync: {
                    key: this.page.cursor_group, scales: ["x", null], setSeries: false,
                    filters: {pub: (type) => type === "mousemove" || type === "mouseleave"},
                },
                bind: {dblclick: () => () => this.page.live()},
            },
            hooks: {setCursor: [() => this.show_values()], setSelect: [(chart) => this.select(chart)]},
        };
    }

    range(least, greatest) {
        if (this.top)
            return [0, this.top];
        if (greatest === null || greatest === undefined)
            return [0, this.block.chart.least_top ?? 1];
        if (this.block.chart.floor === "auto")
            return [Math.floor((least - 1) / 5) * 5, Math.ceil((greatest + 1) / 5) * 5];
        return [0, round_up(Math.max(greatest * 1.05, this.block.chart.least_top ?? 0, 1e-9), this.unit)];
    }

    select(chart) {
        const {left, width} = chart.select;
        if (width < 5)
            return;
        const [from, to] = [left, left + width].map((at) => chart.posToVal(at, "x"));
        chart.setSelect({left: 0, top: 0, width: 0, height: 0}, false);
        this.page.zoom(from, to);
    }

    /// Shows the values at the cursor, or the newest ones if there is none.
    show_values() {
        const at = this.uplot?.cursor.idx ?? null;
        const i = at ?? this.times.length - 1;
        set_text(this.moment, at === null || !this.times.length ? "" : clock_text(this.times[i]));
        this.drawn.forEach((name, line) => {
            const known = at !== null || this.is_current;
            set_text(this.items.get(name).value, format_value(known ? this.columns[line][i] : null, this.unit));
        });
    }

    show_table(from, to) {
        const inside = (_, i) => this.times[i] >= from && this.times[i] <= to;
        this.drawn.forEach((name, line) => {
            const column = this.columns[line];
            const known = column.filter(inside).filter((value) => value !== null);
            const mean = known.length ? known.reduce((a, b) => a + b, 0) / known.length : null;
            const shown = [
                this.is_current ? column.at(-1) : null, known.length ? Math.min(...known) : null, mean,
                known.length ? Math.max(...known) : null,
            ];
            this.items.get(name).cells.forEach((cell, i) => set_text(cell, format_value(shown[i], this.unit)));
        });
    }

    key(event) {
        const sign = {ArrowLeft: -1, ArrowRight: 1}[event.key];
        const actions = {
            "+": () => this.page.scale(0.5), "-": () => this.page.scale(2), Home: () => this.page.live(),
            Escape: () => this.uplot.setCursor({left: -10, top: -10}, true, true),
        };
        if (sign && event.shiftKey)
            this.page.pan(sign / 4);
        else if (sign)
            this.move_cursor(sign * (event.ctrlKey ? 10 : 1));
        else if (actions[event.key] && !event.ctrlKey && !event.altKey && !event.metaKey)
            actions[event.key]();
        else
            return;
        event.preventDefault();
    }

    move_cursor(steps) {
        if (!this.times.length)
            return;
        const {min, max} = this.uplot.scales.x;
        const first = first_from(this.times, min);
        const last = first_from(this.times, max) - 1;
        const at = Math.min(last, Math.max(first, (this.uplot.cursor.idx ?? last + (steps < 0)) + steps));
        this.uplot.setCursor({left: this.uplot.valToPos(this.times[at], "x"), top: 1}, true, true);
        this.page.say(`${clock_text(this.times[at])}: ` + this.drawn.map(
            (name, line) => `${name} ${format_value(this.columns[line][at], this.unit)}`).join(", "));
    }

    // Sideways only: a wheel that turns the page must go on doing so.
    wheel(event) {
        if (Math.abs(event.deltaX) <= Math.abs(event.deltaY))
            return;
        event.preventDefault();
        this.page.pan(event.deltaX / this.plot.clientWidth);
    }

    /// Draws anew in the colours that hold now.
    recolour() {
        this.drawn = null;
    }

    /// Forgets what no longer can be shown.
    forget_before(time) {
        this.track.forget_before(time);
    }

    leave() {
        this.uplot?.destroy();
    }
}
