// A block that is a table, put in order by any of its columns.

import {element, set_text} from "./element.js";
import {format_value, unknown_text} from "./format.js";
import {is_shown, row_name} from "./lines.js";

const rows_max = 300; // rows beyond are counted

/// Order of two values: numbers by size, texts as a reader counts ("eth2" before "eth10").
function compare(a, b) {
    if (typeof a === "number" && typeof b === "number")
        return a - b;
    return String(a).localeCompare(String(b), "en", {numeric: true});
}

export class table_block {
    constructor(block, declared) {
        this.block = block;
        this.labels = declared.fields.filter((each) => each.kind === "label").map((each) => each.name);
        this.columns = block.table.map((column) => {
            const field = declared.fields.find((each) => each.name === column.field);
            const is_text = field?.kind === "text" || (field?.kind === "label" && !column.number);
            return {...column, unit: field?.unit ?? "", help: field?.help ?? "", is_text};
        });
        const by = this.columns.find((each) => each.field === block.sort) ?? this.columns[0];
        this.order = {by, descending: !by.is_text};
        this.rows = [];
        this.make_elements();
    }

    make_elements() {
        const {id, title, wide} = this.block;
        this.headings = this.columns.map((column) => element("th", {scope: "col", class: column.is_text ? null : "number"},
            element("button", {type: "button", title: column.help, text: column.title, onclick: () => this.sort_by(column)})));
        this.body = element("tbody");
        this.moment = element("span", {class: "moment"});
        this.more = element("p", {class: "more"});
        this.element = element("section", {
            class: wide ? "block wide" : "block", id: `block-${id}`, "aria-labelledby": `title-${id}`,
        },
        element("div", {class: "heading"}, element("h2", {id: `title-${id}`, text: title}), this.moment),
        element("div", {class: "scroll rows", tabindex: "0", role: "region", "aria-labelledby": `title-${id}`},
            element("table", {},
                element("caption", {class: "unseen", text: `${title}; the headings sort the table`}),
                element("thead", {}, element("tr", {}, ...this.headings)), this.body)),
        this.more);
        this.mark_order();
    }

    sort_by(column) {
        const again = this.order.by === column;
        this.order = {by: column, descending: again ? !this.order.descending : !column.is_text && !column.number};
        this.mark_order();
        this.draw_rows();
    }

    mark_order() {
        this.columns.forEach((column, i) => {
            if (column === this.order.by)
                this.headings[i].setAttribute("aria-sort", this.order.descending ? "descending" : "ascending");
            else
                this.headings[i].removeAttribute("aria-sort");
        });
    }

    show(sample) {
        this.element.dataset.time = sample.time;
        this.rows = sample.rows.filter((row) => is_shown(row, this.block));
        this.draw_rows();
    }

    load(samples) {
        this.show(samples.at(-1) ?? {time: "", rows: []});
    }

    draw_rows() {
        const {by, descending} = this.order;
        const sorted = [...this.rows].sort((a, b) => {
            const [left, right] = [a[by.field], b[by.field]];
            if (left === null || right === null) // what is unknown stands last in either order
                return (left === null) - (right === null);
            return (descending ? -1 : 1) * compare(left, right) ||
                compare(row_name(a, this.labels), row_name(b, this.labels));
        });
        const shown = sorted.slice(0, rows_max);
        while (this.body.rows.length > shown.length)
            this.body.lastElementChild.remove();
        while (this.body.rows.length < shown.length)
            this.body.append(element("tr", {}, ...this.columns.map((column) =>
                element("td", {class: column.is_text ? "text" : "number"}))));
        shown.forEach((row, i) => {
            this.fill(this.body.rows[i], row);
            this.body.rows[i].classList.toggle("away", row.is_away === true);
        });
        set_text(this.more, sorted.length > shown.length ? `+${sorted.length - shown.length} more` : "");
    }

    fill(to, row) {
        this.columns.forEach((column, i) => {
            const cell = to.cells[i];
            const value = row[column.field];
            if (column.draw) {
                column.draw(cell, row);
                return;
            }
            const text = format_value(value, column.unit);
            set_text(cell, text);
            cell.classList.toggle("unknown", text === unknown_text);
            cell.classList.toggle("nothing", value === 0);
            if (column.is_text)
                cell.title = text;
            cell.classList.toggle("alarm", value !== null && column.warn?.(value) === true);
            if (column.meter)
                show_meter(cell, value);
        });
    }
}

/// Draws a percentage as a bar under the cell's text.
export function show_meter(cell, percent) {
    cell.classList.add("meter");
    cell.style.setProperty("--part", `${typeof percent === "number" ? Math.min(100, Math.max(0, percent)) : 0}%`);
}
