// The limits of each device: how much is used, and for parents the way to change them. All five classes are sent each time.
import { put as send } from "./api.js";
import { h, put, keep, section, name, button, toggle, tell } from "./dom.js";
import { home, on, limited, may_change, today } from "./household.js";
import { t, minutes_text, error_text } from "./text.js";
import { moment_text } from "./time.js";

const classes = [1, 2, 3, 4, 5];
const by_minutes = (id) => id !== 4;
const by_apps = (id) => id !== 5;
const usual = { 1: 60, 2: 60, 3: 120, 4: 1, 5: 30 };
const most_apps = 256;

const apps_of = (id) =>
  home.apps
    .filter((app) => app.class === id)
    .map((app) => app.id)
    .slice(0, most_apps);
const app_names = (ids) => ids.map((id) => (home.apps.find((app) => app.id === id) || { name: `${id}` }).name).join(", ");
const is_on = (limit) => (limit.on === undefined ? limit.minutes > 0 : limit.on);

function stored_limit(limits, id) {
  return (limits && limits.find((one) => one.class === id)) || { class: id, minutes: 0, apps: [], used_minutes: 0 };
}

function used_bar(limit) {
  const share = Math.min(1, limit.used_minutes / Math.max(1, limit.minutes));
  const left = limit.minutes - limit.used_minutes;
  const words = t("limits.used", { used: minutes_text(limit.used_minutes), whole: minutes_text(limit.minutes) });
  const rest = left > 0 ? t("limits.left", { time: minutes_text(left) }) : t("limits.passed");
  const filled = h("span", {});
  filled.style.width = `${share * 100}%`;
  return h(
    "div",
    { class: left > 0 ? "used" : "used passed" },
    h("div", { class: "meter", "aria-hidden": "true" }, filled),
    h("span", { class: "quiet" }, words),
    h("span", { class: "left" }, rest),
  );
}

function apps_words(limit) {
  const all = apps_of(limit.class);
  const every = all.length > 0 && all.every((id) => limit.apps.includes(id));
  return every
    ? t("limits.all_apps", { count: limit.apps.length })
    : t("limits.some_apps", { count: limit.apps.length, all: all.length });
}

function counted_apps(row) {
  const limit = row.limit;
  if (!by_apps(limit.class) || !is_on(limit)) return null;
  const all = apps_of(limit.class);
  const some = all.some((id) => !limit.apps.includes(id));
  return h(
    "details",
    { class: "apps" },
    h("summary", {}, apps_words(limit)),
    h("p", { dir: "auto" }, app_names(limit.apps)),
    some && may_change() ? button(t("limits.count_all"), () => ((row.apps = all), row.changed()), "plain") : null,
  );
}

// The switch and minutes of one class. row.apps: what is to be counted from now on, null for what is.
function edit_row(limit, changed) {
  const row = { limit, apps: null, changed };
  const id = limit.class;
  const minutes = h("input", {
    type: "number",
    min: "1",
    max: "1440",
    step: "1",
    required: true,
    inputmode: "numeric",
    value: limit.minutes || usual[id],
    "aria-label": t("limits.minutes_of", { class: t(`class.${id}`) }),
    input: changed,
  });
  const on_off = toggle(t(`limits.class.${id}`), is_on(limit), () => (follow(), changed()), {});
  const box = on_off.querySelector("input");
  const follow = () => (minutes.disabled = !box.checked);
  follow();
  row.edited = () =>
    box.checked !== is_on(limit) || (box.checked && by_minutes(id) && +minutes.value !== limit.minutes) || row.apps !== null;
  row.valid = () => !box.checked || minutes.checkValidity();
  row.wanted = () => {
    const kept = row.apps || (limit.apps.length ? limit.apps : apps_of(id));
    return {
      class: id,
      on: box.checked,
      minutes: !box.checked ? 0 : by_minutes(id) ? +minutes.value : limit.minutes || usual[id],
      apps: by_apps(id) && box.checked ? kept : limit.apps,
    };
  };
  row.box = h(
    "div",
    { class: "limit" },
    h(
      "div",
      { class: "row between" },
      on_off,
      by_minutes(id) ? h("label", { class: "minutes" }, minutes, h("span", { class: "quiet" }, t("limits.minutes"))) : null,
    ),
    is_on(limit) && id <= 3 ? used_bar(limit) : null,
    counted_apps(row),
  );
  return row;
}

function read_row(limit) {
  return h(
    "div",
    { class: "limit" },
    h(
      "div",
      { class: "row between" },
      h("span", {}, t(`limits.class.${limit.class}`)),
      by_minutes(limit.class) ? h("span", { class: "quiet" }, minutes_text(limit.minutes)) : null,
    ),
    limit.class <= 3 ? used_bar(limit) : null,
    counted_apps({ limit }),
  );
}

// Where the daemon's count is another one than the day's sums: something was used before it began.
function count_note(mac) {
  const begun = (home.status.counts_began || []).find((one) => one.device === mac);
  const differs = (day) => day.day !== today() || day.sessions.some((one) => one.device === mac && one.start < begun.time);
  return begun && home.timeline && differs(home.timeline)
    ? h("p", { class: "note" }, t(`limits.count_began.${begun.why}`, { time: moment_text(begun.time, today()) }))
    : null;
}

async function save(mac, rows) {
  if (!rows.every((row) => row.valid())) {
    tell(t("limits.minutes_wrong"), true);
    return;
  }
  try {
    home.limits.set(mac, await send(`limits/${mac}`, { limits: rows.map((row) => row.wanted()) }));
    cards.delete(mac);
    draw_all();
    tell(t("saved"));
  } catch (error) {
    tell(error_text(error), true);
  }
}

function form(device, limits) {
  const edited = () => rows.some((row) => row.edited());
  const buttons = h(
    "div",
    { class: "row" },
    h("button", { class: "primary" }, t("save")),
    button(t("undo"), () => (cards.delete(device.mac), draw_all())),
  );
  const changed = () => (buttons.hidden = !edited());
  const rows = classes.map((id) => edit_row(stored_limit(limits, id), changed));
  buttons.hidden = true;
  return {
    box: h(
      "form",
      { novalidate: true, submit: (event) => (event.preventDefault(), save(device.mac, rows)) },
      rows.map((row) => row.box),
      buttons,
    ),
    edited,
  };
}

function card(device) {
  const answer = home.limits.get(device.mac);
  const head = h("h3", {}, name(device.name), device.person ? name(device.person.name, "small") : null);
  if (!answer || answer.error) {
    const words = !answer ? t("fresh.loading") : answer.error.code === "not_found" ? t("limits.none") : error_text(answer.error);
    return { box: h("article", { class: "card" }, head, h("p", { class: "quiet" }, words)), edited: () => false };
  }
  if (!may_change()) {
    const set = answer.limits.filter(is_on);
    return {
      box: h(
        "article",
        { class: "card" },
        head,
        count_note(device.mac),
        set.length ? set.map(read_row) : h("p", { class: "quiet" }, t("limits.none")),
      ),
      edited: () => false,
    };
  }
  const made = form(device, answer.limits);
  return { box: h("article", { class: "card" }, head, count_note(device.mac), made.box), edited: made.edited };
}

const cards = new Map(); // by MAC
let place = null;
let empty = null;

// What somebody is changing stays as it is until it is saved or undone.
function draw_all() {
  if (!home.status) return;
  const focused = (one) => one.box.contains(document.activeElement);
  const open = (one) => one.box.querySelector("details[open]");
  const devices = limited();
  for (const device of devices) {
    const now = cards.get(device.mac);
    if (!now || !(now.edited() || focused(now) || open(now))) cards.set(device.mac, card(device));
  }
  keep(
    place,
    devices.map((device) => cards.get(device.mac).box),
  );
  put(empty, devices.length ? "" : t("limits.no_devices"));
}

export function limits_section() {
  place = h("div", { class: "cards wide" });
  empty = h("p", { class: "quiet" });
  cards.clear();
  on(["limits", "devices", "apps"], draw_all);
  return section("limits", t("limits"), h("p", { class: "quiet" }, t("limits.nothing_blocked")), place, empty);
}
