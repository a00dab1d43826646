// All boards, a row for each: whether it answers, and its key figures.

import {ask_history} from "./api.js";
import {resolve_colour} from "./colours.js";
import {element, set_text} from "./element.js";
import {key_figures, key_subjects} from "./key_figures.js";
import {table_block} from "./table.js";
import {time_of} from "./track.js";

const trend_length = 60; // samples, one a second
const loaded_max = 12; // boards whose last minute is asked for: that of more would be megabytes

/// Draws values from 0 to 100 as a line, the newest at the right; what is not known is a gap.
function draw_trend(canvas, values, colour) {
    const scale = devicePixelRatio;
    const [width, height] = [canvas.clientWidth * scale, canvas.clientHeight * scale];
    if (canvas.width !== width || canvas.height !== height)
        Object.assign(canvas, {width, height});
    const context = canvas.getContext("2d");
    context.clearRect(0, 0, width, height);
    context.strokeStyle = colour;
    context.lineWidth = scale;
    context.beginPath();
    values.forEach((value, i) => {
        if (value === null)
            return;
        const x = width * (i + trend_length - values.length) / (trend_length - 1);
        const y = (height - scale) * (1 - value / 100) + scale / 2;
        if (i === 0 || values[i - 1] === null)
            context.moveTo(x, y);
        else
            context.lineTo(x, y);
    });
    context.stroke();
}

export class overview {
    constructor(known, address_of) {
        this.known = known;
        this.address_of = address_of;
        this.subjects = key_subjects;
        this.trends = new Map(); // CPU usage by host
        const figures = key_figures.map((each) => ({...each, field: each.id}));
        const declared = {
            fields: [
                {name: "host", kind: "label", help: "Address of the board's server"},
                {name: "state", kind: "text", help: "Whether the board answers"},
                ...key_figures.map((each) => ({name: each.id, kind: "gauge", unit: each.unit, help: each.help})),
            ],
        };
        this.table = new table_block({
            id: "boards", title: "Boards", wide: true, sort: "host",
            table: [
                {field: "host", title: "Board", draw: (cell, row) => this.draw_link(cell, row)},
                {field: "state", title: "State"}, ...figures,
                {field: "cpu", title: "CPU, last minute", draw: (cell, row) => this.draw_row_trend(cell, row)},
            ],
        }, declared);
        this.element = element("div", {class: "overview"}, this.table.element);
        this.load();
    }

    /// Asks for what is known of the last minute, one board after the other.
    async load() {
        for (const host of [...this.known.all.keys()].slice(0, loaded_max)) {
            const now = this.known.now();
            const samples = await ask_history(host, "cpu", now - trend_length, now, trend_length).catch(() => []);
            const usage = key_figures.find((each) => each.id === "cpu");
            const trend = new Array(trend_length).fill(null);
            for (const each of samples)
                trend[trend_length - 1 - Math.max(0, Math.floor(now - time_of(each)))] = usage.of(each.rows);
            this.trends.set(host, trend.slice(-trend_length));
        }
    }

    draw_link(cell, {host}) {
        const link = cell.firstElementChild ?? cell.appendChild(element("a"));
        set_text(link, host);
        link.href = this.address_of(host);
    }

    draw_row_trend(cell, {host}) {
        const canvas = cell.firstElementChild ?? cell.appendChild(element("canvas", {class: "trend", "aria-hidden": "true"}));
        draw_trend(canvas, this.trends.get(host) ?? [], this.colour);
    }

    sample() {}

    tick() {
        this.colour ??= resolve_colour("--user");
        const rows = [...this.known.all.keys()].map((host) => {
            const state = this.known.state_of(host);
            const row = {host, state: state.text, is_away: state.kind === "bad", ...this.known.key_values(host)};
            const trend = this.trends.get(host) ?? [];
            this.trends.set(host, [...trend, row.cpu].slice(-trend_length));
            return row;
        });
        this.table.rows = rows;
        this.table.draw_rows();
    }

    recolour() {
        this.colour = undefined;
        this.tick();
    }

    leave() {}
}
