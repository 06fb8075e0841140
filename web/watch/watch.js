/** The Watch view: the live picture, the program's state, both events, the last hours. */
import { APPLICATION_SIZE, EVENT_NAMES, VIEW, sizeOf } from "../base/facts.js";
import { recall, remember } from "../base/memory.js";
import { becauseOf, capitalised, clockTime, durationInWords } from "../base/words.js";
import { LivePicture, notLiveWords } from "../picture/picture.js";
import { streamUrl } from "../program/api.js";
import { anonymisedProblem } from "../settings/review.js";
import { html, useMemo, useState } from "../vendor/preact.js";
import { Scene } from "./scene.js";
import { Sight } from "./sight.js";
import { Timeline } from "./timeline.js";

function area(size) {
  const { width, height } = sizeOf(size);
  return width * height;
}

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

function NoAnonymised({ reason, onShow }) {
  return html`<div class="no-picture">
    <p class="no-picture-title">Nothing anonymised to show</p>
    <p>${reason}</p>
    <p class="row">
      <a class="button" href=${VIEW.setup}>Go to the settings</a>
      <button type="button" class="quiet" onClick=${onShow}>Show the picture with people</button>
    </p>
  </div>`;
}

function OpenAlone({ size, anonymised }) {
  const address = useMemo(() => streamUrl(size, anonymised), [size, anonymised]);
  return html`<a href=${address} target="_blank" rel="noopener">Open alone</a>`;
}

function pictureTitle(anonymise, notLive) {
  if (notLive === "absent") return "No picture";
  if (notLive !== null) return notLiveWords(notLive);
  return anonymise ? "Live, anonymised" : "Live";
}

function Picture({ link, settings, live }) {
  const [anonymise, setAnonymise] = useState(() => recall("anonymise") === "on");
  const [notLive, setNotLive] = useState("absent");
  const choose = (on) => {
    remember("anonymise", on ? "on" : "off");
    setNotLive("absent");
    setAnonymise(on);
  };
  const reason = whyNotAnonymised(settings);
  const size = anonymise ? settings.anonymisedSize : watchedSize(settings);
  const label = anonymise ? "Live picture, anonymised" : "Live picture of the room with what the program found";
  return html`<section class="panel picture-panel" aria-labelledby="picture-heading">
    <div class="panel-head">
      <h2 id="picture-heading">${pictureTitle(anonymise, notLive)}</h2>
      <label class="switch">
        <input type="checkbox" role="switch" checked=${anonymise} onChange=${(event) => choose(event.target.checked)} />
        <span>Anonymise</span>
      </label>
    </div>
    <div class="stage">
      ${
        anonymise && reason
          ? html`<${NoAnonymised} reason=${reason} onShow=${() => choose(false)} />`
          : size
            ? html`<${LivePicture}
                key=${`${size} ${anonymise}`}
                link=${link}
                size=${size}
                anonymised=${anonymise}
                label=${label}
                live=${live}
                onLive=${setNotLive}
              />`
            : html`<div class="no-picture"><p>The camera offers no stream.</p></div>`
      }
    </div>
    ${(!anonymise || !reason) && size && html`<${Caption} size=${size} anonymised=${anonymise} settings=${settings} />`}
  </section>`;
}

function Caption({ size, anonymised, settings }) {
  const drawn = settings.overlayOn ? "Overlay stream" : "The application's own stream";
  return html`<p class="caption">
    <span>${size}</span>
    <span>${anonymised ? "People that the program follows are covered, the rest is coarsened." : drawn}</span>
    <${OpenAlone} size=${size} anonymised=${anonymised} />
  </p>`;
}

function Gap({ text, link }) {
  return html`<li>${text}${link && html` <a href=${link.href}>${link.text}</a>`}</li>`;
}

function State({ state }) {
  return html`<section class=${`panel state tone-${state.tone}`} aria-labelledby="state-heading">
    <h2 id="state-heading" class="hidden">State</h2>
    <p class="state-title"><span class="sign" aria-hidden="true">${state.sign}</span>${state.title}</p>
    ${state.kind === "silent" && html`<p>Nothing is known until the camera is heard again.</p>`}
    ${
      state.missing.length > 0 &&
      html`<ul class="gaps">
        ${state.missing.map((gap) => html`<${Gap} key=${gap.text} ...${gap} />`)}
      </ul>`
    }
    ${state.program && html`<p class="small">${state.program}</p>`}
  </section>`;
}

function lastTime(name, history) {
  const changes = history.filter((change) => change.name === name);
  const end = changes.findLastIndex((change) => !change.active);
  if (end < 0) return null;
  const begin = changes.slice(0, end).findLast((change) => change.active);
  const { time, closed_at_start: restart } = changes[end];
  return { end: Date.parse(time), begin: begin ? Date.parse(begin.time) : null, restart };
}

function Last({ name, history, limited, now }) {
  const last = lastTime(name, history);
  if (!last) {
    return html`<p class="small">
      ${limited ? "Not since this page was opened." : "Not in the last hours, as far as it was watched."}
    </p>`;
  }
  const day = new Date(now);
  if (last.restart) {
    const at = clockTime(new Date(last.end), day);
    return html`<p class="small">Ended by a restart at ${at}; what happened meanwhile is not known.</p>`;
  }
  if (last.begin === null) return html`<p class="small">Ended last at ${clockTime(new Date(last.end), day)}.</p>`;
  const words = durationInWords(last.end - last.begin);
  return html`<p class="small">Last at ${clockTime(new Date(last.begin), day)}, for ${words}.</p>`;
}

function Since({ since, silent, now }) {
  if (!since) return html`<p>Active, since when is not known.</p>`;
  const begin = Date.parse(since);
  if (silent) return html`<p>Since ${clockTime(new Date(begin), new Date(now))}.</p>`;
  return html`<p>
    Since <time datetime=${since}>${clockTime(new Date(begin), new Date(now))}</time>, for${" "}
    <strong class="ticking">${durationInWords(now - begin)}</strong>
  </p>`;
}

/** How a card looks: an event that is active stays so until its end is known. */
function lookOf(event, state, stopped) {
  if (event?.active) return { tone: "alarm", sign: "▲", words: "Active" };
  if (state.silentSince !== null || !event || event.active === null) {
    return { tone: "unknown", sign: "?", words: "Not known" };
  }
  return stopped
    ? { tone: "unknown", sign: "✕", words: "Not watched for" }
    : { tone: "calm", sign: "–", words: "Not active" };
}

function EventCard({ name, event, history, limited, state, now }) {
  const reasons = state.missing.filter(({ stops }) => stops.includes(name)).map(({ text }) => text);
  const { tone, sign, words } = lookOf(event, state, reasons.length > 0);
  const silent = state.silentSince !== null;
  return html`<article class=${`event event-${tone}`}>
    <h3>${name}</h3>
    <p class="event-state"><span class="sign" aria-hidden="true">${sign}</span>${words}</p>
    ${tone === "alarm" && html`<${Since} since=${event.since} silent=${silent} now=${now} />`}
    ${tone === "alarm" && event.because && html`<p class="because">${becauseOf(event.because)}</p>`}
    ${
      silent &&
      html`<p class="note">
        <span aria-hidden="true">! </span
        >${capitalised(state.silentWords)}${tone === "alarm" && ": this is the last that is known"}.
      </p>`
    }
    ${tone === "calm" && html`<${Last} name=${name} history=${history} limited=${limited} now=${now} />`}
    ${reasons.map((text) => html`<p key=${text} class="small note"><span aria-hidden="true">! </span>${text}</p>`)}
  </article>`;
}

function Events({ events, history, limited, state, now }) {
  return html`<section class="panel events" aria-labelledby="events-heading">
    <h2 id="events-heading">Events</h2>
    ${EVENT_NAMES.map(
      (name) =>
        html`<${EventCard}
          key=${name}
          name=${name}
          event=${events.find((event) => event.name === name)}
          ...${{ history, limited, state, now }}
        />`,
    )}
    ${
      limited &&
      state.silentSince === null &&
      html`<p class="small note">
        <span aria-hidden="true">! </span>The events are known only through the program's status, which shows one at a
        time: while one is active, or while the program is slow, the other may be hidden.
      </p>`
    }
  </section>`;
}

/**
 * @param {object} view
 * @param {import("../hub/link.js").Link} view.link
 * @param {object} view.state what readiness gave
 * @param {?object} view.settings the saved ones, and `view.waiting`, the words in their place
 * @param {object} view.live of the picture, see LivePicture
 * @param {object[]} view.events of the hub's news
 * @param {{history: object[], watching: ?object[]}} view.past of the hub
 * @param {{what: string, since: string}[]} view.wrong the troubles of the newest heartbeat
 * @param {?object} view.scene of sceneNow; undefined where the program does not tell
 * @param {boolean} view.limited whether only the status tells
 * @param {?number} view.openedAt since when this page knows what happens, see unwatchedTimes
 * @param {number} view.now milliseconds since 1970 by the camera's clock
 */
export function Watch({ link, state, settings, waiting, live, events, past, wrong, scene, limited, openedAt, now }) {
  const { history, watching } = past;
  return html`<div class="watch">
    <h1 class="hidden" tabindex="-1">Watch</h1>
    ${
      settings
        ? html`<${Picture} link=${link} settings=${settings} live=${live} />`
        : html`<div class="panel">
            <div class="stage no-picture" role="status"><p>${waiting}</p></div>
          </div>`
    }
    <div class="side">
      <${State} state=${state} />
      <${Events} ...${{ events, history, limited, state, now }} />
      <${Sight} wrong=${wrong} now=${now} />
      ${scene !== undefined && html`<${Scene} link=${link} scene=${scene} now=${now} />`}
    </div>
    <${Timeline} ...${{ history, events, watching, openedAt, now }} silentSince=${state.silentSince} />
  </div>`;
}
