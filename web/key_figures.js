// The few figures that sum a board up: columns of the overview, and the strip above a board's blocks.
// `of` makes a value of the newest sample's rows; null is unknown. `warn` says when it asks for a look.

import {pipe_counts} from "./pipes.js";

/// Sum of what is known of these fields of all rows; null if nothing is.
export function sum(rows, ...fields) {
    const known = rows.flatMap((row) => fields.map((field) => row[field])).filter((value) => value !== null);
    return known.length ? known.reduce((a, b) => a + b, 0) : null;
}

/// The greatest of what is known; null if nothing is.
function greatest(rows, field) {
    const known = rows.map((row) => row[field]).filter((value) => value !== null);
    return known.length ? Math.max(...known) : null;
}

export const key_figures = [
    {
        id: "cpu", title: "CPU", subject: "cpu", unit: "percent", meter: true,
        help: "Share of time that all CPUs are not idle",
        of: (rows) => rows.find((row) => row.cpu === "all")?.usage_percent ?? null,
    },
    {
        id: "memory", title: "Memory", subject: "mem", unit: "percent", meter: true,
        help: "Share of memory that is not available",
        of: (rows) => rows[0]?.used_percent ?? null, warn: (value) => value >= 90,
    },
    {
        id: "nnu", title: "Accelerator", subject: "nnu", unit: "percent", meter: true,
        help: "Load of the busiest core of the accelerator",
        of: (rows) => greatest(rows, "usage_percent"),
    },
    {
        id: "hottest", title: "Hottest", subject: "thermal", unit: "celsius",
        help: "Temperature of the hottest zone",
        of: (rows) => greatest(rows, "temperature_celsius"), warn: (value) => value >= 95,
    },
    {
        id: "pipes", title: "Pipes", subject: "fps", unit: "",
        help: "Camera pipes; ▼ with how many of them lose frames",
        of: (rows) => {
            const {count, losing} = pipe_counts(rows);
            return losing ? `${count} ▼${losing}` : count;
        },
        warn: (value) => typeof value === "string",
    },
    {
        id: "disk", title: "Disks", subject: "disk", unit: "bytes_per_second",
        help: "Bytes read and written in a second, all devices",
        of: (rows) => sum(rows, "read_bytes_per_second", "written_bytes_per_second"),
    },
    {
        id: "net", title: "Network", subject: "net", unit: "bytes_per_second",
        help: "Bytes received and sent in a second, all devices",
        of: (rows) => sum(rows, "bytes_per_second"),
    },
];

/// Subjects that the figures come from.
export const key_subjects = [...new Set(key_figures.map((each) => each.subject))];
