/** The last hours as bars: one lane for each event, and the same as a table. */
import { EVENT_NAMES } from "../base/facts.js";
import { becauseOf, capitalised, clockTime, durationInWords, unwatchedWords } from "../base/words.js";
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
  return ended?.because ? [...begin, becauseOf(ended.because, "Ended")] : begin;
}

/**
 * The times in which an event was active, within [from, now] and oldest first.
 * @param {{name: string, active: boolean, time: string, closed_at_start?: boolean, because?: string}[]} history changes,
 *   oldest first
 * @param {{name: string, active: boolean, since: ?string, because?: string}[]} events the state now
 * @param {number} from milliseconds since 1970, as `now`
 * @returns {{from: number, to: ?number, known: boolean, restart: boolean, reasons: string[]}[]} `to` null: still active;
 *   `known` false: it began earlier; `restart`: ended by a restart of the program; `reasons`: sentences, as far as known
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
    }));
}

/**
 * The times within [from, now] in which nobody was watched, or is not known to have been, oldest first.
 * @param {?{active: boolean, time: string, why?: string}[]} watching when the program began and ceased to watch, and by
 *   which trouble, oldest first; null: a camera that does not tell
 * @param {?number} silentSince milliseconds since 1970: since then nothing has been heard
 * @param {?number} openedAt as `silentSince`: since then this page knows what happens; null: it knows what was before
 * @returns {{from: number, to: number, known: boolean, why: string}[]} `why`: "not known" or "not watching", with a
 *   reason where there is one; `known` false: it began earlier
 */
export function unwatchedTimes({ watching, silentSince, openedAt }, from, now) {
  const times = [];
  if (openedAt !== null) times.push({ from: -Infinity, to: openedAt, why: "not known" });
  let open = { from: -Infinity, why: unwatchedWords() };
  for (const { active, time, why } of watching ?? []) {
    const at = Date.parse(time);
    if (!active && open?.why === unwatchedWords(why)) continue;
    if (open) times.push({ ...open, to: at });
    open = active ? null : { from: at, why: unwatchedWords(why) };
  }
  if (watching && open) times.push({ ...open, to: silentSince ?? now });
  if (silentSince !== null) times.push({ from: silentSince, to: now, why: "not known" });
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
  return html`<span class="lane-name">${name}<span class="hidden">: ${summary(times)}</span></span>
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
      ${hours.map(
        (time) =>
          html`<text key=${time} x=${at(time)} y="13">${clockTime(new Date(time), new Date(time)).slice(0, 5)}</text>`,
      )}
      <text class="axis-now" x="100%" y="13">now</text>
    </svg>
  </div>`;
}

/** What the hatching means, where there is some. */
function Legend({ unwatched }) {
  if (!unwatched.length) return null;
  const reasons = [...new Set(unwatched.map(({ why }) => why))].join(", or ");
  return html`<p class="small legend">
    <svg class="legend-sample" aria-hidden="true"><rect class="unwatched" width="100%" height="100%" /></svg>
    <span>Hatched: ${reasons}.</span>
  </p>`;
}

function lasted(time, now) {
  if (time.restart) return "not known";
  const words = durationInWords((time.to ?? now) - time.from);
  return time.known ? words : `more than ${words}`;
}

function endOf(row, clock) {
  if (row.restart) return `ended by a restart at ${clock(row.to)}; what happened meanwhile is not known`;
  if (row.to === null) return "still active";
  return row.why && row.to === row.now ? "until now" : clock(row.to);
}

function List({ rows, now }) {
  if (!rows.length) return html`<p class="muted">No event in this time.</p>`;
  const clock = (time) => clockTime(new Date(time), new Date(now));
  const explained = rows.some(({ reasons }) => reasons?.length);
  return html`<div class="scroll" tabindex="0" role="region" aria-label="Events as a list">
    <table class=${explained ? "explained" : null}>
      <thead>
        <tr>
          <th scope="col">Event</th>
          <th scope="col">Began</th>
          <th scope="col">Ended</th>
          <th scope="col">Lasted</th>
          ${explained && html`<th scope="col" class="why">Why</th>`}
        </tr>
      </thead>
      <tbody>
        ${rows.map(
          (row) =>
            html`<tr key=${row.name + row.from}>
              <th scope="row">${row.name}</th>
              <td>${row.known ? clock(row.from) : `before ${clock(row.from)}`}</td>
              <td>${endOf(row, clock)}</td>
              <td>${lasted(row, now)}</td>
              ${explained && html`<td class="why">${row.reasons?.map((text) => html`<p key=${text}>${text}</p>`)}</td>`}
            </tr>`,
        )}
      </tbody>
    </table>
  </div>`;
}

function summary(times) {
  if (!times.length) return "never";
  const now = times.some((time) => time.to === null) ? ", active now" : "";
  return `${times.length === 1 ? "once" : `${times.length} times`}${now}`;
}

/**
 * The timeline with its choice of hours. `now` is a number of milliseconds that moves on each second; the rest as
 * unwatchedTimes takes it.
 */
export function Timeline({ history, events, watching, silentSince, openedAt, now }) {
  const [hours, setHours] = useState(4);
  const span = SPANS.find((entry) => entry.hours === hours);
  const from = now - hours * HOUR;
  const lanes = EVENT_NAMES.map((name) => ({ name, times: activeTimes(history, events, name, from, now) }));
  const unwatched = unwatchedTimes({ watching, silentSince, openedAt }, from, now);
  const rows = [
    ...lanes.flatMap(({ name, times }) => times.map((time) => ({ name, ...time }))),
    ...unwatched.map((time) => ({ name: capitalised(time.why), now, ...time })),
  ];
  rows.sort((a, b) => b.from - a.from);
  return html`<section class="panel timeline" aria-labelledby="timeline-heading">
    <div class="panel-head">
      <h2 id="timeline-heading">The last hours</h2>
      <fieldset class="segments">
        <legend class="hidden">Hours shown</legend>
        ${SPANS.map(
          (entry) =>
            html`<label key=${entry.hours}>
              <input
                type="radio"
                name="hours"
                checked=${hours === entry.hours}
                onChange=${() => setHours(entry.hours)}
              /><span>${entry.hours} h</span>
            </label>`,
        )}
      </fieldset>
    </div>
    <${Lanes} lanes=${lanes} unwatched=${unwatched} from=${from} now=${now} tick=${span.tick} />
    <${Legend} unwatched=${unwatched} />
    <details>
      <summary>As a list${rows.length ? ` (${rows.length})` : ""}</summary>
      <${List} rows=${rows} now=${now} />
    </details>
  </section>`;
}
