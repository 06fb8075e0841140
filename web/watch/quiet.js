/** The state and what is normal, which is small: a line for each event. */
import { EVENT_NAMES } from "../base/facts.js";
import { becauseOf, capitalised, clockTime, durationInWords, eventName, say } from "../base/words.js";
import { html } from "../vendor/preact.js";

function lastTime(name, history) {
  const changes = history.filter((change) => change.name === name);
  const end = changes.findLastIndex((change) => !change.active);
  if (end < 0) return null;
  const begin = changes.slice(0, end).findLast((change) => change.active);
  const { time, closed_at_start: restart } = changes[end];
  return { end: Date.parse(time), begin: begin ? Date.parse(begin.time) : null, restart };
}

function lastWords({ name, history, limited, now }) {
  const last = lastTime(name, history);
  if (!last) return say(limited ? "last.sinceOpened" : "last.none");
  const at = (time) => clockTime(new Date(time), new Date(now));
  if (last.restart) return say("last.restart", { at: at(last.end) });
  if (last.begin === null) return say("last.ended", { at: at(last.end) });
  return say("last.at", { at: at(last.begin), age: durationInWords(last.end - last.begin) });
}

/** Since when an event is active, as far as that is known, and because of what. */
function activeWords({ since, because }, silent, now) {
  const began = since && clockTime(new Date(since), new Date(now));
  const age = since && durationInWords(now - Date.parse(since));
  const words = !since
    ? say("active.unknown")
    : silent
      ? say("active.since", { began })
      : say("active.sinceFor", { began, age });
  return because ? `${words} ${becauseOf(because)}` : words;
}

/** How an event's line looks: one that is active stays so until its end is known. */
function lookOf(event, silent, stopped) {
  if (event?.active) return { tone: "alarm", sign: "▲", words: say("event.active") };
  if (silent || !event || event.active === null) return { tone: "warn", sign: "?", words: say("event.unknown") };
  return stopped
    ? { tone: "warn", sign: "✕", words: say("event.unwatched") }
    : { tone: "calm", sign: "–", words: say("event.calm") };
}

function EventLine({ name, event, history, limited, state, now }) {
  const silent = state.silentSince !== null;
  const { tone, sign, words } = lookOf(
    event,
    silent,
    state.missing.some(({ stops }) => stops.includes(name)),
  );
  const more =
    tone === "alarm"
      ? activeWords(event, silent, now)
      : tone === "calm"
        ? lastWords({ name, history, limited, now })
        : "";
  const unheard = silent ? ` ${capitalised(state.silentWords)}.` : "";
  return html`<li class=${`tone-${tone}`}>
    <span class="sign" aria-hidden="true">${sign}</span>
    <span
      ><strong>${eventName(name)}</strong>: <span class="event-state">${words}</span>.${" "}
      <span>${more}${unheard}</span></span
    >
  </li>`;
}

/** @param {object} props of the view; `told`: names of events that an alarm beside it tells */
export function Events({ events, history, limited, state, told, now }) {
  const of = (name) => events.find((event) => event.name === name);
  return html`<section class="quiet-events" aria-label=${say("events.title")}>
    <ul>
      ${EVENT_NAMES.filter((name) => !told.includes(name)).map((name) => html`<${EventLine} key=${name} name=${name} event=${of(name)} ...${{ history, limited, state, now }} />`)}
    </ul>
    ${limited && state.silentSince === null && html`<p class="note"><span aria-hidden="true">! </span>${say("events.limited")}</p>`}
  </section>`;
}

function Gap({ text, link, mends }) {
  return html`<li>${text}${mends && link && html` <a href=${link.href}>${link.text}</a>`}</li>`;
}

/**
 * Whether somebody is being watched, and what is missing for it. While an alarm is told beside it the title is left out.
 * @param {{state: object, since: ?number, told: boolean, mends: boolean}} props since when it watches; mends: whether
 *   who looks on may change settings
 */
export function State({ state, since, told, mends, now }) {
  const { missing } = state;
  if (told && !missing.length) return null;
  return html`<section class=${`panel state tone-${told ? "idle" : state.tone}`} aria-labelledby="state-heading">
    <h2 id="state-heading" class="hidden">${say("state.title")}</h2>
    ${!told && html`<p class="state-title"><span class="sign" aria-hidden="true">${state.sign}</span>${state.title}</p>`}
    ${state.kind === "watching" && since && html`<p class="small">${say("state.from", { at: clockTime(new Date(since), new Date(now)) })}</p>`}
    ${state.kind === "silent" && html`<p>${say("state.nothing")}</p>`}
    ${
      missing.length > 0 &&
      html`<ul class="gaps">
        ${missing.map((gap) => html`<${Gap} key=${gap.text} ...${gap} mends=${mends} />`)}
      </ul>`
    }
    ${state.program && mends && html`<p class="small">${state.program}</p>`}
  </section>`;
}
