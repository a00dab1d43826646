// The figures of one chart over time: a column of times, and a column of values for each line.

/// Position of the first time that is not before `time`.
export function first_from(times, time) {
    let low = 0;
    let high = times.length;
    while (low < high) {
        const middle = (low + high) >> 1;
        if (times[middle] < time)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

/// Seconds since the epoch at which a sample was taken.
export const time_of = (sample) => Date.parse(sample.time) / 1000;

export class track {
    /// `values_of` makes of a sample's rows a Map from the line's name to its value; null is unknown.
    constructor(values_of) {
        this.values_of = values_of;
        this.clear();
    }

    clear() {
        this.times = [];
        this.lines = new Map();
        this.step = 1; // seconds between samples
    }

    /// Replaces all by `samples`, which are in ascending time.
    load(samples) {
        this.clear();
        const times = samples.map(time_of);
        const steps = times.slice(1).map((time, i) => time - times[i]).sort((a, b) => a - b);
        if (steps.length)
            this.step = steps[steps.length >> 1];
        for (const sample of samples)
            this.append(sample, this.step);
    }

    /// Appends a sample that is newer than all there are; others are left out.
    append(sample, step = sample.interval_s ?? this.step) {
        const time = time_of(sample);
        const last = this.times.at(-1);
        if (last !== undefined && time <= last)
            return;
        // Without a point between them a line would join what was before an outage and after it.
        if (last !== undefined && time - last > 2.5 * Math.max(step, this.step) + 0.5)
            this.add(last + this.step, new Map());
        this.add(time, this.values_of(sample.rows));
    }

    add(time, values) {
        this.times.push(time);
        for (const name of values.keys())
            if (!this.lines.has(name))
                this.lines.set(name, new Array(this.times.length - 1).fill(null));
        for (const [name, column] of this.lines)
            column.push(values.get(name) ?? null);
    }

    /// Forgets what was before `time`.
    forget_before(time) {
        const count = first_from(this.times, time);
        if (count < 100) // moving the columns costs more than it frees
            return;
        this.times.splice(0, count);
        for (const column of this.lines.values())
            column.splice(0, count);
    }
}
