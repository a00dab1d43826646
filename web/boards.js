// What the page knows of each board now: whether it answers, and its newest sample of each subject.

import {duration_text} from "./format.js";
import {key_figures} from "./key_figures.js";
import {time_of} from "./track.js";

export class boards {
    constructor() {
        this.all = new Map(); // by host
        this.offset = Infinity; // of this machine's clock from the exporter's, in seconds
        this.connected = undefined; // to the exporter; undefined: not tried yet
        this.lost_at = 0; // when the connection was lost, by this machine's clock
    }

    of(host) {
        if (!this.all.has(host))
            this.all.set(host, {host, up: null, since: null, text: "", latest: new Map()});
        return this.all.get(host);
    }

    /// The exporter's time, in seconds since the epoch. The delivery that took the shortest is the
    /// best measure there is.
    now() {
        return Date.now() / 1000 - (Number.isFinite(this.offset) ? this.offset : 0);
    }

    take_sample(sample) {
        this.offset = Math.min(this.offset, Date.now() / 1000 - time_of(sample));
        this.of(sample.host).latest.set(sample.subject, sample);
    }

    /// Returns whether the board went away (false), came back (true), or neither (null)
    take_host({host, up, since, text}) {
        const board = this.of(host);
        const was_up = board.up;
        Object.assign(board, {up, since, text});
        if (up === false && was_up !== false)
            return false;
        return up === true && was_up === false ? true : null;
    }

    take_connection(is_there) {
        if (!is_there && this.connected !== false)
            this.lost_at = Date.now() / 1000;
        this.connected = is_there;
    }

    /// What a reader must know before any figure: {text, kind}, kind being good, bad or waiting.
    state_of(host) {
        if (this.connected === undefined)
            return {text: "connecting …", kind: "waiting"};
        if (!this.connected) {
            const lost = Date.now() / 1000 - this.lost_at;
            return {text: `no exporter for ${duration_text(lost)}`, kind: lost < 2 ? "waiting" : "bad"};
        }
        const {up, since} = this.of(host);
        if (up === false)
            return {text: `no answer for ${duration_text(this.now() - Date.parse(since) / 1000)}`, kind: "bad"};
        return up ? {text: "answers", kind: "good"} : {text: "not asked yet", kind: "waiting"};
    }

    /// Value of a key figure: undefined if the board has no such thing, null if it is not known.
    key_value(host, {subject, of}) {
        const sample = this.of(host).latest.get(subject);
        if (!sample?.rows.length)
            return undefined;
        return this.state_of(host).kind === "bad" ? null : of(sample.rows);
    }

    /// All key figures of a board, by id.
    key_values(host) {
        return Object.fromEntries(key_figures.map((each) => [each.id, this.key_value(host, each) ?? null]));
    }
}
