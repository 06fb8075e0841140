/** Numbers that people enter: how they are read, and between what they must be; each limit stands here only. */
import { numberText, say, settingName } from "./words.js";

export const LIMITS = {
  sensitivity: { least: 0, most: 1 },
  widthM: { least: 0.1, most: 100 },
  depthM: { least: 0.1, most: 100 },
  height: { least: 0.1, most: 1.5 },
  air: { least: 0.1, most: 1 },
  focalLength: { least: 0.1, most: 999 },
  delay_s: { least: 0, most: 3600, whole: true },
  repeat_s: { least: 10, most: 3600, whole: true },
  escalate_s: { least: 10, most: 3600, whole: true },
  coming_s: { least: 0, most: 3600, whole: true },
};

/** Those of them that say when an alarm calls, as they are shown. */
export const CALL_TIMES = ["delay_s", "repeat_s", "escalate_s", "coming_s"];

/** A number as the program writes it: "1.6" of "1,6". */
export const plainNumber = (text) => String(text).trim().replace(",", ".");

/** Text of a decimal number as people write it, or null: no signs, exponents or other things that atof would take. */
export function decimal(text) {
  const plain = plainNumber(text);
  return /^\d{1,4}([.]\d*)?$|^[.]\d+$/.test(plain) ? Number(plain) : null;
}

/** What was entered, as it is kept: a number as the program writes it, anything else as it was typed. */
export const entered = (text) => (decimal(text) === null ? text : plainNumber(text));

/** What is wrong with what was entered for one of these, or null; `what` it is called where it is no setting. */
export function limitProblem(key, text, what = settingName(key)) {
  const { least, most, whole } = LIMITS[key];
  const value = decimal(text);
  const isOfKind = value !== null && (!whole || Number.isInteger(value));
  if (isOfKind && value >= least && value <= most) return null;
  return say(whole ? "limit.whole" : "limit", { what, least: numberText(least), most: numberText(most) });
}
