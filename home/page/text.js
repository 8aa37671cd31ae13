// The page's words: text/LANGUAGE.json, keys to texts with {places}. English fills what a language lacks.

const kept = "appident-language";
let words = {};
let english = {};
let current = "";

const languages = () => [...document.getElementById("language").options].map((one) => one.value);

// The account's language, else what was chosen on this device, else the browser's.
export function wanted_language(account) {
  const asked = [account && account.language, stored(kept), ...navigator.languages].filter(Boolean);
  const known = asked.map((one) => one.slice(0, 2).toLowerCase()).find((one) => languages().includes(one));
  return known || "en";
}

async function read(language) {
  const answer = await fetch(`/text/${language}.json`);
  return answer.ok ? answer.json() : {};
}

export async function use_language(language) {
  if (language === current) return;
  [words, english] = await Promise.all([read(language), language === "en" ? {} : read("en")]);
  current = language;
  document.documentElement.lang = language === "zh" ? "zh-Hans" : language;
  document.getElementById("language").value = language;
}

export function remember_language(language) {
  store(kept, language);
}

export const language = () => current;

export const has_text = (key) => key in words || key in english;

export function t(key, places = {}) {
  const text = words[key] ?? english[key] ?? key;
  return text.replace(/\{(\w+)\}/g, (whole, place) => places[place] ?? whole);
}

// "2 hr 45 min".
export function minutes_text(minutes) {
  const whole = Math.round(minutes);
  const hours = Math.floor(whole / 60);
  const rest = whole % 60;
  if (hours === 0) return t("time.minutes", { m: rest });
  return rest === 0 ? t("time.hours", { h: hours }) : t("time.hours_minutes", { h: hours, m: rest });
}

export function seconds_text(seconds) {
  if (seconds < 90) return t("time.seconds", { s: Math.max(0, Math.round(seconds)) });
  return minutes_text(seconds / 60);
}

export function number_text(value) {
  return new Intl.NumberFormat(current).format(value);
}

export function bytes_text(bytes) {
  const units = ["B", "kB", "MB", "GB", "TB"];
  let at = 0;
  while (bytes >= 1000 && at < units.length - 1) {
    bytes /= 1000;
    at++;
  }
  return `${new Intl.NumberFormat(current, { maximumFractionDigits: bytes < 10 && at > 0 ? 1 : 0 }).format(bytes)} ${units[at]}`;
}

// An error of the server in words.
export function error_text(error) {
  const key = `error.${error.code}`;
  return has_text(key) ? t(key) : t("error.other", { text: error.message || error.code || "" });
}

// localStorage may be switched off.
export function stored(key) {
  try {
    return localStorage.getItem(key);
  } catch {
    return null;
  }
}

export function store(key, value) {
  try {
    localStorage.setItem(key, value);
  } catch {
    // The choice then lasts as long as the page is open.
  }
}
