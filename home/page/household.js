// What the server told of the household, and when to ask it again. The parts of the page read `home` and are called when a part of
// it is new.
import { get } from "./api.js";
import { learn_day, learn_zone, add_days } from "./time.js";

export const home = {
  session: null, // as the server answers it
  status: null,
  heard: 0, // when the status came, milliseconds of this browser's clock
  devices: [],
  persons: [],
  apps: [],
  now: [],
  day: "", // shown; "" stands for today
  timeline: null,
  day_use: [], // of the shown day, by app
  today_use: [],
  week_to: "", // the shown week's last day; "" stands for today
  week: null,
  limits: new Map(), // by MAC; an error where the daemon did not tell
  payments: new Map(),
  accounts: [],
};

// Kept in the browser while somebody is logged in; then data is asked for together with the session.
export const was_here = "appident-logged-in";

export const kind = () => (home.session && home.session.account ? home.session.account.kind : "");
export const may_change = () => kind() === "parent";
export const today = () => (home.status ? home.status.day : "");
export const shown_day = () => home.day || today();
export const week_end = () => home.week_to || today();
export const device_of = (mac) => home.devices.find((one) => one.mac === mac);
export const device_name = (mac) => (device_of(mac) || { name: mac }).name;
export const limited = () => home.devices.filter((one) => one.role === 1);

// The router's time now, as well as it is known.
export const router_now = () => (home.status ? home.status.time + (performance.now() - home.heard) / 1000 : Date.now() / 1000);

const asks = {
  async status() {
    const status = await get("status");
    const another_day = home.status && home.status.day !== status.day;
    home.status = status;
    home.heard = performance.now();
    learn_zone(status.time_zone);
    if (another_day) reload(["day", "today", "week"]);
  },
  async devices() {
    const { devices, persons } = await get("devices");
    Object.assign(home, { devices, persons });
  },
  async apps() {
    home.apps = (await get("apps")).apps;
  },
  async now() {
    home.now = (await get("now")).now;
  },
  async day() {
    const { day } = home;
    const [timeline, use] = await Promise.all([
      get(`timeline${day ? `?day=${day}` : ""}`),
      get(`use?by=app${day ? `&from=${day}&to=${day}` : ""}`),
    ]);
    if (day !== home.day) return; // another one was chosen meanwhile
    learn_day(timeline);
    Object.assign(home, { timeline, day_use: use.rows });
    if (!day) home.today_use = use.rows;
  },
  async today() {
    if (home.day) home.today_use = (await get("use?by=app")).rows;
  },
  async week() {
    const to = week_end();
    const week = await get(`use?from=${add_days(to, -6)}&to=${to}&by=class`);
    if (to === week_end()) home.week = week;
  },
  limits: () => each_device("limits"),
  payments: () => (kind() === "child" ? null : each_device("payments")),
  async accounts() {
    if (may_change()) home.accounts = (await get("accounts")).accounts;
  },
};

async function each_device(what) {
  const found = await Promise.all(
    limited().map(({ mac }) =>
      get(`${what}/${mac}`).then(
        (answer) => [mac, answer],
        (error) => [mac, { error }],
      ),
    ),
  );
  home[what] = new Map(found);
}

// What each kind of event makes old.
const hints = {
  session: ["now", "day", "today", "week", "limits", "status"],
  alert: ["day", "limits", "status"],
  device: ["devices", "status", "limits", "payments"],
  gap: ["day", "status"],
  now: ["now", "status"],
  status: ["status"],
  all: ["status", "devices", "now", "day", "today", "week", "limits", "payments"],
};

// Asked in this order, as later ones go by what the earlier ones told.
const order = [
  ["status", "devices", "apps", "now", "day", "today"],
  ["week", "limits", "payments", "accounts"],
];
const listeners = new Map();
const waiting = new Set();
let timer = 0;
let running = null;
let failed = () => {};

export const on_failure = (call) => (failed = call);

// Calls `draw` whenever one of these parts is new.
export function on(parts, draw) {
  for (const part of parts) listeners.set(part, [...(listeners.get(part) || []), draw]);
}

// Draws what is known of these parts.
export function redraw(parts) {
  for (const draw of new Set(parts.flatMap((part) => listeners.get(part) || []))) draw();
}

export function forget_listeners() {
  listeners.clear();
  waiting.clear();
}

async function load_waiting() {
  let fault = null;
  for (const group of order) {
    const parts = group.filter((part) => waiting.delete(part));
    const ends = await Promise.allSettled(parts.map((part) => asks[part]()));
    for (const end of ends) if (end.status === "rejected") fault = end.reason;
    redraw(parts.filter((part, i) => ends[i].status === "fulfilled"));
  }
  failed(fault);
}

// What is needed before anything can be drawn.
export const first_parts = order[0];

// Asks for these parts now; resolves when they have been drawn.
export async function reload(parts) {
  for (const part of parts) waiting.add(part);
  while (running) await running;
  if (waiting.size === 0) return;
  running = load_waiting().finally(() => (running = null));
  await running;
}

// Many hints within a moment are one.
export function hint(event) {
  for (const part of hints[event] || []) waiting.add(part);
  clearTimeout(timer);
  timer = setTimeout(() => reload([]), 300);
}

export const later_parts = order.slice(1).flat();

// The class that a limit counts; 0 for none.
export const class_of = (row) => (row.class >= 1 && row.class <= 4 ? row.class : 0);
