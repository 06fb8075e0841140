/** What the page says about states, times and events: pure functions from numbers to words. */

/** The program's two events, in the order in which the page shows them. */
export const EVENT_NAMES = ["Fall Detected", "Patient Out of Bed"];

const ALARMS = { "Fall Detected": "Fall detected", "Patient Out of Bed": "Patient out of bed" };
const ALARM_OF_CODE = { 502: "Patient Out of Bed", 503: "Fall Detected" };

const TROUBLE = {
  100: { tone: "idle", sign: "◌", title: "Starting" },
  300: { tone: "warn", sign: "■", title: "Stopped" },
  600: { tone: "warn", sign: "!", title: "Slow", more: "Pictures take longer than they should. Events may come late." },
};

const BLIND = "Nobody is being watched at the moment.";

function trouble(code, text) {
  if (TROUBLE[code]) return TROUBLE[code];
  if (code === 400) {
    return { tone: "warn", sign: "!", title: text || "Data error", more: "Settings were refused in part." };
  }
  if (code > 400 && code < 500) {
    return { tone: "alarm", sign: "✕", title: text || "Error", more: BLIND, blind: true };
  }
  return { tone: "warn", sign: "?", title: text || `Status ${code}` };
}

/** "Program: AI (200), 312 ms a picture": the program's own words and its last cycle's time. */
function ownWords({ code, text, executionTime }) {
  const time = Number.isFinite(executionTime) ? `, ${executionTime} ms for the last picture` : "";
  return `Program: “${text || "no text"}” (${code})${time}`;
}

/**
 * The state that the header and the Watch view show. Active events come first because the status code hides some of
 * them (502 hides 503, 600 hides both); what else is wrong follows in `more`.
 * @param {?{connected: boolean, code: number, text: string, executionTime: number}} status null until there is one
 * @param {{name: string, active: boolean}[]} events
 * @returns {{tone: "ok"|"warn"|"alarm"|"idle", sign: string, title: string, more: string, program: string,
 *   blind?: boolean}} blind while the program analyses nothing, so that an event that is not active says nothing
 */
export function describeState(status, events) {
  if (!status) {
    return { tone: "idle", sign: "◌", title: "Connecting", more: "", program: "" };
  }
  if (!status.connected) {
    return { tone: "warn", sign: "✕", title: "No connection", more: "Nothing is known until it is back.", program: "" };
  }
  const program = ownWords(status);
  const active = new Set(events.filter((event) => event.active).map((event) => event.name));
  if (ALARM_OF_CODE[status.code]) active.add(ALARM_OF_CODE[status.code]);
  const other = status.code === 200 || ALARM_OF_CODE[status.code] ? null : trouble(status.code, status.text);
  if (active.size) {
    const [first, ...rest] = EVENT_NAMES.filter((name) => active.has(name)).map((name) => ALARMS[name]);
    const title = [first, ...rest.map((text) => text[0].toLowerCase() + text.slice(1))].join(", ");
    return {
      tone: "alarm",
      sign: "▲",
      title,
      more: other ? `${other.title}. ${other.more ?? ""}` : "",
      program,
      blind: other?.blind,
    };
  }
  if (other) return { more: "", ...other, program };
  return { tone: "ok", sign: "✓", title: "Watching", more: "", program };
}

const plural = (count, unit) => `${count} ${unit}${count === 1 ? "" : "s"}`;

/** Milliseconds in words, the two largest units: "5 seconds", "2 minutes 5 seconds", "1 hour 12 minutes". */
export function durationInWords(milliseconds) {
  const seconds = Math.max(0, Math.floor(milliseconds / 1000));
  const units = [
    [Math.floor(seconds / 86400), "day"],
    [Math.floor(seconds / 3600) % 24, "hour"],
    [Math.floor(seconds / 60) % 60, "minute"],
    [seconds % 60, "second"],
  ];
  const first = units.findIndex(([count]) => count > 0);
  if (first < 0) return "0 seconds";
  return units
    .slice(first, first + 2)
    .filter(([count]) => count > 0)
    .map(([count, unit]) => plural(count, unit))
    .join(" ");
}

const twoDigits = (number) => String(number).padStart(2, "0");

/** Local clock time of a Date, "12:03:10", with the day in front when it is not today's. */
export function clockTime(date, now = new Date()) {
  const time = [date.getHours(), date.getMinutes(), date.getSeconds()].map(twoDigits).join(":");
  if (date.toDateString() === now.toDateString()) return time;
  return `${date.toLocaleDateString("en-GB", { day: "numeric", month: "short" })} ${time}`;
}

/** Why an event cannot begin with these settings, or null. */
export function whyNever(name, settings) {
  if (!settings) return null;
  if (name === "Fall Detected") return settings.falls ? null : "Switched off in the settings.";
  if (!settings.outOfBed) return "Switched off in the settings.";
  return settings.beds.some((bed) => bed.on) ? null : "No bed area is switched on, so this event cannot begin.";
}
