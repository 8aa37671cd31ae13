// A household with its page: chromium, the page's program and the real daemon, to which an evening is played. From the first run to
// a daemon that is gone; each view in light and dark, checked by axe-core, its pictures kept.
//
// usage: page_test.js DIRECTORY SIMULATOR DAEMON HOME-PROGRAM APPIDENTCTL SOURCES     pictures go to DIRECTORY/pictures
// Ends with 3 where the machine allows no namespaces.
const assert = require("node:assert");
const { spawn, spawnSync, execFileSync } = require("node:child_process");
const fs = require("node:fs");
const http = require("node:http");
const path = require("node:path");

const [directory, simulator, daemon, program, ctl, sources] = process.argv.slice(2).map((one) => path.resolve(one));
const page_files = path.join(sources, "home/page");
const scenario = path.join(sources, "simulator/scenarios/evening.json");
const pictures = path.join(directory, "pictures");
const passwords = { mia: "a long evening", ben: "block builder" };
const hostile = "<img src=x onerror=alert(1)>";
const anna = "02-00-5E-00-00-11";
const port = 20000 + (process.pid % 10000);
const address = `http://127.0.0.1:${port}`;
const patience = 90000;
const started = [];

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

async function until(what, holds) {
  for (const end = Date.now() + patience; Date.now() < end; await sleep(100)) {
    const found = await holds();
    if (found) return found;
  }
  throw new Error(`waited in vain: ${what}`);
}

// Every text that the code asks for is there in every language, with the same places.
function check_texts() {
  const places = (text) => (text.match(/\{\w+\}/g) || []).sort().join();
  const read = (name) => JSON.parse(fs.readFileSync(path.join(page_files, "text", name)));
  const english = read("en.json");
  for (const file of ["de.json", "zh.json"]) {
    const words = read(file);
    assert.deepStrictEqual(Object.keys(words), Object.keys(english), file);
    for (const key in words) assert(words[key] && places(words[key]) === places(english[key]), `${file}: ${key}`);
  }
  for (const name of fs.readdirSync(page_files).filter((one) => one.endsWith(".js")))
    for (const [, key] of fs.readFileSync(path.join(page_files, name), "utf8").matchAll(/\bt\("([^"]+)"/g))
      assert(key in english, `${name} asks for ${key}`);
}

// The evening, in a network and files of its own that appidentctl and the page's program look into.
async function play() {
  const words = ["--daemon", daemon, "--speed", "60", "--keep", scenario];
  const simulation = spawn(simulator, words, { stdio: ["pipe", "pipe", "inherit"] });
  started.push(simulation);
  const evening = { said: "" };
  simulation.stdout.on("data", (text) => (evening.said += text));
  const children = (pid) => spawnSync("pgrep", ["-P", `${pid}`]).stdout.toString().split("\n").filter(Boolean);
  const family = (pid) => [`${pid}`, ...children(pid).flatMap(family)];
  const is_daemon = (pid) => spawnSync("readlink", [`/proc/${pid}/exe`]).stdout.toString().trim() === daemon;
  evening.daemon = await until("the daemon", () => {
    if (simulation.exitCode === 3) process.exit(3);
    return family(simulation.pid).find(is_daemon);
  });
  const environment = fs.readFileSync(`/proc/${evening.daemon}/environ`, "utf8").split("\0");
  const clock = environment.filter((one) => /^(LD_PRELOAD|FAKETIME\w*|TZ)=/.test(one));
  const own_user = fs.readlinkSync(`/proc/${evening.daemon}/ns/user`) === fs.readlinkSync("/proc/self/ns/user");
  evening.words = ["--target", evening.daemon, ...(own_user ? [] : ["--user", "--preserve-credentials"]), "--mount", "--"];
  evening.words.push("env", ...clock, "APPIDENT_PLATFORM_SETTINGS=/tmp/household/settings.json");
  return evening;
}

const inside = (evening, command, input = "") => execFileSync("nsenter", [...evening.words, ...command], { input, encoding: "utf8" });
const ask_ctl = (evening, ...words) => JSON.parse(inside(evening, [ctl, ...words, "--json"]));

// A request past the browser.
function request(method, where, headers = {}, body = undefined, from = "127.0.0.1") {
  return new Promise((resolve, reject) => {
    const asked = http.request({ host: "127.0.0.1", port, method, path: where, headers, localAddress: from }, (answer) => {
      let text = "";
      answer.on("data", (part) => (text += part)).on("end", () => resolve({ status: answer.statusCode, text }));
    });
    asked.on("error", reject).end(body && JSON.stringify(body));
  });
}

async function serve(evening) {
  const settings = path.join(directory, "home.json");
  const database = path.join(directory, "home.db");
  // Without the apps of a package that may be installed here.
  const apps = { installed_catalogue: "/none", catalogue: "/tmp/household/state/catalogue.json" };
  const household = { runtime_dir: "/tmp/household/run", ...apps };
  const web = { listen: "127.0.0.1", port, web: { files: page_files, appidentctl: ctl } };
  fs.writeFileSync(settings, JSON.stringify({ database, commit_interval: 1, ...household, ...web }));
  const home = spawn("nsenter", [...evening.words, program, "--settings", settings], { stdio: "inherit" });
  started.push(home);
  await until("the page's program", () => request("GET", "/healthz").then((answer) => answer.status === 200, () => false));
  return { home, settings };
}

async function check_refusals() {
  assert.equal((await request("GET", "/", { Host: "evil.example" })).status, 421);
  const wrong = { name: "mia", password: "wrong" };
  const log_in_from = async (origin, from) => {
    const answer = await request("POST", "/api/v1/login", { Origin: origin, "Content-Type": "application/json" }, wrong, from);
    return `${answer.status} ${JSON.parse(answer.text).error.code}`;
  };
  assert.equal(await log_in_from("http://evil.example", "127.0.0.1"), "403 wrong_origin");
  const seen = [];
  await until("the lock", async () => {
    const answer = await log_in_from(address, "127.0.0.2");
    if (answer !== "429 too_many_requests") seen.push(answer);
    return seen.length === 6;
  });
  assert.deepStrictEqual(seen, [...Array(5).fill("401 wrong_password"), "429 locked_out"]);
}

const text_of = (page, where = "body") => page.$eval(where, (element) => element.innerText);

function shows(page, where, words) {
  const holds = (place, text) => document.querySelector(place)?.innerText.includes(text);
  return page.waitForFunction(holds, {}, where, words).catch(async () => {
    throw new Error(`${where} never showed "${words}" but: ${await text_of(page)}`);
  });
}

// The page is drawn anew when there is news, also between the moment when an element is found and that of its use: then it is
// looked for again.
function with_element(find, use) {
  return until("an element that stays", async () => {
    const [found, error] = await find().then((one) => use(one).then(() => [true], (why) => [false, why]));
    if (error && !error.message.includes("detached")) throw error;
    return found;
  });
}

const click = (page, where) => with_element(() => page.waitForSelector(where), (one) => one.click());

// Without the pointer: the link stands at the end of the page, which moves when there is news.
const follow_footer = (page) => page.$eval("#foot a", (link) => link.click());

async function button(page, words, where) {
  for (const one of await page.$$(`${where} button`)) if ((await one.evaluate((element) => element.innerText)) === words) return one;
  throw new Error(`no button "${words}"`);
}

const press = (page, words, where = "body") => with_element(() => button(page, words, where), (one) => one.click());

// What is in a field is replaced by key presses, so that the page learns of it as from a person.
async function write(field, words) {
  await field.click({ count: 3 });
  await field.press("Backspace");
  await field.type(words);
}

async function card(page, section, name) {
  for (const one of await page.$$(`#${section} .card`)) if ((await one.evaluate((element) => element.innerText)).includes(name)) return one;
  throw new Error(`no card of ${name} in ${section}`);
}

const within = (form, where) => form().then((one) => one.$(where));

async function save(page, form) {
  await page.$eval("#notice", (notice) => (notice.textContent = ""));
  await with_element(() => within(form, "button.primary"), (one) => one.click());
  await shows(page, "#notice", "Saved");
}

// Pictures of a view at all widths in light and dark, and no violation that axe-core finds.
async function look(page, view, axe, widths = [1200, 390, 320]) {
  for (const theme of ["dark", "light"]) {
    const wanted = { "prefers-color-scheme": theme, "prefers-reduced-motion": "reduce" };
    await page.emulateMediaFeatures(Object.entries(wanted).map(([name, value]) => ({ name, value })));
    for (const width of widths) {
      await page.setViewport({ width, height: 900 });
      await page.screenshot({ path: path.join(pictures, `${view}-${width}-${theme}.png`), fullPage: true });
      assert((await page.evaluate(() => document.documentElement.scrollWidth)) <= width, `${view} is wider than ${width}`);
    }
    await page.evaluate(axe);
    const { violations } = await page.evaluate(() => globalThis.axe.run());
    assert.deepStrictEqual(violations.map((one) => `${one.id}: ${one.nodes.map((node) => node.target).join("; ")}`), [], `${view}, ${theme}`);
  }
  await page.setViewport({ width: 1200, height: 900 });
}

async function log_in(page, name, password) {
  await page.waitForSelector("input[name=password]");
  await page.type("input[name=name]", name);
  await page.type("input[name=password]", password);
  await click(page, "form button");
}

async function change_device(page, section, device, field, words) {
  await shows(page, `#${section}`, device);
  const form = () => card(page, section, device);
  await with_element(() => within(form, `input[aria-label="${field} of ${device}"]`), (one) => write(one, words));
  await save(page, form);
}

async function first_run(page, evening, settings, axe) {
  await page.goto(address);
  await shows(page, "#main", "appident-home --password NAME --kind parent");
  await look(page, "first-run", axe);
  inside(evening, [program, "--settings", settings, "--password", "mia", "--kind", "parent"], `${passwords.mia}\n`);
  await log_in(page, "mia", "not this one"); // the page has gone on by itself
  await shows(page, "[role=alert]", "Name or password is wrong");
  await look(page, "login", axe);
  await page.type("input[name=password]", passwords.mia);
  await click(page, "form button");
  await shows(page, "#main", "Which devices are there?");
  await change_device(page, "setup", "Ben's tablet", "Person", "Ben");
  await look(page, "setup", axe);
  await press(page, "Go to the household");
}

// Every report that the rules predict stands in the timeline's table with its minutes, and nothing else.
async function check_timeline(page) {
  const lines = execFileSync(simulator, ["--predict", scenario], { encoding: "utf8" }).split("\n");
  const reports = lines.map((line) => /^\S+ +(.+?)  +(.+?)  +history: (\d+ min)/.exec(line)).filter(Boolean);
  const played = reports.map((report) => report.slice(1).join(", ")).sort();
  const read = (rows) => rows.map((row) => [...row.cells].map((cell) => cell.innerText));
  let shown = [];
  await click(page, "#timeline summary");
  await until("the last report", async () => {
    const rows = await page.$$eval("#timeline tbody tr", read);
    shown = rows.filter((cells) => cells[6] === "complete").map((cells) => [cells[0], cells[1], cells[5]].join(", "));
    return shown.length >= played.length;
  });
  assert(played.length >= 8);
  assert.deepStrictEqual(shown.sort(), played);
  await click(page, "#timeline summary");
}

// The night in which clocks are put back has an hour twice.
async function check_long_day(page) {
  const shown = await page.evaluate(async () => {
    const time = await import("/time.js");
    const start = Date.UTC(2026, 9, 24, 22) / 1000;
    const clock = [{ from: start, ahead_seconds: 7200 }, { from: start + 3 * 3600, ahead_seconds: 3600 }];
    time.learn_day({ day: "2026-10-25", start, end: start + 25 * 3600, clock });
    return [0, 2, 3, 24].map((hour) => time.clock_text(start + hour * 3600));
  });
  assert.deepStrictEqual(shown, ["00:00", "02:00", "02:00", "23:00"]);
}

// A clock that is half an hour off has its hours in the timeline too.
async function check_half_hours(page) {
  const shown = await page.evaluate(async () => {
    const [{ home, redraw }, { learn_day }] = await Promise.all([import("/household.js"), import("/time.js")]);
    const start = Date.UTC(2026, 1, 9, 18, 30) / 1000;
    const day = { day: "2026-02-10", start, end: start + 86400, clock: [{ from: start, ahead_seconds: 19800 }] };
    learn_day(day);
    home.timeline = { ...day, sessions: [], alerts: [], gaps: [] };
    redraw(["day"]);
    return [...document.querySelectorAll("#timeline .scale text")].map((one) => one.textContent);
  });
  assert.deepStrictEqual([shown.length, shown[0], shown[1]], [13, "00:00", "02:00"]);
}

// Who writes in a field does not lose it when there is news.
async function check_focus(page) {
  const kept = await page.evaluate(async () => {
    const { redraw } = await import("/household.js");
    return ["#limits input[type=number]:enabled", "#devices input"].map((where) => {
      const field = document.querySelector(where);
      field.focus();
      redraw(["limits", "devices"]);
      return document.activeElement === field;
    });
  });
  assert.deepStrictEqual(kept, [true, true]);
}

// Two switches are turned at once after somebody else has turned a third.
async function change_payments(page, evening) {
  const stored = () => ask_ctl(evening, "payments", "Ben's tablet");
  const before = stored();
  await shows(page, "#payments", "QQ Wallet");
  inside(evening, [ctl, "payments", "Ben's tablet", "--set", `weixin=${before.weixin ? "off" : "on"}`]);
  const boxes = (use) => card(page, "payments", "Ben's tablet").then((one) => one.$$eval("input", use));
  await boxes((all) => all.filter((one) => /alipay|qqpay/.test(one.dataset.key)).forEach((one) => one.click()));
  const wanted = { ...before, weixin: !before.weixin, alipay: !before.alipay, qqpay: !before.qqpay };
  await until("the switches", async () => {
    const shown = await boxes((all) => all.map((one) => [one.dataset.key.split(" ")[1], one.checked]));
    return JSON.stringify(stored()) === JSON.stringify(wanted) && shown.every(([key, is_on]) => is_on === wanted[key]);
  });
}

async function change_settings(page, evening) {
  const form = () => card(page, "limits", "Ben's tablet");
  await with_element(() => within(form, 'input[aria-label="Minutes: Games"]'), (one) => write(one, "75"));
  await save(page, form);
  const { limits } = ask_ctl(evening, "limits", "Ben's tablet");
  assert.deepStrictEqual(limits.map((one) => one.class_type).sort(), [1, 2, 3, 4, 5]);
  const games = limits.find((one) => one.class_type === 1);
  assert.deepStrictEqual([games.on, games.minutes, games.apps.map((one) => one.app_id).sort()], [true, 75, [101, 102]]);

  await page.$eval(`select[aria-label="Role of Ben's tablet"]`, (choice) => {
    choice.value = "0";
    choice.dispatchEvent(new Event("change", { bubbles: true }));
    choice.form.requestSubmit();
  });
  await shows(page, "dialog", "Its limits and payment switches are deleted");
  await press(page, "Cancel", "dialog");
  assert.equal(ask_ctl(evening, "limits", "Ben's tablet").limits.length, 5);
}

async function child(page, axe) {
  await page.$eval("#accounts details", (first) => (first.open = true));
  const form = () => page.$("#accounts form");
  await (await within(form, "input")).type("mia"); // who keeps her account and password
  await (await within(form, "input[type=password]")).type(passwords.ben);
  await page.select("#accounts select[name=person]", "Ben");
  await page.$eval("#accounts form button.primary", (one) => one.click());
  await shows(page, "#notice", "exists already");
  await write(await within(form, "input"), "ben");
  await save(page, form);
  await press(page, "Log out");
  await log_in(page, "ben", passwords.ben);
  await shows(page, "#limits", "of 1 hr 15 min");
  await shows(page, "#timeline", "Ben's tablet");
  await look(page, "child", axe);
  assert(!/Anna|Cleo|TV|img/.test(await text_of(page)));
  assert.equal((await page.$$("#limits input, #devices, #payments")).length, 0);
  const get = (where) => page.evaluate((what) => fetch(`/api/v1/${what}`).then(async (one) => `${one.status} ${await one.text()}`), where);
  for (const where of ["devices", "now", "timeline", "use", "alerts"]) assert.match(await get(where), /^200 (?!.*5E-00-00-1[1345])/, where);
  for (const where of [`limits/${anna}`, "accounts", "changes", "counters"]) assert.match(await get(where), /^40[34] /, where);
  await press(page, "Log out");
  await log_in(page, "mia", passwords.mia);
}

async function technician_and_languages(page, axe) {
  // The doctor has three seconds of the household's, a twentieth of one of ours, which a busy processor may not keep.
  await until("a good word of the doctor", async () => {
    await shows(page, "#foot", "For technicians");
    await follow_footer(page);
    await page.waitForSelector("#doctor li, #doctor .wrong");
    if ((await text_of(page, "#doctor")).includes("good")) return true;
    await follow_footer(page);
    return false;
  });
  await shows(page, "#changes", "mia");
  await look(page, "technician", axe);
  await follow_footer(page);
  for (const [language, title] of [["de", "Apps zu Hause"], ["zh", "家中的应用"], ["en", "Apps at home"]]) {
    await page.select("#language", language);
    await shows(page, "#title", title);
    await page.waitForSelector("#limits .card");
    if (language !== "en") await look(page, `overview-${language}`, axe);
  }
}

// Milliseconds from the first byte until what is in use and the day have been drawn.
async function usable_after(page) {
  const found = [];
  for (let i = 0; i < 5; i++) {
    await page.goto(address);
    await page.waitForFunction(() => performance.getEntriesByName("usable").length > 0);
    const [usable, answered] = await page.evaluate(() =>
      ["usable", location.href].map((name) => performance.getEntriesByName(name)[0]).map((one) => one.responseStart || one.startTime));
    found.push(Math.round(usable - answered));
  }
  return found.sort((a, b) => a - b);
}

async function evening_at_home() {
  check_texts();
  fs.rmSync(directory, { recursive: true, force: true });
  fs.mkdirSync(pictures, { recursive: true });
  const tools = path.join(path.dirname(directory), "page_tools");
  const find = (name) => require.resolve(name, { paths: [tools] });
  if (!fs.existsSync(path.join(tools, "node_modules/axe-core")))
    execFileSync("npm", ["install", "--silent", "--prefix", tools, "puppeteer-core@24", "axe-core@4"], { stdio: "inherit" });
  const { default: puppeteer } = await import(find("puppeteer-core"));
  const axe = fs.readFileSync(find("axe-core/axe.min.js"), "utf8");

  const evening = await play();
  const { home, settings } = await serve(evening);
  const browser = await puppeteer.launch({ executablePath: "/usr/bin/chromium", args: ["--headless=new", "--no-sandbox", "--lang=en"] });
  started.push(browser.process());
  const page = await browser.newPage();
  page.setDefaultTimeout(patience);
  const wrong = [];
  page.on("dialog", (box) => (wrong.push(box.message()), box.dismiss()));
  page.on("pageerror", (error) => wrong.push(error.message));
  page.on("console", (said) => /Content Security Policy|Uncaught/.test(said.text()) && wrong.push(said.text()));

  await first_run(page, evening, settings, axe);
  await shows(page, "#now", "Film Box"); // by its events, as nothing is loaded anew
  await shows(page, "#alerts", "Video and social: 25 min used up");
  const { y, height } = await (await page.$(".pair")).boundingBox();
  await page.screenshot({ path: path.join(pictures, "page.png"), clip: { x: 0, y: 0, width: 1200, height: y + height } });
  await look(page, "overview", axe);
  await check_refusals();
  await until("the evening's end", () => evening.said.includes("press Enter"));
  await check_timeline(page);
  await change_device(page, "devices", "Living-room TV", "Name", hostile);
  await shows(page, "#devices", hostile);
  await shows(page, "#timeline", hostile);
  assert.equal((await page.$$("img")).length, 0);
  await change_settings(page, evening);
  await change_payments(page, evening);
  await check_focus(page);
  await child(page, axe);
  await technician_and_languages(page, axe);
  await check_long_day(page);
  await check_half_hours(page);
  const times = await usable_after(page);
  console.log(`usable ${times[2]} ms after the first byte (median of ${times.join(", ")})`);

  process.kill(+evening.daemon);
  await shows(page, "#freshness", "Nothing is being recorded");
  home.kill("SIGKILL");
  await shows(page, "#freshness", "The router does not answer");
  assert.deepStrictEqual(wrong, []);
}

evening_at_home()
  .catch((error) => {
    console.error(error);
    process.exitCode = 1;
  })
  .finally(() => {
    for (const one of started) one.kill("SIGKILL");
    process.exit();
  });
