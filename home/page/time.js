// Times of the router's zone, whatever the browser's is. Times are epoch seconds, days texts "2026-11-22".
//
// The zone is known by name where the browser knows that name too, and by the bounds of days, which the server sends.
import { language } from "./text.js";

const day_seconds = 86400;
const days = new Map(); // day: [start, end]
let by_name = null;

const midnight = (day) => Date.UTC(+day.slice(0, 4), +day.slice(5, 7) - 1, +day.slice(8, 10)) / 1000;

export function add_days(day, count) {
  return new Date((midnight(day) + count * day_seconds) * 1000).toISOString().slice(0, 10);
}

function offset_by_name(epoch) {
  const parts = {};
  for (const { type, value } of by_name.formatToParts(epoch * 1000)) parts[type] = +value;
  return Date.UTC(parts.year, parts.month - 1, parts.day, parts.hour, parts.minute, parts.second) / 1000 - Math.floor(epoch);
}

// Takes a day's bounds. A zone name that contradicts them is not used any more.
export function learn_day(day, start, end) {
  days.set(day, [start, end]);
  if (by_name && (start + offset_by_name(start) !== midnight(day) || end + offset_by_name(end) !== midnight(add_days(day, 1))))
    by_name = null;
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
    by_name = null; // an abbreviation, such as CEST
  }
  for (const [day, [start, end]] of days) learn_day(day, start, end);
}

// Seconds that the router's clock is ahead of UTC at that time. On a day that is not 24 hours long the clock is taken to change
// when the later of its two offsets says three in summer's beginning and two at its end.
function offset(epoch) {
  if (by_name) return offset_by_name(epoch);
  let nearest = null;
  for (const [day, [start, end]] of days) {
    const distance = epoch < start ? start - epoch : Math.max(0, epoch - end + 1);
    if (!nearest || distance < nearest.distance) nearest = { distance, day, start, end };
  }
  if (!nearest) return 0;
  const before = midnight(nearest.day) - nearest.start;
  const after = midnight(add_days(nearest.day, 1)) - nearest.end;
  const change = midnight(nearest.day) + (after > before ? 3 : 2) * 3600 - after;
  return epoch < change ? before : after;
}

// A Date whose UTC fields are the router's.
export const local = (epoch) => new Date((epoch + offset(epoch)) * 1000);
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
