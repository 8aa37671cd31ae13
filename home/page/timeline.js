// The day's timeline: a lane a device, drawn in SVG with places in per cent of the day, so that it follows any width; and the same
// as a table.
import { h, svg, put, section, name, button, option, table } from "./dom.js";
import { alert_text } from "./alerts.js";
import { home, on, reload, shown_day, today, class_of, device_name, router_now } from "./household.js";
import { t, minutes_text } from "./text.js";
import { add_days, clock_text, day_text, local } from "./time.js";

const lane_height = 40;
const bar_top = 11;
const bar_height = 22;
// What is drawn across the page: the hours in which something was used, the whole day, or two hours of it.
const zooms = ["use", "day", "near"];
const near_times = 12; // as wide as the page
const ticks_most = 13;
let zoom = "use";

const percent = (epoch, day) => Math.min(100, Math.max(0, ((epoch - day.from) / (day.to - day.from)) * 100));
const per_cent = (epoch, day) => `${percent(epoch, day).toFixed(3)}%`;

function span(from, to, day, attributes, ...children) {
  const x = percent(from, day);
  const width = Math.max(0, percent(to, day) - x);
  return svg("rect", { x: `${x.toFixed(3)}%`, width: `${width.toFixed(3)}%`, ...attributes }, ...children);
}

// The day, with `from` and `to`: what is drawn of it.
function drawn_part(day) {
  const hour = 3600;
  const least = 2 * hour;
  if (zoom !== "use" || day.sessions.length + day.alerts.length === 0) return { ...day, from: day.start, to: day.end };
  const now = router_now();
  const begins = Math.min(...day.sessions.map((one) => one.start), ...day.alerts.map((one) => one.time));
  const ends = Math.max(...day.sessions.map(session_end), ...day.alerts.map((one) => one.time), now < day.end ? now : 0);
  const from = Math.floor(begins / hour) * hour;
  const to = Math.max(Math.ceil((ends + 600) / hour) * hour, day.start + least);
  return { ...day, from: Math.max(day.start, Math.min(from, to - least)), to: Math.min(day.end, to) };
}

// Epochs at which the router's clock shows a round time. On the day that has an hour twice, so has the scale.
function ticks(day) {
  const wide = zoom === "near" ? near_times : 1;
  const minutes = [15, 30, 60, 120].find((one) => (day.to - day.from) / 60 / one < ticks_most * wide) || 120;
  const found = [];
  const step = 15 * 60; // the clocks of the world differ by whole quarters of an hour
  for (let at = Math.ceil(day.from / step) * step; at <= day.to; at += step) {
    const time = local(at);
    if ((time.getUTCHours() * 60 + time.getUTCMinutes()) % minutes === 0) found.push(at);
  }
  return found;
}

function session_words(one) {
  const to = one.state === "open" ? t("timeline.until_now") : clock_text(one.end);
  return t("timeline.session", { app: one.app_name, from: clock_text(one.start), to, time: minutes_text(one.minutes) });
}

function session_end(one) {
  return Math.max(one.end, one.start + one.minutes * 60, one.start + 30);
}

function bar(one, day, tell) {
  const said = session_words(one);
  const drawn = span(one.start, session_end(one), day, {
    y: bar_top,
    height: bar_height,
    rx: 2,
    class: `bar class-${class_of(one)} ${one.state}`,
    click: () => tell(said),
    pointerenter: () => tell(said),
  });
  drawn.append(svg("title", {}, said));
  return drawn;
}

function gap_words(gap) {
  const places = { from: clock_text(gap.start), to: clock_text(gap.end), lost: gap.lost };
  if (gap.why === "lost") return t(gap.lost > 0 ? "gap.lost" : "gap.lost_some", places);
  return t(`gap.${gap.why}`, places);
}

function alert_mark(alert, day, tell) {
  const said = `${clock_text(alert.time)} ${alert_text(alert)}`;
  return svg(
    "svg",
    {
      x: per_cent(alert.time, day),
      overflow: "visible",
      class: `mark kind-${alert.kind}`,
      pointerenter: () => tell(said),
      click: () => tell(said),
    },
    svg("path", { d: "M-5 0h10l-5 8z" }),
    svg("title", {}, said),
  );
}

function lane_drawing(sessions, alerts, day, number, label) {
  const said = h("p", { class: "said quiet" });
  const tell = (words) => put(said, words);
  const hatch = `hatch-${number}`;
  const now = router_now();
  const drawing = svg(
    "svg",
    { class: "lane", width: "100%", height: lane_height, role: "img", "aria-label": label },
    svg(
      "defs",
      {},
      svg(
        "pattern",
        { id: hatch, width: 6, height: 6, patternUnits: "userSpaceOnUse", patternTransform: "rotate(45)" },
        svg("rect", { width: 2.5, height: 6, class: "hatch" }),
      ),
    ),
    svg("rect", { x: 0, y: 8, width: "100%", height: 28, rx: 4, class: "ground" }),
    ticks(day).map((at) => svg("line", { x1: per_cent(at, day), x2: per_cent(at, day), y1: 8, y2: 36, class: "tick" })),
    day.gaps.map((gap) =>
      span(
        gap.start,
        Math.max(gap.end, gap.start + 120),
        day,
        { y: 8, height: 28, fill: `url(#${hatch})`, class: "gap" },
        svg("title", {}, gap_words(gap)),
      ),
    ),
    sessions.map((one) => bar(one, day, tell)),
    alerts.map((one) => alert_mark(one, day, tell)),
    now >= day.from && now < day.to
      ? svg("line", { x1: per_cent(now, day), x2: per_cent(now, day), y1: 2, y2: lane_height, class: "now" })
      : null,
  );
  return [drawing, said];
}

function scale(day) {
  return svg(
    "svg",
    { class: "scale", width: "100%", height: 18, "aria-hidden": "true" },
    ticks(day).map((at, i) => {
      const anchor = percent(at, day) < 2 ? "start" : percent(at, day) > 98 ? "end" : "middle";
      const kept = zoom === "near" || i % 3 === 0 ? "always" : "";
      return svg("text", { x: per_cent(at, day), y: 13, "text-anchor": anchor, class: kept }, clock_text(at));
    }),
  );
}

function minutes_of_day(mac) {
  return home.day_use.filter((row) => row.device === mac).reduce((sum, row) => sum + row.minutes, 0);
}

// Devices with something to show on that day, or watched now.
function lanes(day) {
  const used = new Set([...day.sessions, ...day.alerts].map((one) => one.device));
  const known = home.devices.filter((one) => one.role > 0 || used.has(one.mac));
  return known.concat(
    [...used].filter((mac) => !known.some((one) => one.mac === mac)).map((mac) => ({ mac, name: device_name(mac) })),
  );
}

function lane(device, day, number) {
  const sessions = day.sessions.filter((one) => one.device === device.mac);
  const alerts = day.alerts.filter((one) => one.device === device.mac);
  const total = minutes_text(minutes_of_day(device.mac));
  const label = t("timeline.lane", { name: device.name, sessions: sessions.length, time: total, alerts: alerts.length });
  return h(
    "div",
    { class: "lane-box" },
    h("div", { class: "lane-head" }, name(device.name, "strong"), h("span", { class: "quiet" }, total)),
    lane_drawing(sessions, alerts, day, number, label),
  );
}

function legend(day) {
  const classes = [...new Set(day.sessions.map(class_of))].sort((a, b) => (a || 9) - (b || 9));
  return h(
    "ul",
    { class: "legend" },
    classes.map((id) => h("li", {}, h("span", { class: `dot class-${id}` }), t(`class.${id}`))),
    day.alerts.length ? h("li", {}, h("span", { class: "triangle" }), t("timeline.alert")) : null,
    day.gaps.length ? h("li", {}, h("span", { class: "hatched" }), t("timeline.gap")) : null,
  );
}

function as_table(day) {
  const rows = day.sessions.map((one) => [
    name(device_name(one.device)),
    name(one.app_name),
    t(`class.${class_of(one)}`),
    clock_text(one.start),
    one.state === "open" ? t("timeline.still") : clock_text(session_end(one)),
    minutes_text(one.minutes),
    t(`state.${one.state}`),
  ]);
  const heads = ["device", "app", "class", "from", "to", "time", "state"].map((head) => t(`head.${head}`));
  return [
    table(t("timeline.table"), heads, rows),
    day.gaps.length
      ? h(
          "ul",
          { class: "gaps" },
          day.gaps.map((gap) => h("li", {}, gap_words(gap))),
        )
      : null,
  ];
}

export function show_day(day) {
  home.day = day === today() ? "" : day;
  return reload(["day", "today"]);
}

function day_choice() {
  const later = button("›", () => show_day(add_days(shown_day(), 1)), "step");
  const earlier = button("‹", () => show_day(add_days(shown_day(), -1)), "step");
  const date = h("input", {
    type: "date",
    "aria-label": t("timeline.choose_day"),
    change: () => date.value >= date.min && date.value <= date.max && show_day(date.value),
  });
  const back = button(t("timeline.today"), () => show_day(today()), "plain");
  earlier.setAttribute("aria-label", t("timeline.earlier"));
  later.setAttribute("aria-label", t("timeline.later"));
  const draw = () => {
    if (document.activeElement !== date) date.value = shown_day();
    date.max = today();
    date.min = add_days(today(), -(home.status.retention_days || 90));
    later.disabled = shown_day() >= today();
    back.hidden = shown_day() === today();
  };
  return { box: h("div", { class: "row" }, earlier, date, later, back), draw };
}

export function timeline_section() {
  const choice = day_choice();
  const legend_place = h("div", {});
  const inner = h("div", { class: "lanes" });
  const lanes_place = h("div", { class: "scroll zoomable", tabindex: "0", role: "group", "aria-label": t("timeline") }, inner);
  const table_place = h("div", {});
  const more = h("details", { class: "as-table" }, h("summary", {}, t("timeline.as_table")), table_place);
  const zoom_choice = h(
    "select",
    { "aria-label": t("timeline.zoom"), change: () => ((zoom = zoom_choice.value), draw(), to_now()) },
    zooms.map((one) => option(one, t(`timeline.zoom_${one}`), one === zoom)),
  );
  const to_now = () => {
    const day = drawn_part(home.timeline);
    const last = home.timeline.sessions.reduce((latest, one) => Math.max(latest, session_end(one)), home.timeline.start);
    lanes_place.scrollLeft = (percent(last, day) / 100) * inner.scrollWidth - lanes_place.clientWidth * 0.8;
  };
  const made = section(
    "timeline",
    "",
    h("div", { class: "row between" }, choice.box, zoom_choice),
    legend_place,
    lanes_place,
    more,
  );
  function draw() {
    const day = home.timeline;
    if (!day || !home.status) return;
    choice.draw();
    put(made.querySelector("h2"), day.day === today() ? t("timeline.today_is", { day: day_text(day.day) }) : day_text(day.day));
    const part = drawn_part(day);
    const shown = lanes(day);
    inner.className = `lanes zoom-${zoom}`;
    put(legend_place, legend(day));
    put(
      inner,
      shown.map((device, i) => lane(device, part, i)),
      scale(part),
    );
    inner.hidden = shown.length === 0;
    if (more.open) put(table_place, as_table(day));
  }
  more.addEventListener("toggle", draw);
  on(["day", "devices"], draw);
  setInterval(() => shown_day() === today() && made.isConnected && draw(), 60000);
  return made;
}
