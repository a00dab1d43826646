// A block that shows each camera pipe's way: frames in and out of every block, lost ones marked.

import {element, set_text} from "./element.js";
import {format_value} from "./format.js";
import {passages} from "./pipes.js";

export class pipes_block {
    constructor(block) {
        this.block = block;
        const {id, title} = block;
        this.moment = element("span", {class: "moment"});
        this.head = element("tr");
        this.body = element("tbody");
        this.element = element("section", {class: "block", id: `block-${id}`, "aria-labelledby": `title-${id}`},
            element("div", {class: "heading"}, element("h2", {id: `title-${id}`, text: title}), this.moment),
            element("div", {class: "scroll rows", tabindex: "0", role: "region", "aria-labelledby": `title-${id}`},
                element("table", {class: "pipes"},
                    element("caption", {class: "unseen", text: "Frames a second into and out of each block"}),
                    element("thead", {}, this.head), this.body)));
    }

    load(samples) {
        this.show(samples.at(-1) ?? {time: "", rows: []});
    }

    show(sample) {
        this.element.dataset.time = sample.time;
        const pipes = [...passages(sample.rows)].sort(([a], [b]) => a.localeCompare(b, "en", {numeric: true}));
        const stages = [...new Set(sample.rows.map((row) => row.block))];
        const shape = JSON.stringify([stages, pipes.map(([pipe]) => pipe)]);
        if (shape !== this.shape)
            this.rebuild(stages, pipes);
        this.shape = shape;
        pipes.forEach(([, way], i) => stages.forEach((stage, j) =>
            this.fill(this.body.rows[i].cells[j + 1], way.filter((each) => each.block === stage))));
    }

    rebuild(stages, pipes) {
        this.head.replaceChildren(...["Pipe", ...stages].map((text) => element("th", {scope: "col", text})));
        this.body.replaceChildren(...pipes.map(([pipe]) => element("tr", {},
            element("th", {scope: "row", text: pipe}), ...stages.map(() => element("td")))));
    }

    fill(cell, ways) {
        const rate = (value) => format_value(value, "");
        const text = ways.map(({input, output, lost}) =>
            `${rate(input)} › ${rate(output)}${lost > 0 ? ` ▼${rate(lost)}` : ""}`).join(", ");
        set_text(cell, text);
        cell.title = ways.map((each) => each.instance).join(", ");
        cell.classList.toggle("alarm", ways.some((each) => each.lost > 0));
    }
}
