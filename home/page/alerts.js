// The alerts of the shown day, in words.
import { h, put, section, name } from "./dom.js";
import { home, on, device_name } from "./household.js";
import { t, minutes_text } from "./text.js";
import { clock_text } from "./time.js";

const services = ["", "alipay", "weixin", "qqpay", "applepay"];

export function alert_text(alert) {
  const app = alert.app_name || "";
  const time = minutes_text(alert.amount);
  if (alert.kind === "limit") return t("alert.limit", { class: t(`class.${alert.class}`), time });
  if (alert.kind === "break") return t("alert.break", { app, time });
  if (alert.kind === "first_use") return t("alert.first_use", { app });
  const service = services[alert.class];
  return service ? t("alert.payment", { service: t(`payment.${service}`) }) : t("alert.payment_other");
}

function row(alert) {
  return h(
    "li",
    {},
    h("time", { datetime: new Date(alert.time * 1000).toISOString() }, clock_text(alert.time)),
    h("span", { class: `mark kind-${alert.kind}`, "aria-hidden": "true" }),
    h("span", {}, name(device_name(alert.device), "strong"), " ", h("span", { dir: "auto" }, alert_text(alert))),
  );
}

export function alerts_section() {
  const list = h("ol", { class: "alerts" });
  const empty = h("p", { class: "quiet" });
  on(["day", "devices"], () => {
    if (!home.timeline) return;
    const alerts = [...home.timeline.alerts].sort((a, b) => b.time - a.time);
    put(list, alerts.map(row));
    list.hidden = alerts.length === 0;
    put(empty, alerts.length ? "" : t("alerts.none"));
  });
  return section("alerts", t("alerts"), list, empty);
}
