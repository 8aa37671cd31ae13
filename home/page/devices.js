// The household's devices: names, roles, persons. Also the first run's list.
import { put as send, remove } from "./api.js";
import { h, put, keep, bytes_at_most, section, name, button, option, tell, ask } from "./dom.js";
import { home, on, reload, may_change, today } from "./household.js";
import { t, error_text } from "./text.js";
import { moment_text } from "./time.js";

const name_most = 32;
const person_most = 63;
const after_change = ["devices", "limits", "payments", "now", "day"];

// Roles that are offered, and the one it has where that is another.
function role_choice(device, changed) {
  const offered = [1, 0];
  const choice = h("select", { "aria-label": t("devices.role_of", { name: device.name }), change: changed });
  if (!offered.includes(device.role)) offered.push(device.role);
  put(
    choice,
    offered.map((role) => option(role, t(`role.${role}`), role === device.role)),
  );
  return choice;
}

function facts(device) {
  const seen = device.on_line
    ? t("devices.on_line")
    : device.last_seen
      ? t("devices.last_seen", { time: moment_text(device.last_seen, today()) })
      : t("devices.off_line");
  return h(
    "p",
    { class: "quiet facts" },
    h("span", { class: device.on_line ? "lamp ok" : "lamp", "aria-hidden": "true" }),
    h("span", {}, seen),
    device.private_mac ? h("span", { class: "tag", title: t("devices.private_why") }, t("devices.private")) : null,
    h("span", { class: "addresses" }, device.address, " ", h("code", {}, device.mac)),
  );
}

async function forget(device) {
  if (!(await ask(t("devices.forget_title", { name: device.name }), t("devices.forget_text"), t("devices.forget"), t("cancel"))))
    return;
  try {
    await remove(`devices/${device.mac}`);
    await reload([...after_change, "week", "today"]);
    tell(t("devices.forgotten"));
  } catch (error) {
    tell(error_text(error), true);
  }
}

async function save(device, wanted) {
  const takes_away = wanted.role === 0 && device.role > 0;
  if (
    takes_away &&
    !(await ask(t("devices.unwatch_title", { name: device.name }), t("devices.unwatch_text"), t("devices.unwatch"), t("cancel")))
  )
    return;
  try {
    await send(`devices/${device.mac}`, wanted);
    rows.delete(device.mac);
    await reload(after_change);
    tell(t("saved"));
  } catch (error) {
    tell(error_text(error), true);
  }
}

function editor(device, head) {
  const person_now = device.person ? device.person.name : "";
  const name_now = device.name_from === "none" ? "" : device.name;
  const field_of = (most, attributes) => bytes_at_most(most, h("input", { input: () => changed(), dir: "auto", ...attributes }));
  const called = field_of(name_most, {
    value: name_now,
    placeholder: device.name,
    "aria-label": t("devices.name_of", { name: device.name }),
  });
  const person = field_of(person_most, {
    value: person_now,
    list: "persons",
    placeholder: t("devices.nobody"),
    "aria-label": t("devices.person_of", { name: device.name }),
  });
  const role = role_choice(device, () => changed());
  const wanted = () => {
    const found = {};
    if (called.value.trim() !== name_now) found.name = called.value.trim();
    if (person.value.trim() !== person_now) found.person = person.value.trim();
    if (+role.value !== device.role) found.role = +role.value;
    return found;
  };
  const edited = () => Object.keys(wanted()).length > 0;
  const keep = h(
    "div",
    { class: "row", hidden: true },
    h("button", { class: "primary" }, t("save")),
    button(t("undo"), () => (rows.delete(device.mac), redraw())),
  );
  const changed = () => (keep.hidden = !edited());
  const field = (words, input) => h("label", { class: "field" }, h("span", { class: "quiet" }, words), input);
  const box = h(
    "li",
    { class: "card" },
    head,
    h(
      "form",
      { submit: (event) => (event.preventDefault(), save(device, wanted())) },
      h(
        "div",
        { class: "fields" },
        field(t("devices.name"), called),
        field(t("devices.person"), person),
        field(t("devices.role"), role),
      ),
      h(
        "div",
        { class: "row end" },
        keep,
        button(t("devices.forget"), () => forget(device), "plain quiet"),
      ),
    ),
  );
  return { box, edited };
}

function row(device) {
  const head = h("div", {}, h("h3", {}, name(device.name)), facts(device));
  if (may_change()) return editor(device, head);
  const person = device.person ? h("p", {}, t("devices.person"), ": ", name(device.person.name)) : null;
  return { box: h("li", { class: "card" }, head, h("p", {}, t(`role.${device.role}`)), person), edited: () => false };
}

const rows = new Map(); // by MAC
let redraw = () => {};

export function devices_section(id = "devices", title = t("devices"), explanation = t("devices.what")) {
  const list = h("ul", { class: "cards wide" });
  const empty = h("p", { class: "quiet" });
  const persons = h("datalist", { id: "persons" });
  rows.clear();
  redraw = () => {
    put(
      persons,
      home.persons.map((one) => h("option", { value: one.name })),
    );
    for (const device of home.devices) {
      const now = rows.get(device.mac);
      if (!now || !(now.edited() || now.box.contains(document.activeElement))) rows.set(device.mac, row(device));
    }
    keep(
      list,
      home.devices.map((device) => rows.get(device.mac).box),
    );
    list.hidden = home.devices.length === 0;
    put(empty, home.devices.length ? "" : t("devices.none"));
  };
  on(["devices"], () => redraw());
  return section(id, title, h("p", { class: "quiet" }, explanation), list, empty, persons);
}
