// Above and below everything: how fresh the data is, language, light or dark, who is logged in.
import { put as send, post } from "./api.js";
import { h, put, option, button, name, tell } from "./dom.js";
import { home, kind, router_now, today, was_here } from "./household.js";
import { t, seconds_text, error_text, store, stored, remember_language } from "./text.js";
import { moment_text } from "./time.js";

const themes = ["system", "light", "dark"];
const by_id = (id) => document.getElementById(id);
let live = true; // whether events come
let fault = null; // of the last time the server was asked

export function use_theme(theme) {
  if (theme === "light" || theme === "dark") document.documentElement.dataset.theme = theme;
  else delete document.documentElement.dataset.theme;
}

// The words of what stands in the page's file, in the language chosen.
export function draw_header() {
  document.title = t("title");
  put(by_id("title"), t("title"));
  put(by_id("skip"), t("skip"));
  by_id("language").setAttribute("aria-label", t("language"));
  const theme = by_id("theme");
  theme.setAttribute("aria-label", t("theme"));
  put(
    theme,
    themes.map((one) => option(one, t(`theme.${one}`), one === (stored("appident-theme") || "system"))),
  );
  theme.onchange = () => {
    store("appident-theme", theme.value);
    use_theme(theme.value);
  };
  draw_account();
}

function draw_account() {
  const account = home.session && home.session.account;
  if (!account) {
    put(by_id("account"));
    return;
  }
  put(
    by_id("account"),
    name(account.name),
    button(t("log_out"), () => leave(), "plain"),
  );
}

async function leave() {
  try {
    await post("logout", {});
    store(was_here, "");
  } catch (error) {
    tell(error_text(error), true);
  }
  location.reload();
}

// Calls `redraw` after the language was changed.
export function follow_language(redraw) {
  by_id("language").onchange = async (event) => {
    const chosen = event.target.value;
    remember_language(chosen);
    await redraw(chosen);
    if (home.session && home.session.account)
      send("language", { language: chosen }).catch((error) => tell(error_text(error), true));
  };
}

export function set_live(yes) {
  live = yes;
  draw_freshness();
}

export function set_fault(error) {
  fault = error;
  draw_freshness();
}

// One sentence and its colour: "ok", "old" or "bad".
function freshness() {
  const { status } = home;
  if (fault && fault.code === "no_connection") return ["bad", t("fresh.no_connection")];
  if (!status) return ["old", t("fresh.loading")];
  if (!status.daemon.up) {
    const asked = status.daemon.asked;
    return ["bad", asked ? t("fresh.daemon_away_since", { time: moment_text(asked, today()) }) : t("fresh.daemon_away")];
  }
  if (fault) return ["bad", error_text(fault)];
  const now = router_now();
  const last = status.last_push ? t("fresh.last_news", { ago: seconds_text(now - status.last_push) }) : t("fresh.no_news");
  if (!live) return ["old", t("fresh.polling", { last })];
  return ["ok", t("fresh.up_to_date", { last })];
}

export function draw_freshness() {
  const place = by_id("freshness");
  if (!kind()) {
    put(place);
    return;
  }
  const [level, words] = freshness();
  if (place.className === level && place.textContent === words) return;
  place.className = level;
  // What only counts seconds is not read out again and again.
  place.setAttribute("aria-live", level === "bad" ? "polite" : "off");
  put(place, h("span", { class: "lamp", "aria-hidden": "true" }), h("span", {}, words));
}

export function draw_footer(elsewhere) {
  const status = home.status;
  put(
    by_id("foot"),
    elsewhere,
    h("span", {}, t("foot.stays_here")),
    status ? h("span", {}, t("foot.version", { version: status.version, zone: status.time_zone })) : null,
  );
}
