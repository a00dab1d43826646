// Values as text. What is not known is a dash.

export const unknown_text = "–";

const scales = {
    bytes: {base: 1024, names: ["B", "KiB", "MiB", "GiB", "TiB", "PiB"]},
    bytes_per_second: {base: 1024, names: ["B/s", "KiB/s", "MiB/s", "GiB/s", "TiB/s"]},
    hertz: {base: 1000, names: ["Hz", "kHz", "MHz", "GHz"]},
    seconds: {base: 1, names: ["s"]},
    percent: {base: 1, names: ["%"]},
    celsius: {base: 1, names: ["°C"]},
    frames_per_second: {base: 1, names: ["fps"]},
    per_second: {base: 1, names: ["/s"]},
};
const counted = {base: 1, names: [""]}; // of what has no unit

/// The step of a unit's scale that suits `value`: {factor, name}.
function step_for(value, unit) {
    const {base, names} = scales[unit] ?? counted;
    let factor = 1;
    let i = 0;
    while (base > 1 && i + 1 < names.length && Math.abs(value) / factor >= base) {
        factor *= base;
        ++i;
    }
    return {factor, name: names[i], first: i === 0};
}

/// `value` in base units as text with its unit; a number of fixed decimals, so that columns align.
export function format_value(value, unit) {
    if (value === null || value === undefined)
        return unknown_text;
    if (typeof value === "string")
        return value;
    const {factor, name, first} = step_for(value, unit);
    const decimals = !scales[unit] || (first && unit.startsWith("bytes")) ? 0
        : unit === "hertz" ? 2 : 1;
    const number = (value / factor).toFixed(decimals);
    return name ? `${number}\u00a0${name}` : number;
}

/// Text for the marks of an axis, all in the unit of the greatest; no more decimals than they need.
export function format_marks(values, unit) {
    const greatest = Math.max(...values.map(Math.abs));
    const {factor, name} = step_for(greatest, unit);
    return values.map((value) => `${Number((value / factor).toPrecision(4))}${name ? " " + name : ""}`);
}

const two = (number) => String(number).padStart(2, "0");

/// Seconds since the epoch as local time of day.
export function clock_text(seconds, with_seconds = true) {
    const at = new Date(seconds * 1000);
    return `${two(at.getHours())}:${two(at.getMinutes())}` + (with_seconds ? `:${two(at.getSeconds())}` : "");
}

/// Seconds since the epoch as a local date.
export function date_text(seconds) {
    const at = new Date(seconds * 1000);
    return `${at.getFullYear()}-${two(at.getMonth() + 1)}-${two(at.getDate())}`;
}

/// A length of time: 4 s, 3 min, 2 h, 5 d.
export function duration_text(seconds) {
    const whole_seconds = Math.max(0, Math.floor(seconds));
    if (whole_seconds < 120)
        return `${whole_seconds}\u00a0s`;
    if (whole_seconds < 7200)
        return `${Math.floor(whole_seconds / 60)}\u00a0min`;
    if (whole_seconds < 172800)
        return `${Math.floor(whole_seconds / 3600)}\u00a0h`;
    return `${Math.floor(whole_seconds / 86400)}\u00a0d`;
}
