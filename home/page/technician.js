// For the technician: findings, counters, gaps, the database, who changed what.
import { get } from "./api.js";
import { h, put, section, table, name } from "./dom.js";
import { device_name, home, today } from "./household.js";
import { t, number_text, bytes_text, error_text } from "./text.js";
import { add_days, moment_text } from "./time.js";

function findings(doctor) {
  return h(
    "ul",
    { class: "findings" },
    doctor.map((one) =>
      h(
        "li",
        { class: one.level },
        h("strong", { class: "tag" }, t(`doctor.${one.level}`)),
        " ",
        h("span", { dir: "auto" }, one.text),
      ),
    ),
  );
}

function counter_tables(counters) {
  const pages = [...new Set(counters.map((one) => one.page))];
  return pages.map((page) =>
    h(
      "details",
      { class: "card", open: pages.length < 3 },
      h("summary", { dir: "auto" }, page),
      table(
        page,
        [t("head.counter"), t("head.value"), t("head.meaning")],
        counters
          .filter((one) => one.page === page)
          .map((one) => [h("code", {}, one.name), number_text(one.value), h("span", { lang: "en" }, one.meaning)]),
      ),
    ),
  );
}

function database_table(database) {
  return table(
    t("technician.database"),
    [t("head.fact"), t("head.value")],
    Object.entries(database)
      .filter(([, value]) => value !== "")
      .map(([key, value]) => [
        h("code", {}, key),
        key === "bytes"
          ? bytes_text(value)
          : key === "kept_since"
            ? moment_text(value, today())
            : typeof value === "number"
              ? number_text(value)
              : `${value}`,
      ]),
  );
}

function gap_table(gaps) {
  if (gaps.length === 0) return h("p", { class: "quiet" }, t("technician.no_gaps"));
  return table(
    t("technician.gaps"),
    ["from", "to", "lost", "why"].map((head) => t(`head.${head}`)),
    gaps.map((gap) => [
      moment_text(gap.start, today()),
      moment_text(gap.end, today()),
      gap.lost < 0 ? t("technician.unknown") : number_text(gap.lost),
      t(`gap.why.${gap.why}`),
    ]),
  );
}

function change_table(changes) {
  if (changes.length === 0) return h("p", { class: "quiet" }, t("technician.no_changes"));
  return table(
    t("technician.changes"),
    ["time", "account", "address", "device", "what", "before", "after"].map((head) => t(`head.${head}`)),
    changes.map((one) => [
      moment_text(one.time, today()),
      name(one.account),
      one.address,
      one.device ? name(device_name(one.device)) : "",
      one.what,
      name(one.before),
      name(one.after),
    ]),
  );
}

// A part that is asked for by itself: where one fails, the others are still shown.
function part(id, path, draw) {
  const place = h("div", { class: "stack" }, h("p", { class: "quiet" }, t("fresh.loading")));
  get(path).then(
    (answer) => put(place, draw(answer)),
    (error) => put(place, h("p", { class: "wrong" }, error_text(error))),
  );
  return section(id, t(`technician.${id}`), place);
}

export function technician_view(main) {
  const from = add_days(today(), -(home.status.retention_days || 90));
  const counters = get("counters");
  const of_counters = (id, draw) => {
    const place = h("div", { class: "stack" }, h("p", { class: "quiet" }, t("fresh.loading")));
    counters.then(
      (answer) => put(place, draw(answer)),
      (error) => put(place, h("p", { class: "wrong" }, error_text(error))),
    );
    return section(id, t(`technician.${id}`), place);
  };
  put(
    main,
    of_counters("doctor", (answer) => findings(answer.doctor || [])),
    of_counters("counters", (answer) => counter_tables(answer.counters || [])),
    part("gaps", `gaps?from=${from}&to=${today()}`, (answer) => gap_table(answer.gaps)),
    of_counters("database", (answer) => database_table(answer.database || {})),
    part("changes", "changes?most=100", (answer) => change_table(answer.changes)),
  );
}
