/** What the alarms mean for who looks on: which call, how loud, and what stands in the title. Nothing here keeps time. */
import { clockTime, durationInWords, eventName, say } from "../base/words.js";

/** An alarm that nobody has closed; one that was seen and is over needs nobody any more. */
export const isOpen = ({ state, ended }) => state !== "closed" && !(state === "seen" && ended);
export const isCalling = ({ state }) => state === "calling";
/** Nobody is expected any more, whoever has said so before. */
export const isUnanswered = ({ state }) => state === "calling" || state === "held";
const isFall = ({ kind }) => kind === "fall";

/** The level from which an alarm calls, and how loud it does at first. */
export const FIRST_LEVEL = 1;
export const SOFTEST = 1;

/** Falls first, then what calls, then the newest. */
const before = (a, b) =>
  isFall(b) - isFall(a) || isCalling(b) - isCalling(a) || Date.parse(b.began) - Date.parse(a.began);

/** How loud an alarm calls, from 1 on: each level is two steps above the one before, and a call that comes again is one. */
const loudnessOf = ({ level, again }) => 2 * level - (again ? 0 : 1);

/** The alarms that are open, the most urgent first. */
export const openAlarms = (alarms) => alarms.filter(isOpen).sort(before);

/** The most urgent alarm that calls: {id, kind, loudness}, or null. A fall drowns a bed exit, a louder one another. */
export function urgent(alarms) {
  const calling = alarms.filter(isCalling);
  const most = calling.reduce((best, alarm) => Math.max(best, isFall(alarm) ? loudnessOf(alarm) : -1), -1);
  const loudest = openAlarms(calling).find((alarm) => !isFall(alarm) || loudnessOf(alarm) === most);
  return loudest ? { id: loudest.id, kind: loudest.kind, loudness: loudnessOf(loudest) } : null;
}

/** The one because of which it rings: none that was hushed here, which drowns no other. */
export const ringing = (alarms) => urgent(alarms.filter(({ hushed }) => !hushed));

/** Whether this browser may be made quiet: only while the camera, which knows the alarm, cannot be told an answer. */
export const mayHush = (alarm, state) => state === "lost" && isCalling(alarm) && !alarm.local && !alarm.hushed;

/** How an alarm looks: a way to the toilet is no emergency, and differs in colour and sign. */
export const lookOf = ({ kind }) => (kind === "fall" ? { tone: "alarm", sign: "▲" } : { tone: "exit", sign: "◆" });

const at = (time, now) => clockTime(new Date(time), new Date(now));

/** Since when, or from when to when: a sentence. */
export function timesOf({ began, ended, closed_at_start: restart }, now) {
  if (restart) return say("alarm.restart", { began: at(began, now), ended: at(ended, now) });
  if (ended) return say("alarm.over", { began: at(began, now), ended: at(ended, now) });
  return say("alarm.since", { began: at(began, now), age: durationInWords(now - Date.parse(began)) });
}

/** The last answer that counts: one that is not on disk yet does not. */
export const lastAnswer = ({ answers }) => answers.findLast(({ stored }) => stored !== false) ?? null;
export const isUnstored = ({ answers }) => answers.some(({ stored }) => stored === false);

/** Who has answered what, in words; "" while nobody has. */
export function answerWords(alarm, now) {
  const last = lastAnswer(alarm);
  if (!last) return "";
  const by = last.by || say("alarm.somebody");
  const lapsed = last.what === "coming" && isUnanswered(alarm);
  const words = say(lapsed ? "answered.lapsed" : `answered.${last.what}`, { by, at: at(last.time, now) });
  return last.reason ? `${words} ${say("answered.because", { reason: last.reason })}` : words;
}

/** Why nobody is called; a camera may know more reasons than the page. */
const HELD = ["pause", "delay", "hours"];
const heldWords = (why) => say(HELD.includes(why) ? `held.${why}` : "held.now");

/** Where the call for an alarm stands: a sentence. */
export function callWords(alarm, now) {
  if (alarm.local) return say("alarm.local");
  const answered = answerWords(alarm, now);
  if (answered) return answered;
  if (alarm.state === "held") return say("alarm.held", { why: heldWords(alarm.held_why) });
  if (alarm.again) return say("alarm.again", { level: alarm.level });
  return alarm.level > FIRST_LEVEL ? say("alarm.louder", { level: alarm.level }) : say("alarm.nobody");
}

/**
 * The page's state with the alarms in it: none that is open lets it look quiet, and a pause is never green.
 * @param {object} state of readiness
 * @param {{alarms: object[], pause: ?object}} calls
 */
export function stateWithCalls(state, { alarms, pause }, now) {
  const [first] = openAlarms(alarms);
  const isActive = state.kind === "alarm";
  if (first) {
    const event = eventName(first.event);
    // What goes on must not hide what is over and waits for an answer.
    if (isActive && state.title.includes(event)) return { ...state, ...lookOf(first) };
    const others = isActive ? state.title : state.silentWords;
    const told = say(first.ended ? "state.over" : "state.at", { event, at: at(first.ended ?? first.began, now) });
    return { ...state, ...lookOf(first), kind: "alarm", title: [told, others].filter(Boolean).join(", ") };
  }
  if (pause && state.kind === "watching") {
    const title = say("state.paused", { at: at(pause.until, now) });
    return { ...state, kind: "partly", tone: "warn", sign: "‖", title };
  }
  return state;
}
