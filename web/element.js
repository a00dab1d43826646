// Making elements. Texts only ever become text nodes: a name from a board can hold markup.

/// An element with attributes and children; strings become text. The attribute `text` is its text.
export function element(tag, attributes = {}, ...children) {
    const made = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (name === "text")
            made.textContent = value;
        else if (name.startsWith("on"))
            made.addEventListener(name.slice(2), value);
        else if (value === true)
            made.setAttribute(name, "");
        else if (value !== false && value !== null && value !== undefined)
            made.setAttribute(name, value);
    }
    made.append(...children);
    return made;
}

/// Sets the text of an element if it differs: most figures do not change in a second.
export function set_text(of, text) {
    if (of.textContent !== text)
        of.textContent = text;
}
