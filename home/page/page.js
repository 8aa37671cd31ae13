// Starts the page: who is there, in which language, and what they see.
import { get_session, follow, on_logged_out } from "./api.js";
import { h, put, section, button, tell } from "./dom.js";
import { alerts_section } from "./alerts.js";
import { draw_header, draw_footer, draw_freshness, follow_language, set_fault, set_live, use_theme } from "./header.js";
import {
  home,
  first_parts,
  later_parts,
  forget_listeners,
  hint,
  kind,
  may_change,
  on,
  on_failure,
  redraw,
  reload,
  was_here,
} from "./household.js";
import { now_section } from "./now.js";
import { timeline_section } from "./timeline.js";
import { t, store, stored, use_language, wanted_language } from "./text.js";

const main = document.getElementById("main");
const places = document.getElementById("places");
const again_after_ms = 5000;
let stop_following = null;
let first_time = false; // the account was made while the page waited

const pause = () => new Promise((resolve) => setTimeout(resolve, again_after_ms));

// A part of the page's program, asked for until it comes. Some browsers do not ask twice for a file of the same name.
async function load(part) {
  for (let tries = 0; ; tries++) {
    try {
      return await import(`./${part}.js${tries ? `?${tries}` : ""}`);
    } catch (error) {
      console.error(error);
      tell(t("error.no_connection"), true);
      await pause();
    }
  }
}

function draw_places(ids) {
  put(
    places,
    ids.map((id) => h("a", { href: `#${id}` }, t(id))),
  );
  places.setAttribute("aria-label", t("places"));
  places.hidden = ids.length === 0;
}

// What is seen first is drawn first. Returns which parts of the program the rest needs, and what adds it.
function overview() {
  const now = now_section();
  const pair = h("div", { class: "pair" }, alerts_section());
  put(main, now, timeline_section(), pair);
  draw_footer(kind() === "child" ? null : h("a", { href: "#technician" }, t("for_technicians")));
  function add(week, limits, payments, devices, accounts) {
    pair.append(week.week_section());
    if (kind() === "child") {
      now.after(limits.limits_section());
      main.append(accounts.accounts_section());
    } else {
      main.append(limits.limits_section(), payments.payments_section(), devices.devices_section(), accounts.accounts_section());
    }
    draw_places([...main.querySelectorAll("section")].map((one) => one.id).filter((id) => id !== "accounts" || may_change()));
  }
  return { needed: ["week", "limits", "payments", "devices", "accounts"], add };
}

// The first run's last step.
function setup() {
  draw_places([]);
  draw_footer(null);
  function add({ steps }, { devices_section }) {
    const go = button(t("first.done"), () => (location.hash = "#now"), "primary");
    const done = section("setup-end", t("first.done_title"), h("p", {}, t("first.done_text")), go);
    put(main, steps(2), devices_section("setup", t("first.devices_title"), t("first.devices_text")), done);
  }
  return { needed: ["login", "devices"], add };
}

function technician() {
  draw_places([]);
  put(places, h("a", { href: "#now" }, t("back")));
  places.hidden = false;
  draw_footer(h("a", { href: "#now" }, t("back")));
  return { needed: ["technician"], add: ({ technician_view }) => technician_view(main) };
}

let shown = "";
let views = 0; // so many were to be shown; only the last one is

const view_of = (hash) =>
  hash === "#technician" && kind() !== "child" ? "technician" : hash === "#setup" && may_change() ? "setup" : "overview";

// Draws the view that the address names, where it is another one than before.
async function show_view(again) {
  const wanted = view_of(location.hash);
  if (wanted === shown && !again) return;
  shown = wanted;
  const number = ++views;
  forget_listeners();
  on(["status"], draw_freshness);
  while (!home.status) {
    await reload(first_parts);
    if (!home.status) {
      put(main, h("p", { class: "quiet" }, t("fresh.loading")));
      await pause();
    }
    if (number !== views) return;
  }
  const { needed, add } = { overview, setup, technician }[wanted]();
  redraw(first_parts);
  performance.mark("usable");
  stop_following ||= follow(hint, set_live);
  const parts = await Promise.all(needed.map(load));
  if (number !== views) return;
  add(...parts);
  redraw(first_parts);
  await reload(later_parts);
  if (again || location.hash.length < 2) return;
  const place = document.getElementById(location.hash.slice(1)) || main;
  place.scrollIntoView();
  if (place === main) main.focus();
}

async function enter() {
  await use_language(wanted_language(home.session.account));
  draw_header();
  draw_freshness();
  await show_view(true);
  if (
    may_change() &&
    (first_time || home.devices.every((one) => one.role_from !== "person" && one.name_from !== "person")) &&
    home.devices.length > 0
  ) {
    first_time = false;
    if (shown === "overview") location.hash = "#setup";
  }
  store(was_here, "yes");
}

async function begin(session) {
  home.session = session;
  while (!home.session.account) {
    const { first_run, log_in } = await load("login");
    draw_header();
    draw_freshness();
    draw_places([]);
    draw_footer(null);
    if (home.session.first_run) {
      first_time = true;
      home.session = await first_run(main);
    } else {
      await log_in(main, first_time);
    }
  }
  await enter();
}

// A session that has ended: back to the login.
on_logged_out(() => {
  store(was_here, "");
  if (!kind()) return;
  if (stop_following) stop_following();
  location.reload();
});
on_failure(set_fault);
follow_language(async (chosen) => {
  await use_language(chosen);
  draw_header();
  draw_freshness();
  if (home.session && home.session.account) await show_view(true);
  else location.reload();
});
window.addEventListener("hashchange", () => kind() && show_view(false));
setInterval(draw_freshness, 5000);

async function start() {
  use_theme(stored("appident-theme"));
  const session = get_session();
  const data = stored(was_here) ? reload(first_parts) : null;
  await Promise.all([use_language(wanted_language(null)), data]);
  draw_header();
  for (;;) {
    try {
      await begin(await session.catch(get_session));
      return;
    } catch (error) {
      if (home.session) throw error;
      put(main, h("p", { class: "wrong", role: "alert" }, t("fresh.no_connection")));
      await pause();
    }
  }
}

start();
