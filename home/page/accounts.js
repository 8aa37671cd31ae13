// Who may log in, for parents; and everybody's own password.
import { api_error, get, put as send, post, remove } from "./api.js";
import { h, put, bytes_at_most, section, name, button, option, tell, ask } from "./dom.js";
import { home, on, reload, may_change } from "./household.js";
import { t, error_text } from "./text.js";

const name_most = 32;
const password_most = 72;
const kinds = ["parent", "child", "technician"];
const field = (words, input) => h("label", { class: "field" }, h("span", { class: "quiet" }, words), input);

const new_password = () =>
  bytes_at_most(
    password_most,
    h("input", { type: "password", required: true, minlength: "8", autocomplete: "new-password" }),
  );

async function done(work, words) {
  try {
    await work();
    tell(words);
    return true;
  } catch (error) {
    tell(error_text(error), true);
    return false;
  }
}

async function take_away(account) {
  if (
    !(await ask(t("accounts.remove_title", { name: account.name }), t("accounts.remove_text"), t("accounts.remove"), t("cancel")))
  )
    return;
  await done(() => remove(`accounts/${encodeURIComponent(account.name)}`), t("accounts.removed"));
  await reload(["accounts"]);
}

const person_name = (account) => {
  const found = home.persons.find((one) => one.id === account.person || one.name === account.person);
  return found ? found.name : "";
};

function row(account) {
  const own = home.session.account.name === account.name;
  return h(
    "li",
    { class: "account" },
    h(
      "div",
      {},
      name(account.name, "strong"),
      " ",
      h("span", { class: "tag" }, t(`accounts.kind.${account.kind}`)),
      person_name(account) ? h("span", { class: "quiet" }, " ", name(person_name(account))) : null,
    ),
    own ? h("span", { class: "quiet" }, t("accounts.you")) : button(t("accounts.remove"), () => take_away(account), "plain"),
  );
}

// The server would give an account that there is already its new kind and password.
async function make(called, body) {
  const { accounts } = await get("accounts"); // another parent may have made it meanwhile
  if (accounts.some((one) => one.name === called)) throw new api_error("account_exists", "", 0);
  await send(`accounts/${encodeURIComponent(called)}`, body);
}

function new_account() {
  const called = bytes_at_most(name_most, h("input", { required: true, autocomplete: "off" }));
  const password = new_password();
  const person = h("select", { name: "person" });
  const whose = field(t("accounts.person"), person);
  const no_persons = h("p", { class: "note" }, t("accounts.no_persons"));
  const kind = h(
    "select",
    { change: () => ask_person() },
    kinds.map((one) => option(one, t(`accounts.kind.${one}`), one === "child")),
  );
  // A child's account without a person would show nothing.
  function ask_person() {
    person.required = kind.value === "child";
    whose.hidden = !person.required;
    no_persons.hidden = !person.required || home.persons.length > 0;
  }
  const made = h(
    "form",
    {
      async submit(event) {
        event.preventDefault();
        const body = { kind: kind.value, password: password.value, person: kind.value === "child" ? person.value : "" };
        if (await done(() => make(called.value.trim(), body), t("saved"))) {
          made.reset();
          ask_person();
        }
        await reload(["accounts"]);
      },
    },
    h(
      "div",
      { class: "fields" },
      field(t("login.name"), called),
      field(t("accounts.kind"), kind),
      whose,
      field(t("login.password"), password),
    ),
    no_persons,
    h("p", { class: "quiet" }, t("accounts.kinds_what")),
    h("button", { class: "primary" }, t("accounts.make")),
  );
  function draw() {
    const persons = ["", ...home.persons.map((one) => one.name)];
    const before = persons.includes(person.value) ? person.value : "";
    // A choice that is open on the screen stays open when nobody came or went.
    if (JSON.stringify(persons) !== JSON.stringify([...person.options].map((one) => one.value)))
      put(
        person,
        persons.map((one) => option(one, one || t("accounts.choose"), false)),
      );
    person.value = before;
    ask_person();
  }
  return { box: h("details", { class: "card" }, h("summary", {}, t("accounts.new")), made), draw };
}

export function own_password() {
  const old = h("input", { type: "password", required: true, autocomplete: "current-password" });
  const fresh = new_password();
  const made = h(
    "form",
    {
      async submit(event) {
        event.preventDefault();
        if (await done(() => post("password", { old: old.value, new: fresh.value }), t("accounts.password_changed"))) made.reset();
      },
    },
    h("input", { value: home.session.account.name, autocomplete: "username", hidden: true }),
    h("div", { class: "fields" }, field(t("accounts.old_password"), old), field(t("accounts.new_password"), fresh)),
    h("button", { class: "primary" }, t("accounts.change_password")),
  );
  return h("details", { class: "card" }, h("summary", {}, t("accounts.change_password")), made);
}

export function accounts_section() {
  const list = h("ul", { class: "account-list" });
  const more = may_change() ? new_account() : null;
  on(["accounts", "devices"], () => {
    put(list, home.accounts.map(row));
    list.hidden = home.accounts.length === 0;
    if (more) more.draw();
  });
  return section(
    "accounts",
    t(may_change() ? "accounts" : "accounts.own"),
    list,
    h("div", { class: "stack" }, more && more.box, own_password()),
  );
}
