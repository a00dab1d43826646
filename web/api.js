// The exporter's HTTP interface: what it is asked, and its stream of samples.

const silent_ms = 20000; // keep-alive comments do not reach a page, but boards answer each second

/// The decoded answer. Throws an Error with the server's own sentence.
async function ask(path, parameters = {}) {
    const query = new URLSearchParams(parameters);
    const answer = await fetch(`/api/v1/${path}?${query}`);
    const object = await answer.json().catch(() => ({}));
    if (!answer.ok)
        throw new Error(object.error ?? `${path}: status ${answer.status}`);
    return object;
}

export const ask_subjects = async () => (await ask("subjects")).subjects;
export const ask_hosts = async () => (await ask("hosts")).hosts;

/// Samples of one host and subject, in ascending time; times are seconds since the epoch.
export async function ask_history(host, subject, since, until, points) {
    const parameters = {subject, host, since: since.toFixed(3), until: until.toFixed(3)};
    if (points)
        parameters.points = points;
    return (await ask("history", parameters)).samples;
}

/// A stream of samples that opens itself anew for as long as the page wants it.
export class stream {
    /// `heard` has the functions sample(object), host(object) and connection(is_there).
    constructor(heard) {
        this.heard = heard;
        setInterval(() => this.watch(), 1000);
    }

    /// Asks for these subjects, of one host or, with null, of all.
    open(subjects, host) {
        this.parameters = new URLSearchParams({subject: subjects.join(",")});
        if (host !== null)
            this.parameters.set("host", host);
        this.reopen();
    }

    reopen() {
        this.source?.close();
        this.last = Date.now();
        const source = new EventSource(`/api/v1/stream?${this.parameters}`);
        this.source = source;
        const heard = (deliver) => (event) => {
            this.last = Date.now();
            deliver(JSON.parse(event.data));
        };
        source.addEventListener("open", () => this.heard.connection(true));
        source.addEventListener("error", () => this.heard.connection(false));
        source.addEventListener("sample", heard((object) => this.heard.sample(object)));
        source.addEventListener("host", heard((object) => this.heard.host(object)));
    }

    // The browser itself tries again after a broken connection, but not after a refusal, and it does
    // not notice a network that swallows everything.
    watch() {
        if (!this.source)
            return;
        const given_up = this.source.readyState === EventSource.CLOSED;
        const waited = Date.now() - this.last;
        if ((given_up && waited > 2000) || waited > silent_ms)
            this.reopen();
    }
}
