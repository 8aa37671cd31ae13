// The switches of the payment alerts of each device; each is stored when it is turned.
import { put as send } from "./api.js";
import { h, put, keep, section, name, toggle, tell } from "./dom.js";
import { home, on, limited, reload, may_change } from "./household.js";
import { t, error_text } from "./text.js";

const services = ["weixin", "alipay", "qqpay", "applepay"];

const turned = new Map(); // by "MAC switch": what is being stored, and shown until it is read back
let sent = Promise.resolve(); // one after another, so that a switch that is turned twice ends as it is shown
let draw = () => {};

function store(mac, key, on_off) {
  const which = `${mac} ${key}`;
  turned.set(which, on_off);
  draw();
  async function change() {
    try {
      await send(`payments/${mac}`, { payments: { [key]: on_off } });
      tell(t("saved"));
    } catch (error) {
      tell(error_text(error), true);
    }
    await reload(["payments"]);
    if (turned.get(which) === on_off) turned.delete(which);
    draw();
  }
  sent = sent.then(change, change);
}

// The card stays, and with it what is being turned; `draw` changes what it says.
function card(mac) {
  const head = h("legend", {});
  const said = h("p", { class: "quiet" });
  const boxes = {};
  const one = (key) => {
    const turn = (event) => store(mac, key, event.target.checked);
    const made = toggle(t(`payment.${key}`), false, turn, { "data-key": `${mac} ${key}` });
    boxes[key] = made.querySelector("input");
    return made;
  };
  const switches = h("div", {}, one("enable"), h("div", { class: "services" }, services.map(one)));
  return {
    box: h("article", { class: "card" }, h("fieldset", {}, head, said, switches)),
    draw(device) {
      const answer = home.payments.get(mac);
      const known = Boolean(answer && !answer.error);
      put(head, name(device.name, "strong"));
      put(said, known ? "" : answer ? error_text(answer.error) : t("fresh.loading"));
      said.hidden = known;
      switches.hidden = !known;
      if (!known) return;
      for (const [key, box] of Object.entries(boxes)) {
        box.checked = turned.get(`${mac} ${key}`) ?? answer.payments[key];
        box.disabled = !may_change() || (key !== "enable" && !boxes.enable.checked);
      }
    },
  };
}

export function payments_section() {
  const place = h("div", { class: "cards wide" });
  const empty = h("p", { class: "quiet" });
  const cards = new Map(); // by MAC
  draw = () => {
    const devices = limited();
    for (const device of devices) {
      if (!cards.has(device.mac)) cards.set(device.mac, card(device.mac));
      cards.get(device.mac).draw(device);
    }
    keep(
      place,
      devices.map((device) => cards.get(device.mac).box),
    );
    put(empty, devices.length ? "" : t("limits.no_devices"));
  };
  on(["payments", "devices"], () => draw());
  return section("payments", t("payments"), h("p", { class: "quiet" }, t("payments.what")), place, empty);
}
