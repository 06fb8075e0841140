/** The Watch view: the live picture, the program's state, both events, the last hours. */
import { html, useEffect, useMemo, useState } from "./vendor/preact.js";
import { streamUrl } from "./api.js";
import { recall, remember } from "./memory.js";
import { LivePicture } from "./picture.js";
import { APPLICATION_SIZE, anonymisedProblem } from "./review.js";
import { Timeline } from "./timeline.js";
import { EVENT_NAMES, clockTime, durationInWords, whyNever } from "./words.js";

/** How often the settings are read again, in milliseconds. */
const LOOK_MS = 10000;

const area = (size) => size.split("x").reduce((product, side) => product * Number(side), 1);

/** The stream to watch: the overlay stream when it is on, else one that the program draws on, else the largest. */
export function watchedSize({ overlayOn, overlaySize, sizes }) {
  if (overlayOn && sizes.includes(overlaySize)) return overlaySize;
  if (sizes.includes(APPLICATION_SIZE)) return APPLICATION_SIZE;
  return sizes.reduce((best, size) => (best === null || area(size) > area(best) ? size : best), null);
}

/** Why there is no anonymised stream to show, or null. */
function whyNotAnonymised(settings) {
  if (!settings.anonymisedOn) return "The anonymised stream is not switched on.";
  const problem = anonymisedProblem(settings);
  if (problem) return problem;
  if (settings.sizes.includes(settings.anonymisedSize)) return null;
  return `The camera does not offer the anonymised stream's size (${settings.anonymisedSize}).`;
}

/** The time in milliseconds, once a second. */
export function useNow() {
  const [now, setNow] = useState(Date.now);
  useEffect(() => {
    const timer = setInterval(() => setNow(Date.now()), 1000);
    return () => clearInterval(timer);
  }, []);
  return now;
}

function NoAnonymised({ reason, onShow }) {
  return html`<div class="no-picture">
    <p class="no-picture-title">Nothing anonymised to show</p>
    <p>${reason}</p>
    <p class="row">
      <a class="button" href="#setup">Go to the settings</a>
      <button type="button" class="quiet" onClick=${onShow}>Show the picture with people</button>
    </p>
  </div>`;
}

function OpenAlone({ size, anonymised }) {
  const address = useMemo(() => streamUrl(size, anonymised), [size, anonymised]);
  return html`<a href=${address} target="_blank" rel="noopener">Open alone</a>`;
}

function pictureTitle(anonymise, lostSince) {
  if (lostSince) return `Not live: the picture of ${clockTime(lostSince)}`;
  return anonymise ? "Live, anonymised" : "Live";
}

function Picture({ settings, epoch, lostSince, onDoubt }) {
  const [anonymise, setAnonymise] = useState(() => recall("anonymise") === "on");
  const choose = (on) => {
    remember("anonymise", on ? "on" : "off");
    setAnonymise(on);
  };
  const reason = whyNotAnonymised(settings);
  const size = anonymise ? settings.anonymisedSize : watchedSize(settings);
  const label = anonymise ? "Live picture, anonymised" : "Live picture of the room with what the program found";
  return html`<section class="panel picture-panel" aria-labelledby="picture-heading">
    <div class="panel-head">
      <h2 id="picture-heading">${pictureTitle(anonymise, lostSince)}</h2>
      <label class="switch">
        <input type="checkbox" role="switch" checked=${anonymise} onChange=${(event) => choose(event.target.checked)} />
        <span>Anonymise</span>
      </label>
    </div>
    <div class=${lostSince ? "stage stale" : "stage"}>
      ${
        anonymise && reason
          ? html`<${NoAnonymised} reason=${reason} onShow=${() => choose(false)} />`
          : size
            ? html`<${LivePicture}
                key=${`${size} ${anonymise}`}
                size=${size}
                anonymised=${anonymise}
                label=${label}
                epoch=${epoch}
                onFail=${onDoubt}
              />`
            : html`<div class="no-picture"><p>The camera offers no stream.</p></div>`
      }
    </div>
    ${
      (!anonymise || !reason) &&
      size &&
      html`<p class="caption">
        <span>${size}</span>
        ${
          anonymise
            ? html`<span>People that the program follows are covered, the rest is coarsened.</span>`
            : html`<span>${settings.overlayOn ? "Overlay stream" : "The application's own stream"}</span>`
        }
        <${OpenAlone} size=${size} anonymised=${anonymise} />
      </p>`
    }
  </section>`;
}

function State({ state }) {
  return html`<section class=${`panel state tone-${state.tone}`} aria-labelledby="state-heading">
    <h2 id="state-heading" class="hidden">State</h2>
    <p class="state-title"><span class="sign" aria-hidden="true">${state.sign}</span>${state.title}</p>
    ${state.more && html`<p>${state.more}</p>`} ${state.program && html`<p class="small">${state.program}</p>`}
  </section>`;
}

function lastTime(name, history) {
  const changes = history.filter((change) => change.name === name);
  const end = changes.findLastIndex((change) => !change.active);
  if (end < 0) return null;
  const begin = changes.slice(0, end).findLast((change) => change.active);
  return { end: Date.parse(changes[end].time), begin: begin ? Date.parse(begin.time) : null };
}

function Last({ name, history, limited, now }) {
  const last = lastTime(name, history);
  if (!last) {
    return html`<p class="small">${limited ? "Not since this page was opened." : "Not in the last hours."}</p>`;
  }
  const day = new Date(now);
  if (last.begin === null) return html`<p class="small">Ended last at ${clockTime(new Date(last.end), day)}.</p>`;
  const words = durationInWords(last.end - last.begin);
  return html`<p class="small">Last at ${clockTime(new Date(last.begin), day)}, for ${words}.</p>`;
}

function Since({ since, now }) {
  if (!since) return html`<p>Active, since when is not known.</p>`;
  const begin = Date.parse(since);
  return html`<p>
    Since <time datetime=${since}>${clockTime(new Date(begin), new Date(now))}</time>, for${" "}
    <strong class="ticking">${durationInWords(now - begin)}</strong>
  </p>`;
}

function EventCard({ name, event, history, limited, settings, lostSince, blind, now }) {
  const never = whyNever(name, settings);
  const active = event?.active;
  const tone = lostSince || !event || (blind && !active) ? "unknown" : active ? "alarm" : "calm";
  const sign = { unknown: "?", alarm: "▲", calm: "–" }[tone];
  const words = { unknown: "Not known", alarm: "Active", calm: "Not active" }[tone];
  return html`<article class=${`event event-${tone}`}>
    <h3>${name}</h3>
    <p class="event-state"><span class="sign" aria-hidden="true">${sign}</span>${words}</p>
    ${tone === "alarm" && html`<${Since} since=${event.since} now=${now} />`}
    ${tone === "calm" && html`<${Last} name=${name} history=${history} limited=${limited} now=${now} />`}
    ${lostSince && html`<p class="small">The camera has not answered since ${clockTime(lostSince)}.</p>`}
    ${never && html`<p class="small note"><span aria-hidden="true">! </span>${never}</p>`}
  </article>`;
}

/**
 * @param {object} view
 * @param {object} view.state what describeState gave
 * @param {?object} view.settings the saved ones, and `view.waiting`, the words in their place
 * @param {object[]} view.events of the feed, as `view.history`
 * @param {boolean} view.limited whether only the status tells
 * @param {number} view.offset the camera's clock minus ours in milliseconds
 * @param {?Date} view.lostSince
 * @param {number} view.epoch of the streams
 * @param {() => void} view.onDoubt asks for the settings again, since somebody else may have saved others
 */
export function Watch({ state, settings, waiting, events, history, limited, offset, lostSince, epoch, onDoubt }) {
  const now = useNow() + offset;
  useEffect(() => {
    const timer = setInterval(onDoubt, LOOK_MS);
    return () => clearInterval(timer);
  }, []);
  return html`<div class="watch">
    <h1 class="hidden" tabindex="-1">Watch</h1>
    ${
      settings
        ? html`<${Picture} settings=${settings} epoch=${epoch} lostSince=${lostSince} onDoubt=${onDoubt} />`
        : html`<div class="panel">
            <div class="stage no-picture" role="status"><p>${waiting}</p></div>
          </div>`
    }
    <div class="side">
      <${State} state=${state} />
      <section class="panel events" aria-labelledby="events-heading">
        <h2 id="events-heading">Events</h2>
        ${EVENT_NAMES.map(
          (name) =>
            html`<${EventCard}
              key=${name}
              name=${name}
              event=${events.find((event) => event.name === name)}
              history=${history}
              limited=${limited}
              settings=${settings}
              blind=${state.blind}
              lostSince=${lostSince}
              now=${now}
            />`,
        )}
        ${
          limited &&
          html`<p class="small note">
            <span aria-hidden="true">! </span>This camera tells the events only through its status, which shows one at a
            time: while one is active, or while the program is slow, the other may be hidden.
          </p>`
        }
      </section>
    </div>
    <${Timeline} history=${history} events=${events} limited=${limited} now=${now} />
  </div>`;
}
