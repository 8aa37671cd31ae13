// Seven days as bars, by class, and the way to any earlier week or day.
import { h, svg, put, section, button, option, table, name, spoken } from "./dom.js";
import { home, on, reload, today, week_end, class_of, device_name } from "./household.js";
import { show_day } from "./timeline.js";
import { t, minutes_text } from "./text.js";
import { add_days, day_text, short_day_text, weekday_text } from "./time.js";

const height = 170;
const steps = [30, 60, 120, 240, 360, 720, 1440, 2880];
const classes = [1, 2, 3, 4, 0];
let chosen = ""; // a MAC, "" for all devices

// Minutes of a day by class.
function sums(day) {
  const found = {};
  for (const row of home.week.rows)
    if (row.day === day && (!chosen || row.device === chosen)) found[class_of(row)] = (found[class_of(row)] || 0) + row.minutes;
  return found;
}

const short_time = (minutes) => (minutes ? `${Math.floor(minutes / 60)}:${String(minutes % 60).padStart(2, "0")}` : "–");
const total = (found) => Object.values(found).reduce((sum, minutes) => sum + minutes, 0);

function column(found, at, most) {
  let top = height;
  return classes
    .filter((id) => found[id])
    .map((id) => {
      const tall = (found[id] / most) * height;
      top -= tall;
      return svg(
        "rect",
        {
          x: `${((at + 0.2) / 7) * 100}%`,
          width: `${(0.6 / 7) * 100}%`,
          y: top + 1,
          height: Math.max(1, tall - 1),
          rx: 1.5,
          class: `bar class-${id}`,
        },
        svg("title", {}, `${t(`class.${id}`)}: ${minutes_text(found[id])}`),
      );
    });
}

function chart(days, by_day) {
  const largest = Math.max(60, ...by_day.map(total));
  const step = steps.find((one) => largest / one <= 4) || 5760;
  const most = Math.ceil(largest / step) * step;
  const lines = Array.from({ length: most / step + 1 }, (_, i) => i * step);
  return h(
    "div",
    { class: "chart" },
    h(
      "div",
      { class: "levels", "aria-hidden": "true" },
      lines
        .slice()
        .reverse()
        .map((at) => h("span", {}, at ? short_time(at) : "0")),
    ),
    svg(
      "svg",
      {
        width: "100%",
        height: height + 2,
        role: "img",
        "aria-label": t("week.chart", { time: minutes_text(by_day.map(total).reduce((a, b) => a + b, 0)) }),
      },
      lines.map((at) =>
        svg("line", {
          x1: 0,
          x2: "100%",
          y1: height + 0.5 - (at / most) * height,
          y2: height + 0.5 - (at / most) * height,
          class: "tick",
        }),
      ),
      by_day.map((found, i) => column(found, i, most)),
    ),
    h(
      "div",
      { class: "week-days" },
      days.map((day, i) =>
        h(
          "button",
          {
            type: "button",
            class: "plain",
            title: day_text(day),
            click: () => show_day(day).then(() => document.getElementById("timeline").scrollIntoView()),
          },
          h("span", {}, weekday_text(day)),
          " ",
          h("small", { "aria-hidden": "true" }, short_time(total(by_day[i]))),
          spoken(minutes_text(total(by_day[i]))),
        ),
      ),
    ),
  );
}

function as_table() {
  const rows = home.week.rows
    .filter((row) => !chosen || row.device === chosen)
    .map((row) => [day_text(row.day), name(device_name(row.device)), t(`class.${class_of(row)}`), minutes_text(row.minutes)]);
  return table(
    t("week.table"),
    ["day", "device", "class", "time"].map((head) => t(`head.${head}`)),
    rows,
  );
}

function exports(from, to) {
  const range = `from=${from}&to=${to}`;
  return h(
    "p",
    { class: "quiet" },
    t("week.export"),
    " ",
    h("a", { href: `/api/v1/export.csv?${range}`, download: true }, "CSV"),
    " · ",
    h("a", { href: `/api/v1/export.json?${range}`, download: true }, "JSON"),
  );
}

function show_week(to) {
  home.week_to = to >= today() ? "" : to;
  return reload(["week"]);
}

export function week_section() {
  const which = h("select", { "aria-label": t("week.device"), change: () => ((chosen = which.value), draw()) });
  const earlier = button("‹", () => show_week(add_days(week_end(), -7)), "step");
  const later = button("›", () => show_week(add_days(week_end(), 7)), "step");
  earlier.setAttribute("aria-label", t("week.earlier"));
  later.setAttribute("aria-label", t("week.later"));
  const range = h("span", {});
  const bars = h("div", {});
  const table_place = h("div", {});
  const more = h("details", { class: "as-table", toggle: () => draw() }, h("summary", {}, t("timeline.as_table")), table_place);
  const export_place = h("div", {});
  function draw() {
    if (!home.week || !home.status) return;
    const days = Array.from({ length: 7 }, (_, i) => add_days(home.week.to, i - 6));
    const used = new Set(home.week.rows.map((row) => row.device));
    const devices = home.devices.filter((one) => one.role > 0 || used.has(one.mac));
    put(
      which,
      option("", t("week.all_devices"), chosen === ""),
      devices.map((one) => option(one.mac, one.name, one.mac === chosen)),
    );
    put(range, `${short_day_text(days[0])} – ${short_day_text(days[6])}`);
    later.disabled = home.week.to >= today();
    put(bars, chart(days, days.map(sums)));
    if (more.open) put(table_place, as_table());
    put(export_place, exports(days[0], days[6]));
  }
  on(["week", "devices"], draw);
  return section(
    "week",
    t("week"),
    h("div", { class: "row between" }, h("div", { class: "row" }, earlier, range, later), which),
    bars,
    more,
    export_place,
  );
}
