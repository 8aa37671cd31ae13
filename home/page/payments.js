// The switches of the payment alerts of each device; each is stored when it is turned.
import { put as send } from "./api.js";
import { h, put, section, name, toggle, tell } from "./dom.js";
import { home, on, limited, may_change } from "./household.js";
import { t, error_text } from "./text.js";

const services = ["weixin", "alipay", "qqpay", "applepay"];

async function store(mac, payments, key, box, redraw) {
  const wanted = { ...payments, [key]: box.checked };
  try {
    home.payments.set(mac, await send(`payments/${mac}`, { payments: wanted }));
    tell(t("saved"));
  } catch (error) {
    tell(error_text(error), true);
  }
  redraw(`${mac} ${key}`);
}

function card(device, redraw) {
  const answer = home.payments.get(device.mac);
  const head = h("h3", {}, name(device.name));
  if (!answer || answer.error)
    return h(
      "article",
      { class: "card" },
      head,
      h("p", { class: "quiet" }, answer ? error_text(answer.error) : t("fresh.loading")),
    );
  const { payments } = answer;
  const one = (key, off) =>
    toggle(t(`payment.${key}`), payments[key], (event) => store(device.mac, payments, key, event.target, redraw), {
      disabled: off || !may_change(),
      "data-key": `${device.mac} ${key}`,
    });
  return h(
    "article",
    { class: "card" },
    h(
      "fieldset",
      {},
      h("legend", {}, name(device.name, "strong")),
      one("enable", false),
      h(
        "div",
        { class: "services" },
        services.map((key) => one(key, !payments.enable)),
      ),
    ),
  );
}

export function payments_section() {
  const place = h("div", { class: "cards wide" });
  const empty = h("p", { class: "quiet" });
  const draw = (focus) => {
    const held = document.activeElement && place.contains(document.activeElement) ? document.activeElement.dataset.key : focus;
    put(
      place,
      limited().map((device) => card(device, draw)),
    );
    put(empty, limited().length ? "" : t("limits.no_devices"));
    const again = held && [...place.querySelectorAll("input")].find((box) => box.dataset.key === held);
    if (again) again.focus();
  };
  on(["payments", "devices"], () => draw());
  return section("payments", t("payments"), h("p", { class: "quiet" }, t("payments.what")), place, empty);
}
