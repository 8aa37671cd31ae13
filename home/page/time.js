// Times of the router's zone, whatever the browser's is. Times are epoch seconds, days texts "2026-11-22".
//
// The server tells the clock of each day that is shown; other days go by the zone's name, where the browser knows it.
import { language } from "./text.js";

const day_seconds = 86400;
const days = new Map(); // by day, as learned
let by_name = null;

const midnight = (day) => Date.UTC(+day.slice(0, 4), +day.slice(5, 7) - 1, +day.slice(8, 10)) / 1000;

export function add_days(day, count) {
  return new Date((midnight(day) + count * day_seconds) * 1000).toISOString().slice(0, 10);
}

function ahead_by_name(epoch) {
  const parts = {};
  for (const { type, value } of by_name.formatToParts(epoch * 1000)) parts[type] = +value;
  return Date.UTC(parts.year, parts.month - 1, parts.day, parts.hour, parts.minute, parts.second) / 1000 - Math.floor(epoch);
}

// Takes a day with its start, end, and its clock: since when it is how far ahead of UTC. A zone's name that contradicts that is
// used no more.
export function learn_day({ day, start, end, clock }) {
  days.set(day, { start, end, clock });
  if (by_name && clock.some((one) => ahead_by_name(one.from) !== one.ahead_seconds)) by_name = null;
}

export function learn_zone(name) {
  try {
    by_name = new Intl.DateTimeFormat("en", {
      timeZone: name,
      hourCycle: "h23",
      year: "numeric",
      month: "numeric",
      day: "numeric",
      hour: "numeric",
      minute: "numeric",
      second: "numeric",
    });
  } catch {
    by_name = null; // an abbreviation that browsers do not know, such as CEST
  }
  for (const [day, known] of days) learn_day({ day, ...known });
}

// Seconds that the router's clock is ahead of UTC at that time: as the server told of the day, else by the zone's name, else as on
// the nearest day that is known.
function ahead(epoch) {
  let nearest = null;
  for (const one of days.values()) {
    const distance = Math.max(one.start - epoch, epoch - one.end, 0);
    if (!nearest || distance < nearest.distance) nearest = { distance, clock: one.clock };
  }
  if (by_name && (!nearest || nearest.distance > 0)) return ahead_by_name(epoch);
  if (!nearest) return 0;
  const begun = nearest.clock.filter((one) => one.from <= epoch);
  return (begun.pop() || nearest.clock[0]).ahead_seconds;
}

// A Date whose UTC fields are the router's.
export const local = (epoch) => new Date((epoch + ahead(epoch)) * 1000);
export const day_of = (epoch) => local(epoch).toISOString().slice(0, 10);
export const clock_text = (epoch) => local(epoch).toISOString().slice(11, 16);

function written(date, how) {
  return new Intl.DateTimeFormat(language(), { timeZone: "UTC", ...how }).format(date);
}

export const day_text = (day) => written(new Date(midnight(day) * 1000), { weekday: "long", month: "long", day: "numeric" });
export const short_day_text = (day) => written(new Date(midnight(day) * 1000), { month: "numeric", day: "numeric" });
export const weekday_text = (day) => written(new Date(midnight(day) * 1000), { weekday: "short" });

// With the date where it is another day than `today`.
export function moment_text(epoch, today) {
  const day = day_of(epoch);
  return day === today ? clock_text(epoch) : `${short_day_text(day)} ${clock_text(epoch)}`;
}
