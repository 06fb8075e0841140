/** One alarm, told once, with the action beside it. */
import { becauseOf, eventName, say } from "../base/words.js";
import { html, useReducer, useState } from "../vendor/preact.js";
import { callWords, isUnanswered, isUnstored, lastAnswer, lookOf, mayHush, timesOf } from "./calls.js";
import { answer } from "./service.js";

const REASONS = ["nobody", "staff", "object", "other"];

/** Which answers an alarm may still be given, the likeliest first. */
export function answersFor(alarm) {
  if (alarm.local) return ["seen"];
  const last = isUnanswered(alarm) ? null : lastAnswer(alarm)?.what; // whoever was coming has not come
  if (last === "coming") return ["resolved", "false_alarm"];
  if (last === "seen") return ["coming", "resolved", "false_alarm"];
  return ["coming", "seen", "resolved", "false_alarm"];
}

/** What somebody is about to say of an alarm, {reason, own} by its id: its card may go and come back meanwhile. */
const reasons = new Map();
const NOTHING_SAID = { reason: null, own: "" };

/** An alarm's of these, null while nobody is asked for one, and the way to change it. */
function useReason(id) {
  const [, redraw] = useReducer((count) => count + 1, 0);
  const set = (next) => {
    if (next) reasons.set(id, next);
    else reasons.delete(id);
    redraw();
  };
  return [reasons.get(id) ?? null, set];
}

/** Sends answers: {busy, wrong, waits, give}; waits: the camera has taken one that is not on its disk yet. */
function useAnswer(alarm, link) {
  const [state, setState] = useState({ busy: false, wrong: "", sent: false });
  const give = async (what, reason) => {
    if (alarm.local) {
      link.send({ type: "see", id: alarm.id });
      return;
    }
    setState({ busy: true, wrong: "", sent: false });
    try {
      const told = await answer(alarm.id, what, reason);
      if (told?.id === alarm.id) link.send({ type: "alarm", alarm: told });
      if (told?.state === "closed") reasons.delete(alarm.id);
      setState({ busy: false, wrong: "", sent: told?.stored === false });
    } catch (error) {
      setState({ busy: false, wrong: error.message, sent: false });
    }
  };
  const known = alarm.answers.some(({ stored }) => stored === false);
  return { ...state, waits: known || (state.sent && alarm.state === "calling"), give };
}

function Own({ own, onOwn }) {
  return html`<label class="field"
    ><span>${say("alarm.ownReason")}</span>
    <input type="text" maxlength="200" value=${own} onInput=${(event) => onOwn(event.target.value)} />
  </label>`;
}

function FalseAlarm({ said, onSaid, onGive, busy }) {
  const { reason, own } = said;
  const submit = (event) => {
    event.preventDefault();
    if (reason && !busy) onGive("false_alarm", reason === "other" && own.trim() ? own.trim() : say(`reason.${reason}`));
  };
  return html`<form class="alarm-reason" onSubmit=${submit}>
    <fieldset>
      <legend>${say("alarm.whyFalse")}</legend>
      ${REASONS.map(
        (key) =>
          html`<label key=${key}>
            <input
              type="radio"
              name="reason"
              checked=${reason === key}
              onChange=${() => onSaid({ ...said, reason: key })}
            />
            <span>${say(`reason.${key}`)}</span>
          </label>`,
      )}
    </fieldset>
    ${reason === "other" && html`<${Own} own=${own} onOwn=${(text) => onSaid({ ...said, own: text })} />`}
    <div class="row">
      <button type="submit" class="primary" aria-disabled=${busy || !reason ? "true" : "false"}>
        ${say("answer.false_alarm")}
      </button>
      <button type="button" class="quiet" onClick=${() => onSaid(null)}>${say("back")}</button>
    </div>
  </form>`;
}

function Answers({ alarm, answering }) {
  const [said, setSaid] = useReason(alarm.id);
  const { busy, give } = answering;
  if (said) return html`<${FalseAlarm} said=${said} onSaid=${setSaid} onGive=${give} busy=${busy} />`;
  const [first, ...others] = answersFor(alarm);
  const press = (what) => () => {
    if (busy) return;
    if (what === "false_alarm") setSaid(NOTHING_SAID);
    else give(what);
  };
  const button = (what, look) =>
    html`<button
      key=${what}
      type="button"
      class=${look}
      aria-disabled=${busy ? "true" : "false"}
      onClick=${press(what)}
    >
      ${say(`answer.${what}`)}
    </button>`;
  return html`<div class="alarm-answers">
    ${button(first, "primary")}${others.map((what) => button(what, "quiet"))}
  </div>`;
}

/** The way to quiet while no answer gets through: it is this device's alone, and says so. */
function Hush({ alarm, state, link }) {
  if (alarm.hushed) return html`<p class="note" role="status">${say("alarm.hushed")}</p>`;
  if (!mayHush(alarm, state)) return null;
  const hush = () => link.send({ type: "hush", id: alarm.id });
  return html`<button type="button" class="quiet" onClick=${hush}>${say("alarm.hush")}</button>`;
}

/**
 * @param {object} props
 * @param {object} props.alarm
 * @param {string} [props.because] of what it began, where the program tells that
 * @param {import("../hub/link.js").Link} props.link
 * @param {string} props.state of the feed of alarms
 * @param {number} props.now milliseconds since 1970 by the camera's clock
 * @param {string} [props.silent] since when nothing is heard of the camera, in words
 */
export function AlarmCard({ alarm, because, link, state, now, silent }) {
  const answering = useAnswer(alarm, link);
  const { tone, sign } = lookOf(alarm);
  return html`<article class=${`panel alarm tone-${tone}`} data-alarm=${alarm.id}>
    <h2 class="state-title"><span class="sign" aria-hidden="true">${sign}</span>${eventName(alarm.event)}</h2>
    <p class="alarm-times">${timesOf(alarm, now)}</p>
    ${because && html`<p class="because">${becauseOf(because)}</p>`}
    ${silent && html`<p class="note"><span aria-hidden="true">! </span>${say("alarm.lastKnown", { silent })}</p>`}
    <p role="status" class="alarm-call">${callWords(alarm, now)}</p>
    ${(answering.waits || isUnstored(alarm)) && html`<p class="note" role="status">${say("alarm.unstored")}</p>`}
    ${answering.wrong && html`<p class="note" role="alert">${say("alarm.notAnswered", { error: answering.wrong })}</p>`}
    <${Answers} key=${alarm.id} alarm=${alarm} answering=${answering} />
    <${Hush} alarm=${alarm} state=${state} link=${link} />
  </article>`;
}
