// Colours by meaning, from the style sheet, so that charts, tables and both themes agree.

const meanings = {
    user_percent: "user", nice_percent: "nice", system_percent: "system", iowait_percent: "iowait",
    irq_percent: "irq", softirq_percent: "softirq", steal_percent: "steal", guest_percent: "guest",
    anon_bytes: "user", slab_bytes: "system", file_bytes: "iowait",
};
const palette_size = 10;

/// The variable of the style sheet for a field that has a meaning of its own, or for the row of this
/// number.
export function colour_name(field, row_number) {
    return meanings[field] ? `--${meanings[field]}` : `--line-${row_number % palette_size}`;
}

let probe;

/// The colour of a variable in the theme that holds now, as a canvas takes it.
export function resolve_colour(name) {
    if (!probe) {
        probe = document.createElement("i");
        probe.hidden = true;
        document.body.append(probe);
    }
    probe.style.color = `var(${name})`;
    return getComputedStyle(probe).color;
}

/// The same colour, let through by `opacity`.
export const translucent = (colour, opacity) => colour.replace(/^rgb\((.*)\)$/, `rgba($1, ${opacity})`);
