// Makes elements. What is shown becomes text nodes, never markup: a device may call itself anything.
import { t } from "./text.js";

const svg_space = "http://www.w3.org/2000/svg";

function fill(element, attributes, children) {
  for (const [name, value] of Object.entries(attributes || {})) {
    if (value === null || value === undefined || value === false) continue;
    if (typeof value === "function") element.addEventListener(name, value);
    else if (name === "value" || name === "checked" || name === "hidden" || name === "disabled") element[name] = value;
    else element.setAttribute(name, value === true ? "" : value);
  }
  element.append(...children.flat(2).filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

// Attributes that are functions are listeners: h("button", { click: save }, "Save").
export function h(tag, attributes, ...children) {
  return fill(document.createElement(tag), attributes, children);
}

export function svg(tag, attributes, ...children) {
  return fill(document.createElementNS(svg_space, tag), attributes, children);
}

// A name that a device or a person chose: its own direction of writing, and it cannot turn that of the text around it.
export function name(text, tag = "bdi", attributes = {}) {
  return h(tag, { dir: "auto", ...attributes }, text);
}

// A word that a screen reader says and nobody sees.
export function spoken(text) {
  return h("span", { class: "spoken" }, text);
}

export function put(parent, ...children) {
  parent.replaceChildren(...children.flat(2).filter((child) => child !== null && child !== undefined && child !== false));
  return parent;
}

// Makes these the children. Those that are there already stay where they are: what is moved loses the focus, and with it what
// somebody is just writing.
export function keep(parent, children) {
  for (const one of [...parent.children]) if (!children.includes(one)) one.remove();
  children.forEach((one, i) => parent.children[i] === one || parent.insertBefore(one, parent.children[i] || null));
}

// A part of the page with its heading.
export function section(id, title, ...children) {
  return h("section", { id, "aria-labelledby": `${id}-title` }, h("h2", { id: `${id}-title` }, title), ...children);
}

export function button(text, click, kind = "") {
  return h("button", { type: "button", class: kind, click }, text);
}

export function option(value, text, chosen) {
  const made = h("option", { value }, text);
  made.defaultSelected = chosen; // so that a form that is reset comes back to it
  made.selected = chosen;
  return made;
}

// A field whose text has at most so many bytes in UTF-8, as the router counts; its form is not sent with more.
export function bytes_at_most(most, input) {
  const check = () => input.setCustomValidity(new TextEncoder().encode(input.value).length > most ? t("error.too_large") : "");
  input.addEventListener("input", check);
  return input;
}

// A switch: a checkbox with its words.
export function toggle(words, checked, change, attributes = {}) {
  return h(
    "label",
    { class: "toggle" },
    h("input", { type: "checkbox", role: "switch", checked, change, ...attributes }),
    h("span", {}, words),
  );
}

// A table whose rows are lists of texts or elements.
export function table(caption, heads, rows) {
  return h(
    "div",
    { class: "scroll", tabindex: "0", role: "group", "aria-label": caption },
    h(
      "table",
      {},
      h("caption", { class: "spoken" }, caption),
      h(
        "thead",
        {},
        h(
          "tr",
          {},
          heads.map((head) => h("th", { scope: "col" }, head)),
        ),
      ),
      h(
        "tbody",
        {},
        rows.map((row) =>
          h(
            "tr",
            {},
            row.map((cell) => h("td", {}, cell)),
          ),
        ),
      ),
    ),
  );
}

let notice_timer = 0;

// Says something for some seconds, also to screen readers.
export function tell(text, wrong = false) {
  const place = document.getElementById("notice");
  place.className = wrong ? "wrong shown" : "shown";
  place.textContent = text;
  clearTimeout(notice_timer);
  notice_timer = setTimeout(() => (place.className = wrong ? "wrong" : ""), wrong ? 12000 : 4000);
}

// Asks before something that cannot be undone. Resolves to true or false.
export function ask(title, text, yes, no) {
  return new Promise((resolve) => {
    const box = h(
      "dialog",
      { "aria-labelledby": "ask-title", close: () => (resolve(box.returnValue === "yes"), box.remove()) },
      h(
        "form",
        { method: "dialog" },
        h("h2", { id: "ask-title" }, title),
        h("p", {}, text),
        h("div", { class: "row end" }, h("button", { value: "no" }, no), h("button", { value: "yes", class: "danger" }, yes)),
      ),
    );
    document.body.append(box);
    box.showModal();
  });
}
