// Which lines a chart draws: from the rows of a sample to a value for each line, by names that rows
// keep however they are ordered.

/// Whether a block shows a row.
export function is_shown(row, {only = {}, except = {}}) {
    return Object.entries(only).every(([label, value]) => row[label] === value) &&
        !Object.entries(except).some(([label, value]) => row[label] === value);
}

/// The labels of a row, joined; `labels` are the names of the subject's label fields.
export const row_name = (row, labels) => labels.map((label) => row[label]).join(" ");

export class line_set {
    /// `labels` are the names of the subject's label fields.
    constructor(chart, labels) {
        this.chart = chart;
        this.labels = labels;
        this.looks = new Map(); // by the line's name: {field, row_number, field_number}
        this.row_numbers = new Map();
    }

    /// A Map from the name of each line to its value in these rows.
    values_of(rows) {
        const {values, fields, field, each_row, prefix = ""} = this.chart;
        if (values) {
            const made = values(rows);
            for (const name of made.keys())
                this.look(name, "", name, 0);
            return made;
        }
        const made = new Map();
        const shown = rows.filter((row) => is_shown(row, this.chart));
        if (fields && !each_row) {
            Object.entries(fields).forEach(([key, title], i) => {
                made.set(title, shown[0]?.[key] ?? null);
                this.look(title, key, title, i);
            });
            return made;
        }
        for (const row of shown) {
            const name = prefix + row_name(row, this.labels);
            if (field) {
                made.set(name, row[field]);
                this.look(name, field, name, 0);
                continue;
            }
            Object.entries(fields).forEach(([key, title], i) => {
                made.set(`${name} ${title}`, row[key]);
                this.look(`${name} ${title}`, key, name, i);
            });
        }
        return made;
    }

    // A row keeps its colour for as long as the page is open, also if others come and go.
    look(name, field, row, field_number) {
        if (this.looks.has(name))
            return;
        if (!this.row_numbers.has(row))
            this.row_numbers.set(row, this.row_numbers.size);
        this.looks.set(name, {field, row_number: this.row_numbers.get(row), field_number});
    }
}
