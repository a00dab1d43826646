// What a board's page shows: one entry for each block, in the order of the page. A block names the
// subject and the fields that it draws; units and help of a field come from the subject's declaration.
//
//   id, title     name of the block for the program and for people
//   subject       whose samples it shows
//   chart         lines over time:
//     fields      a line for each field, of the rows that `only` allows; or
//     field       a line for each row, or for each of several `fields` and row with `each_row`
//     only        rows to draw, as {label: value}; `except` the opposite
//     stacked     whether the lines add up
//     top         end of the axis, or the field that holds it; otherwise it follows the values
//     floor       "auto": the axis need not start at 0
//     hide_idle   whether lines without anything but 0 are only counted
//   table         columns: {field, title}; `number`: a label that is a number; `meter`: with a bar;
//                 `warn(value)`: what asks for a look; `draw(cell, row)` fills the cell itself. `sort` is the field that orders it at first
//   view          a block of another kind, by its name in views.js
//   wide          whether it takes the room of two

import {set_text} from "./element.js";
import {format_value} from "./format.js";
import {sum} from "./key_figures.js";
import {passages} from "./pipes.js";

export const blocks = [
    {
        id: "cpu", title: "CPU by mode", subject: "cpu",
        chart: {
            fields: {
                user_percent: "user", nice_percent: "nice", system_percent: "system", iowait_percent: "iowait",
                irq_percent: "irq", softirq_percent: "softirq", steal_percent: "steal", guest_percent: "guest",
            },
            only: {cpu: "all"}, stacked: true, top: 100,
        },
    },
    {
        id: "cores", title: "CPU by core", subject: "cpu",
        chart: {field: "usage_percent", except: {cpu: "all"}, prefix: "cpu", top: 100},
    },
    {
        id: "memory", title: "Memory", subject: "mem",
        chart: {
            fields: {anon_bytes: "processes", slab_bytes: "kernel", file_bytes: "files"},
            stacked: true, top: "total_bytes",
        },
    },
    {
        id: "nnu", title: "Accelerator cores", subject: "nnu",
        chart: {field: "usage_percent", top: 100},
    },
    {
        id: "thermal", title: "Temperatures", subject: "thermal",
        chart: {field: "temperature_celsius", prefix: "zone ", floor: "auto"},
    },
    {
        id: "pipes", title: "Camera pipes: frames out", subject: "fps",
        chart: {values: frames_out, unit: "frames_per_second"},
    },
    {id: "passages", title: "Camera pipes: in and out of each block", subject: "fps", view: "pipes"},
    {
        id: "drops", title: "Pyramid scalers: frames dropped", subject: "pym",
        chart: {values: drops, unit: "per_second", least_top: 5},
    },
    {
        id: "scalers", title: "Pyramid scalers now", subject: "pym",
        table: [
            {field: "instance", title: "Scaler"},
            {field: "width_pixels", title: "Picture", draw: show_size},
            {field: "hardware_drops_per_second", title: "HW"},
            {field: "software_drops_per_second", title: "SW"},
            {field: "isp_drops_per_second", title: "ISP"},
        ],
        sort: "instance",
    },
    {
        id: "disk", title: "Disks", subject: "disk",
        chart: {
            fields: {read_bytes_per_second: "read", written_bytes_per_second: "written"},
            each_row: true, hide_idle: true, least_top: 64 * 1024,
        },
    },
    {
        id: "net", title: "Network", subject: "net",
        chart: {field: "bytes_per_second", hide_idle: true, least_top: 64 * 1024},
    },
    {
        id: "processes", title: "Busiest processes", subject: "top", wide: true,
        table: [
            {field: "pid", title: "PID", number: true},
            {field: "command", title: "Command"},
            {field: "state", title: "S"},
            {field: "usage_percent", title: "CPU"},
            {field: "nnu_percent", title: "NNU"},
            {field: "io_bytes_per_second", title: "I/O"},
            {field: "network_bytes_per_second", title: "Network"},
            {field: "rss_bytes", title: "Memory"},
        ],
        sort: "usage_percent",
    },
    {
        id: "interrupts", title: "Interrupts", subject: "irq", only: {cpu: "all"}, wide: true,
        table: [
            {field: "irq", title: "IRQ", number: true},
            {field: "name", title: "Name"},
            {field: "controller", title: "Controller"},
            {field: "interrupts_per_second", title: "Rate"},
            {field: "interrupts", title: "Since boot"},
        ],
        sort: "interrupts_per_second",
    },
    {
        id: "filesystems", title: "File systems", subject: "part",
        table: [
            {field: "filesystem", title: "File system"},
            {field: "used_percent", title: "Used", meter: true},
            {field: "available_bytes", title: "Available"},
            {field: "size_bytes", title: "Size"},
        ],
        sort: "used_percent",
    },
    {
        id: "disks", title: "Disks now", subject: "disk",
        table: [
            {field: "device", title: "Device"},
            {field: "read_bytes_per_second", title: "Read"},
            {field: "written_bytes_per_second", title: "Written"},
        ],
        sort: "written_bytes_per_second",
    },
    {
        id: "gdc", title: "Distortion correction", subject: "gdc",
        chart: {field: "output_fps", prefix: "pipe "},
    },
    {
        id: "ion", title: "Ion heaps", subject: "ion",
        chart: {field: "used_bytes"},
    },
    {
        id: "freq", title: "CPU frequencies", subject: "freq",
        chart: {field: "frequency_hertz", prefix: "cpu"},
    },
];

// What leaves the last block that each pipe passes.
function frames_out(rows) {
    const values = new Map();
    for (const [pipe, way] of passages(rows))
        values.set(`pipe ${pipe}`, way.at(-1).output);
    return values;
}

// What each scaler drops for any reason.
function drops(rows) {
    const reasons = ["hardware_drops_per_second", "software_drops_per_second", "isp_drops_per_second"];
    return new Map(rows.map((row) => [row.instance, sum([row], ...reasons)]));
}

function show_size(cell, {width_pixels: width, height_pixels: height}) {
    set_text(cell, `${format_value(width, "")}×${format_value(height, "")}`);
}
