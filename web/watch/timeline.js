/** The last hours as bars: one lane for each event, and the same as cards. */
import { EVENT_NAMES, KIND } from "../base/facts.js";
import {
  becauseOf,
  capitalised,
  clockTime,
  durationInWords,
  eventName,
  say,
  shortTime,
  unwatchedWords,
} from "../base/words.js";
import { answerWords } from "../call/calls.js";
import { html, useState } from "../vendor/preact.js";

const HOUR = 3600000;
const SPANS = [
  { hours: 1, tick: HOUR / 6 },
  { hours: 4, tick: HOUR },
  { hours: 12, tick: 2 * HOUR },
];

/** Because of what an event began and ended, in sentences. */
function reasonsOf({ began, ended }) {
  const begin = began?.because ? [becauseOf(began.because)] : [];
  return ended?.because ? [...begin, becauseOf(ended.because, true)] : begin;
}

/**
 * The times in which an event was active, within [from, now] and oldest first.
 * @param {{name: string, active: boolean, time: string, closed_at_start?: boolean, because?: string}[]} history changes,
 *   oldest first
 * @param {{name: string, active: boolean, since: ?string, because?: string}[]} events the state now
 * @param {number} from milliseconds since 1970, as `now`
 * @returns {{from: number, to: ?number, known: boolean, restart: boolean, reasons: string[], began: ?object}[]} `to`
 *   null: still active; `known` false: it began earlier; `restart`: ended by a restart of the program; `reasons`:
 *   sentences, as far as known; `began`: the change with which it began
 */
export function activeTimes(history, events, name, from, now) {
  const state = events.find((event) => event.name === name);
  const times = [];
  let open = null;
  let first = true;
  for (const change of history) {
    if (change.name !== name) continue;
    const time = Date.parse(change.time);
    if (change.active) open ??= { from: time, began: change };
    else if (open || first) {
      times.push({ from: -Infinity, ...open, to: time, ended: change });
      open = null;
    }
    first = false;
  }
  const since = state?.since ? Date.parse(state.since) : -Infinity;
  if (state?.active) times.push({ from: since, began: state, ...open, to: null });
  else if (open && !state) times.push({ ...open, to: null });
  return times
    .filter((time) => (time.to ?? now) > from && time.from <= now)
    .map((time) => ({
      from: Math.max(time.from, from),
      to: time.to,
      known: time.from >= from,
      restart: time.ended?.closed_at_start === true,
      reasons: reasonsOf(time),
      began: time.began ?? null,
    }));
}

/**
 * The times within [from, now] in which nobody was watched, or is not known to have been, oldest first.
 * @param {?{active: boolean, time: string, why?: string}[]} watching when the program began and ceased to watch, and by
 *   which trouble, oldest first; null: a camera that does not tell
 * @param {?number} silentSince milliseconds since 1970: since then nothing has been heard
 * @param {?number} openedAt as `silentSince`: since then this page knows what happens; null: it knows what was before
 * @returns {{from: number, to: number, known: boolean, why: string}[]} `why`: not known or not watching in words, with
 *   a reason where there is one; `known` false: it began earlier
 */
export function unwatchedTimes({ watching, silentSince, openedAt }, from, now) {
  const times = [];
  if (openedAt !== null) times.push({ from: -Infinity, to: openedAt, why: say("unknown") });
  let open = { from: -Infinity, why: unwatchedWords() };
  for (const { active, time, why } of watching ?? []) {
    const at = Date.parse(time);
    if (!active && open?.why === unwatchedWords(why)) continue;
    if (open) times.push({ ...open, to: at });
    open = active ? null : { from: at, why: unwatchedWords(why) };
  }
  if (watching && open) times.push({ ...open, to: silentSince ?? now });
  if (silentSince !== null) times.push({ from: silentSince, to: now, why: say("unknown") });
  return times
    .filter((time) => time.to > from && time.from < now && time.to > time.from)
    .map((time) => ({
      ...time,
      from: Math.max(time.from, from),
      to: Math.min(time.to, now),
      known: time.from >= from,
    }));
}

function ticksBetween(from, now, step) {
  const offset = new Date(now).getTimezoneOffset() * 60000;
  const ticks = [];
  for (let time = Math.ceil((from - offset) / step) * step + offset; time <= now; time += step) ticks.push(time);
  return ticks;
}

/** Share of the width beside the word "now" that the hours leave free. */
const CLEAR_OF_NOW = 0.12;

function Lane({ name, times, unwatched, at, ticks }) {
  return html`<span class="lane-name">${eventName(name)}<span class="hidden">: ${summary(times)}</span></span>
    <svg class="lane" aria-hidden="true">
      <rect class="lane-back" width="100%" y="8" height="18" rx="4" />
      ${ticks.map((time) => html`<line key=${time} class="tick" x1=${at(time)} x2=${at(time)} y1="0" y2="34" />`)}
      ${times.map(({ from, width }) => html`<rect key=${from} class="bar" x=${at(from)} width=${width} y="4" height="26" rx="3" />`)}
      ${unwatched.map(({ from, width }) => html`<rect key=${`-${from}`} class="unwatched" x=${at(from)} width=${width} y="8" height="18" />`)}
    </svg>`;
}

function Lanes({ lanes, unwatched, from, now, tick }) {
  const percent = (length) => `${((length / (now - from)) * 100).toFixed(3)}%`;
  const at = (time) => percent(time - from);
  const ticks = ticksBetween(from, now, tick);
  const drawn = (times) => times.map((time) => ({ ...time, width: percent((time.to ?? now) - time.from) }));
  const hours = ticks.filter((time) => now - time > (now - from) * CLEAR_OF_NOW);
  return html`<div class="lanes">
    ${lanes.map(
      ({ name, times }) =>
        html`<${Lane}
          key=${name}
          name=${name}
          times=${drawn(times)}
          unwatched=${drawn(unwatched)}
          at=${at}
          ticks=${ticks}
        />`,
    )}
    <svg class="axis" aria-hidden="true">
      <defs>
        <pattern id="unwatched" width="7" height="7" patternUnits="userSpaceOnUse" patternTransform="rotate(45)">
          <line class="hatching" x1="0" y1="0" x2="0" y2="7" />
        </pattern>
      </defs>
      ${hours.map((time) => html`<text key=${time} x=${at(time)} y="13">${shortTime(new Date(time))}</text>`)}
      <text class="axis-now" x="100%" y="13">${say("timeline.now")}</text>
    </svg>
  </div>`;
}

/** What the hatching means, where there is some. */
function Legend({ unwatched }) {
  if (!unwatched.length) return null;
  const reasons = [...new Set(unwatched.map(({ why }) => why))].join(say("timeline.or"));
  return html`<p class="small legend">
    <svg class="legend-sample" aria-hidden="true"><rect class="unwatched" width="100%" height="100%" /></svg>
    <span>${say("timeline.hatched", { reasons })}</span>
  </p>`;
}

function lasted(time, now) {
  if (time.restart) return say("unknown");
  const age = durationInWords((time.to ?? now) - time.from);
  return time.known ? age : say("timeline.more", { age });
}

function endOf(row, clock) {
  if (row.restart) return say("timeline.restart", { at: clock(row.to) });
  if (row.to === null) return say("timeline.active");
  return row.why && row.to === row.now ? say("timeline.untilNow") : clock(row.to);
}

/** The alarm that an event led to, where the camera keeps alarms. */
const alarmOf = ({ began }, alarms) =>
  began && alarms.find(({ run, seq }) => seq !== undefined && run === began.run && seq === began.seq);

/** What happened once: from when to when, because of what, and who has answered. */
function Happening({ row, alarms, now }) {
  const clock = (time) => clockTime(new Date(time), new Date(now));
  const began = row.known ? clock(row.from) : say("timeline.before", { at: clock(row.from) });
  const alarm = alarmOf(row, alarms);
  const answered = alarm && answerWords(alarm, now);
  return html`<li class=${`happening ${row.kind}`}>
    <h3><span class="sign" aria-hidden="true">${row.sign}</span>${row.name}</h3>
    <p>${began} – ${endOf(row, clock)} <span class="muted">(${lasted(row, now)})</span></p>
    ${answered && html`<p class="answered">${answered}</p>`}
    ${row.reasons?.map((text) => html`<p key=${text} class="small why">${text}</p>`)}
  </li>`;
}

/** So many are shown at once; the rest is asked for. */
const FIRST = 6;

function Happenings({ rows, alarms, now }) {
  const [all, setAll] = useState(false);
  if (!rows.length) return html`<p class="muted">${say("timeline.none")}</p>`;
  const shown = all ? rows : rows.slice(0, FIRST);
  return html`<ul class="happenings" aria-label=${say("timeline.cards")}>
      ${shown.map((row) => html`<${Happening} key=${row.name + row.from} row=${row} alarms=${alarms} now=${now} />`)}
    </ul>
    ${
      rows.length > FIRST &&
      html`<p>
        <button type="button" class="quiet" aria-expanded=${all ? "true" : "false"} onClick=${() => setAll(!all)}>
          ${all ? say("timeline.fewer") : say("timeline.all", { count: rows.length })}
        </button>
      </p>`
    }`;
}

function summary(times) {
  if (!times.length) return say("timeline.never");
  const now = times.some((time) => time.to === null) ? say("timeline.activeNow") : "";
  return say("timeline.times", { count: times.length }) + now;
}

function Hours({ hours, onHours }) {
  return html`<fieldset class="segments">
    <legend class="hidden">${say("timeline.hours")}</legend>
    ${SPANS.map(
      (entry) =>
        html`<label key=${entry.hours}>
          <input type="radio" name="hours" checked=${hours === entry.hours} onChange=${() => onHours(entry.hours)} />
          <span>${entry.hours} h</span>
        </label>`,
    )}
  </fieldset>`;
}

/** The happenings of the lanes and the times without watching, the newest first. */
function rowsOf(lanes, unwatched, now) {
  const happened = ({ name, times }) =>
    times.map((time) => ({ ...time, name: eventName(name), ...(KIND[name] === "fall" ? FELL : LEFT) }));
  const missed = unwatched.map((time) => ({ ...time, name: capitalised(time.why), now, kind: "missed", sign: "✕" }));
  return [...lanes.flatMap(happened), ...missed].sort((a, b) => b.from - a.from);
}

const FELL = { kind: "fell", sign: "▲" };
const LEFT = { kind: "left", sign: "◆" };

/**
 * The timeline with its choice of hours. `now` is a number of milliseconds that moves on each second; `alarms` those that
 * the camera keeps; the rest as unwatchedTimes takes it.
 */
export function Timeline({ history, events, watching, silentSince, openedAt, alarms, now }) {
  const [hours, setHours] = useState(4);
  const span = SPANS.find((entry) => entry.hours === hours);
  const from = now - hours * HOUR;
  const lanes = EVENT_NAMES.map((name) => ({ name, times: activeTimes(history, events, name, from, now) }));
  const unwatched = unwatchedTimes({ watching, silentSince, openedAt }, from, now);
  return html`<section class="panel timeline" aria-labelledby="timeline-heading">
    <div class="panel-head">
      <h2 id="timeline-heading">${say("timeline.title")}</h2>
      <${Hours} hours=${hours} onHours=${setHours} />
    </div>
    <${Lanes} lanes=${lanes} unwatched=${unwatched} from=${from} now=${now} tick=${span.tick} />
    <${Legend} unwatched=${unwatched} />
    <${Happenings} rows=${rowsOf(lanes, unwatched, now)} alarms=${alarms} now=${now} />
  </section>`;
}
