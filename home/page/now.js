// What is in use now: a card a device.
import { h, put, section, name } from "./dom.js";
import { home, on, kind, may_change, class_of } from "./household.js";
import { t, minutes_text } from "./text.js";
import { clock_text } from "./time.js";

function in_use(one) {
  const words = one.minutes < 1 ? t("now.just_begun") : t("now.for", { time: minutes_text(one.minutes) });
  return h(
    "p",
    { class: "using", title: t("now.since", { time: clock_text(one.start) }) },
    h("span", { class: `dot class-${class_of(one)}`, "aria-hidden": "true" }),
    h("span", {}, name(one.app_name, "strong"), " ", words),
  );
}

function minutes_today(mac) {
  return home.today_use.filter((row) => row.device === mac).reduce((sum, row) => sum + row.minutes, 0);
}

function card(device) {
  const apps = home.now.filter((one) => one.device === device.mac);
  const idle = device.on_line ? t("now.not_in_use") : t("now.off_line");
  return h(
    "li",
    { class: apps.length ? "card active" : "card" },
    h("h3", {}, name(device.name), device.person ? name(device.person.name, "small") : null),
    apps.length ? apps.map(in_use) : h("p", { class: "quiet" }, idle),
    h("p", { class: "quiet" }, t("now.today", { time: minutes_text(minutes_today(device.mac)) })),
  );
}

function nothing_words() {
  if (home.devices.length) return may_change() ? t("now.choose_watched") : t("now.none_watched");
  return kind() === "child" ? t("now.none_own") : t("now.no_devices");
}

export function now_section() {
  const cards = h("ul", { class: "cards" });
  const empty = h("p", { class: "quiet" });
  on(["devices", "now", "day", "today"], () => {
    const used = new Set(home.now.map((one) => one.device));
    const shown = home.devices.filter((one) => one.role > 0 || used.has(one.mac));
    put(cards, shown.map(card));
    cards.hidden = shown.length === 0;
    put(empty, shown.length ? "" : nothing_words());
  });
  return section("now", t("now"), cards, empty);
}
