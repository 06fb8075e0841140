/** The live picture with its switch: the room as it is, or with its people covered. */
import { APPLICATION_SIZE, VIEW, sizeOf } from "../base/facts.js";
import { recall, remember } from "../base/memory.js";
import { say } from "../base/words.js";
import { LivePicture, notLiveWords } from "../picture/picture.js";
import { streamUrl } from "../program/api.js";
import { anonymisedProblem } from "../settings/review.js";
import { html, useMemo, useState } from "../vendor/preact.js";

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
  if (!settings.anonymisedOn) return say("room.notOn");
  const problem = anonymisedProblem(settings);
  if (problem) return problem;
  if (settings.sizes.includes(settings.anonymisedSize)) return null;
  return say("room.notOffered", { size: settings.anonymisedSize });
}

function NoAnonymised({ reason, onShow }) {
  return html`<div class="no-picture">
    <p class="no-picture-title">${say("room.nothing")}</p>
    <p>${reason}</p>
    <p class="row">
      <a class="button" href=${VIEW.streams}>${say("room.toSettings")}</a>
      <button type="button" class="quiet" onClick=${onShow}>${say("room.showPeople")}</button>
    </p>
  </div>`;
}

function OpenAlone(what) {
  const address = useMemo(() => streamUrl(what), [what.size, what.anonymised, what.covered]);
  return html`<a href=${address} target="_blank" rel="noopener">${say("room.alone")}</a>`;
}

/** The stream that is wanted: {size, anonymised, covered}; `covers`: the workstation has an anonymised view of its own. */
export function streamOf(settings, anonymise, covers) {
  if (!anonymise) return { size: watchedSize(settings), anonymised: false, covered: false };
  if (covers) return { size: APPLICATION_SIZE, anonymised: true, covered: true };
  return { size: settings.anonymisedSize, anonymised: true, covered: false };
}

function titleOf(anonymise, notLive) {
  if (notLive === "absent") return say("room.noPicture");
  if (notLive !== null) return notLiveWords(notLive);
  return say(anonymise ? "room.liveAnonymised" : "room.live");
}

/** @param {object} view see Watch; `covers` as for streamOf */
export function Room({ link, settings, live, covers }) {
  const [anonymise, setAnonymise] = useState(() => recall("anonymise") === "on");
  const [notLive, setNotLive] = useState("absent");
  const choose = (on) => {
    remember("anonymise", on ? "on" : "off");
    setNotLive("absent");
    setAnonymise(on);
  };
  const reason = anonymise && !covers ? whyNotAnonymised(settings) : null;
  const what = streamOf(settings, anonymise, covers);
  const shown = reason
    ? html`<${NoAnonymised} reason=${reason} onShow=${() => choose(false)} />`
    : html`<${Shown} ...${{ link, what, live }} onLive=${setNotLive} />`;
  return html`<section class="panel picture-panel" aria-labelledby="picture-heading">
    <div class="panel-head">
      <h2 id="picture-heading">${titleOf(anonymise, notLive)}</h2>
      <label class="switch">
        <input type="checkbox" role="switch" checked=${anonymise} onChange=${(event) => choose(event.target.checked)} />
        <span>${say("room.anonymise")}</span>
      </label>
    </div>
    <div class="stage">${shown}</div>
    ${!reason && what.size && html`<p class="caption"><span>${anonymise && say("room.covered")}</span><${OpenAlone} ...${what} /></p>`}
  </section>`;
}

function Shown({ link, what, live, onLive }) {
  if (!what.size) return html`<div class="no-picture"><p>${say("room.noStream")}</p></div>`;
  const label = say(what.anonymised ? "room.labelAnonymised" : "room.label");
  const key = `${what.size} ${what.anonymised}`;
  return html`<${LivePicture} key=${key} link=${link} ...${what} label=${label} live=${live} onLive=${onLive} />`;
}
