/** What the page says in more than one place, and numbers in words. */
import { BED, TROUBLE } from "./facts.js";

export const NO_ANSWER = "The camera does not answer.";
export const NO_PICTURE_YET = "Waiting for the camera's picture.";
export const ALL_SAVED = "Everything is saved.";
export const PROPOSE = "Propose from the mattress";
export const NO_BED_AREA = `No bed area is switched on, so “${BED}” cannot begin.`;

/** Because of which trouble nobody was watched, in words. */
const UNWATCHED = {
  [TROUBLE.cameraAway]: "no picture",
  [TROUBLE.pictureFrozen]: "the picture stood still",
  [TROUBLE.tooDark]: "too dark",
  [TROUBLE.lensCovered]: "the lens was covered",
  [TROUBLE.outOfFocus]: "out of focus",
  [TROUBLE.cameraMoved]: "the camera had been moved",
};

/** "not watching: too dark" of the name that the camera's feed gives; without a name, or one that is not known, less. */
export const unwatchedWords = (why) => `not watching${UNWATCHED[why] ? `: ${UNWATCHED[why]}` : ""}`;

export const onOrOff = (on) => (on ? "on" : "off");

export const capitalised = (text) => text[0].toUpperCase() + text.slice(1);

/** A reason of the program's, which begins in lower case and has no full stop, as a sentence. */
export const becauseOf = (reason, event = "") => `${event ? `${event} because` : "Because"} ${reason}.`;

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
