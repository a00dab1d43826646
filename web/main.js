// The page: asks what there is to show, opens the view that the address names, and keeps it up to date.

import {ask_hosts, ask_subjects, stream} from "./api.js";
import {board_page} from "./board_page.js";
import {boards} from "./boards.js";
import {element, set_text} from "./element.js";
import {overview} from "./overview.js";
import {time_range} from "./time_range.js";

const retry_ms = 2000;
const settle_ms = 150;
const find = (id) => document.getElementById(id);
const say = (text) => set_text(find("spoken"), text);

const known = new boards();
const range = new time_range(() => known.now(), () => {
    write_address();
    view?.redraw?.();
    // Who turns a wheel changes the time many times a second.
    clearTimeout(loading);
    loading = setTimeout(() => view?.load?.(), settle_ms);
});
let loading;
let declarations; // of the subjects, by name
let view;
let host = null; // of the board that is open; null: all boards

const events = new stream({
    sample(sample) {
        known.take_sample(sample);
        if (view?.host === undefined || view.host === sample.host)
            view?.sample(sample);
    },
    host(state) {
        const is_new = !known.all.has(state.host);
        const change = known.take_host(state);
        if (is_new)
            show_choice();
        if (change !== null)
            set_text(find("outages"), change ? `${state.host} is back` : `${state.host}: ${state.text || "no answer"}`);
        tick();
    },
    connection(is_there) {
        const was_there = known.connected;
        known.take_connection(is_there);
        if (was_there === is_there)
            return;
        if (was_there !== undefined)
            set_text(find("outages"), is_there ? "The exporter is back" : "No connection to the exporter");
        if (is_there && was_there === false)
            view?.load?.();
        tick();
    },
});

const address = () => new URLSearchParams(location.hash.slice(1));

function address_of(board) {
    const parts = address();
    parts.set("board", board);
    return `#${parts}`;
}

function write_address() {
    const parts = address();
    range.to_address(parts);
    history.replaceState(null, "", `#${parts}`);
}

function show_choice() {
    const hosts = [...known.all.keys()];
    find("board_choice").hidden = hosts.length < 2;
    find("board").replaceChildren(element("option", {value: "", text: "all"}),
        ...hosts.map((each) => element("option", {value: each, text: each})));
    find("board").value = host ?? "";
}

/// Opens what the address names: a board, or with several boards and without a name all of them.
function open_view() {
    const hosts = [...known.all.keys()];
    const named = address().get("board");
    const chosen = hosts.length === 1 ? hosts[0] : named && known.all.has(named) ? named : null;
    if (view && chosen === host)
        return;
    host = chosen;
    view?.leave();
    view = host === null ? new overview(known, address_of) : new board_page(host, known, declarations, range, say);
    find("content").replaceChildren(view.element);
    find("time").hidden = host === null;
    document.title = host === null ? "moncl: all boards" : `moncl: ${host}`;
    show_choice();
    events.open(view.subjects, host);
    tick();
}

function show_state() {
    const away = [...known.all.keys()].filter((each) => known.state_of(each).kind === "bad");
    const all_well = {text: `${known.all.size} boards answer`, kind: "good"};
    const state = host !== null ? known.state_of(host)
        : !known.connected ? known.state_of("") : !away.length ? all_well
            : {text: `${away.length} of ${known.all.size} boards away`, kind: "bad"};
    set_text(find("state"), state.text);
    find("state").className = `state ${state.kind}`;
}

function tick() {
    show_state();
    range.show();
    view?.tick();
}

async function start() {
    try {
        const [subjects, hosts] = await Promise.all([ask_subjects(), ask_hosts()]);
        declarations = new Map(subjects.map((each) => [each.name, each]));
        for (const state of hosts)
            known.take_host(state);
    } catch (error) {
        find("content").replaceChildren(element("p", {class: "waiting", text: `${error.message}; trying again …`}));
        setTimeout(start, retry_ms);
        return;
    }
    range.from_address(address());
    range.make_elements(find("time"));
    open_view();
    setInterval(tick, 1000);
}

find("board").addEventListener("change", (event) => {
    location.hash = event.target.value ? address_of(event.target.value) : "";
});
addEventListener("hashchange", () => declarations && open_view());
document.addEventListener("theme", () => view?.recolour());
start();
