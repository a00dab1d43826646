// Dark or light: what the system says, or what the reader chose here. Runs before the first paint, so
// that the page does not flash in the other one.
{
    const apply = (choice) => {
        if (choice === "dark" || choice === "light")
            document.documentElement.dataset.theme = choice;
        else
            delete document.documentElement.dataset.theme;
    };
    let stored = "auto";
    try {
        stored = localStorage.getItem("theme") ?? "auto";
    } catch {
        // Storage may be forbidden; the choice then lasts as long as the page.
    }
    apply(stored);
    const announce = () => document.dispatchEvent(new Event("theme"));
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", announce);
    document.addEventListener("DOMContentLoaded", () => {
        const select = document.getElementById("theme");
        select.value = document.documentElement.dataset.theme ?? "auto";
        select.addEventListener("change", () => {
            apply(select.value);
            try {
                localStorage.setItem("theme", select.value);
            } catch {
                // As above.
            }
            announce();
        });
    });
}
