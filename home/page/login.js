// Before anything is shown: the first password, which is made on the router, and logging in.
import { get_session, login } from "./api.js";
import { h, put, button, tell } from "./dom.js";
import { home } from "./household.js";
import { t, error_text } from "./text.js";

const ask_again_seconds = 2;

// Where the first run stands: password, login, devices.
export function steps(at) {
  const all = ["password", "login", "devices"];
  return h(
    "ol",
    { class: "steps" },
    all.map((one, i) =>
      h(
        "li",
        { class: i < at ? "done" : i === at ? "here" : "", "aria-current": i === at ? "step" : null },
        t(`first.step_${one}`),
      ),
    ),
  );
}

function box(...children) {
  return h("section", { class: "narrow", "aria-labelledby": "login-title" }, ...children);
}

async function copy(words) {
  try {
    await navigator.clipboard.writeText(words);
    tell(t("first.copied"));
  } catch {
    tell(t("first.copy_yourself"), true); // a page that came without encryption may not copy
  }
}

// Shows the command that makes the first account, and waits until somebody has run it.
export async function first_run(main) {
  const command = "appident-home --password NAME --kind parent";
  put(
    main,
    box(
      h("h2", { id: "login-title" }, t("first.title")),
      steps(0),
      h("p", {}, t("first.why")),
      h(
        "div",
        { class: "command" },
        h(
          "code",
          {},
          command.split(" -").map((word, i) => [i ? " " : "", h("span", { class: "nowrap" }, i ? `-${word}` : word)]),
        ),
        button(t("first.copy"), () => copy(command)),
      ),
      h("p", { class: "quiet" }, t("first.how")),
      h("p", { class: "waiting", role: "status" }, h("span", { class: "spinner", "aria-hidden": "true" }), t("first.waiting")),
    ),
  );
  performance.mark("usable");
  for (;;) {
    await new Promise((resolve) => setTimeout(resolve, ask_again_seconds * 1000));
    const session = await get_session().catch(() => null);
    if (session && !session.first_run) return session;
  }
}

// Resolves when somebody has logged in.
export function log_in(main, first) {
  return new Promise((resolve) => {
    const wrong = h("p", { class: "wrong", role: "alert" });
    const called = h("input", {
      name: "name",
      required: true,
      autocomplete: "username",
      autocapitalize: "off",
      spellcheck: "false",
    });
    const password = h("input", { name: "password", type: "password", required: true, autocomplete: "current-password" });
    const go = h("button", { class: "primary" }, t("login.go"));
    async function submit(event) {
      event.preventDefault();
      go.disabled = true;
      put(wrong);
      try {
        home.session = await login(called.value.trim(), password.value);
        resolve();
      } catch (error) {
        put(wrong, error_text(error));
        password.value = "";
        password.focus();
      }
      go.disabled = false;
    }
    put(
      main,
      box(
        h("h2", { id: "login-title" }, t("login.title")),
        first ? steps(1) : null,
        h(
          "form",
          { submit },
          h("label", { class: "field" }, h("span", {}, t("login.name")), called),
          h("label", { class: "field" }, h("span", {}, t("login.password")), password),
          wrong,
          go,
        ),
      ),
    );
    called.focus();
    performance.mark("usable");
  });
}
