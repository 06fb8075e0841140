/** What the page says, in the language of whoever reads it; dates and numbers as their browser writes them. */
import { BED, COLOURS, FALL, TROUBLE } from "./facts.js";
import { recall } from "./memory.js";
import sentencesDe, { PARTS as PARTS_DE } from "./sentences.de.js";
import { Translator } from "./sentences.js";
import de from "./words.de.js";
import en from "./words.en.js";

const TABLES = { en, de };
/** The languages by their own names. */
export const LANGUAGES = { en: "English", de: "Deutsch" };

/** What the program itself says is English. */
const PROGRAM_LANGUAGE = "en";

const wished = globalThis.navigator?.languages ?? [];

/** Chosen in this browser, else the first of the browser's that there is, else English. */
export const LANGUAGE =
  [recall("language"), ...wished.map((tag) => tag.split("-")[0])].find((name) => Object.hasOwn(TABLES, name)) ?? "en";
const LOCALE = wished[0] ?? "en-GB";

const plurals = new Intl.PluralRules(LANGUAGE);

/**
 * A text of the language's table with its {places} filled in. An entry {one, other} is chosen by `values.count`.
 * @param {string} key
 * @param {object} [values]
 */
export function say(key, values = {}) {
  const entry = TABLES[LANGUAGE][key];
  if (entry === undefined) throw new Error(`no words for ${key}`);
  const text = typeof entry === "string" ? entry : entry[plurals.select(values.count)];
  return text.replace(/\{(\w+)\}/g, (_, name) => String(values[name]));
}

/** What failed, in words; a `reason` is the program's. */
export const failureWords = ({ key, values }) =>
  say(key, values?.reason ? { ...values, reason: programWords(values.reason) } : values);

/** An error with such words, which another place can say again in its own language by `said`. */
export const failure = (key, values, more) =>
  Object.assign(new Error(failureWords({ key, values })), { said: { key, values } }, more);

/** "Fall detected"; an event that the page does not know keeps its own name. */
export const eventName = (name) => ({ [FALL]: say("event.fall"), [BED]: say("event.exit") })[name] ?? name;

/** A setting as it is named to people. */
export const settingName = (key) => say(`setting.${key}`);

/** "Bed area 1". */
export const areaName = (group, index) => say(`area.${group}`, { number: index + 1 });

/** The floor points' names, as COLOURS. */
export const COLOUR_NAMES = COLOURS.map((colour) => say(`colour.${colour}`));

/** Because of which trouble nobody was watched, in words. */
const UNWATCHED = [
  TROUBLE.cameraAway,
  TROUBLE.pictureFrozen,
  TROUBLE.tooDark,
  TROUBLE.lensCovered,
  TROUBLE.outOfFocus,
  TROUBLE.cameraMoved,
];

/** "not watching: too dark" of the name that the camera's feed gives; without a name, or one that is not known, less. */
export const unwatchedWords = (why) =>
  UNWATCHED.includes(why) ? say("unwatched.because", { why: say(`unwatched.${why}`) }) : say("unwatched");

/** A number as the reader writes it, with so many decimals. */
const decimalText = (value, digits) =>
  new Intl.NumberFormat(LOCALE, {
    minimumFractionDigits: digits,
    maximumFractionDigits: digits,
    useGrouping: false,
  }).format(value);

const SENTENCES = { de: [sentencesDe, PARTS_DE] };
const translator = SENTENCES[LANGUAGE] && new Translator(...SENTENCES[LANGUAGE], decimalText);

const MOST_KEPT = 500;
/** What was translated last: the page is drawn each second. */
const kept = new Map();

/** What the program said in the reader's language; null where no part of it is known in that. */
function translated(text) {
  if (!translator) return LANGUAGE === PROGRAM_LANGUAGE ? text : null;
  if (!kept.has(text)) {
    if (kept.size >= MOST_KEPT) kept.clear();
    kept.set(text, translator.translate(text));
  }
  return kept.get(text);
}

/** What the program said, in the reader's language as far as it is known in that: nothing of it is lost. */
export const programWords = (text) => translated(text) ?? text;

/**
 * A trouble of the heartbeat's: where the program's words are not known in the reader's language, what is known of it
 * stands before them.
 * @param {{what: string, since: string, text: string}} trouble
 */
export function troubleWords({ what, since, text }) {
  const own = text ? translated(text) : null;
  if (own !== null) return own;
  const began = Date.parse(since);
  const isKnown = Object.values(TROUBLE).includes(what) && !Number.isNaN(began);
  if (!isKnown) return text || what;
  const words = say(`wrong.${what}`, { since: clockTime(new Date(began)) });
  return text ? say("wrong.told", { words, text }) : words;
}

export const onOrOff = (on) => say(on ? "on" : "off");

export const capitalised = (text) => text[0].toUpperCase() + text.slice(1);

/** A reason of the program's, which begins in lower case and has no full stop, as a sentence. */
export const becauseOf = (reason, ended = false) =>
  say(ended ? "because.ended" : "because", { reason: programWords(reason) });

/** A number as the reader writes it, and may type it: nothing stands between its thousands. */
export const numberText = (value, digits = 1) =>
  new Intl.NumberFormat(LOCALE, { maximumFractionDigits: digits, useGrouping: false }).format(value);

const MARK = numberText(0.5).includes(",") ? "," : ".";

/** The text of a number, "1.60", with the reader's decimal mark of the two that are taken; other texts as they are. */
export const writtenNumber = (text) => (/^\d+[.]\d*$|^[.]\d+$/.test(text) ? text.replace(".", MARK) : text);

const plural = (count, unit) =>
  new Intl.NumberFormat(LANGUAGE, { style: "unit", unit, unitDisplay: "long" }).format(count);

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
  if (first < 0) return plural(0, "second");
  return units
    .slice(first, first + 2)
    .filter(([count]) => count > 0)
    .map(([count, unit]) => plural(count, unit))
    .join(" ");
}

const clock = new Intl.DateTimeFormat(LOCALE, { timeStyle: "medium" });
const hourAndMinute = new Intl.DateTimeFormat(LOCALE, { timeStyle: "short" });
const day = new Intl.DateTimeFormat(LOCALE, { day: "numeric", month: "short" });

/** Local clock time of a Date, "12:03:10", with the day in front when it is not today's. */
export function clockTime(date, now = new Date()) {
  const time = clock.format(date);
  return date.toDateString() === now.toDateString() ? time : `${day.format(date)} ${time}`;
}

/** "12:03". */
export const shortTime = (date) => hourAndMinute.format(date);
