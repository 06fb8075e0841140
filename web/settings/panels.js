/** The settings that are not drawn: detections, streams, and for experts sensitivity and developer mode. Each panel gets the
 * draft's `settings` and `set(part, label)`. */
import { APPLICATION_SIZE, PLACES } from "../base/facts.js";
import { decimal, limitProblem } from "../base/limits.js";
import { DecimalInput } from "../base/number.js";
import { numberText, say, settingName, writtenNumber } from "../base/words.js";
import { html, useState } from "../vendor/preact.js";
import { anonymisedProblem } from "./review.js";

/** A switch with its label and, below it, what it does. */
export function Switch({ label, hint, checked, onChange }) {
  return html`<div class="field">
    <label class="switch">
      <input type="checkbox" role="switch" checked=${checked} onChange=${(event) => onChange(event.target.checked)} />
      <span>${label}</span>
    </label>
    ${hint && html`<p class="small">${hint}</p>`}
  </div>`;
}

export function Detections({ settings, set }) {
  return html`<section class="panel" aria-labelledby=${PLACES.events.id}>
    <h2 id=${PLACES.events.id}>${say("panel.events")}</h2>
    <${Switch}
      label=${settingName("outOfBed")}
      hint=${say("panel.outOfBed")}
      checked=${settings.outOfBed}
      onChange=${(on) => set({ outOfBed: on }, settingName("outOfBed"))}
    />
    <${Switch}
      label=${settingName("falls")}
      hint=${say("panel.falls")}
      checked=${settings.falls}
      onChange=${(on) => set({ falls: on }, settingName("falls"))}
    />
  </section>`;
}

function Sensitivity({ settings, set }) {
  const value = decimal(settings.sensitivity);
  const wrong = limitProblem("sensitivity", settings.sensitivity);
  const change = (sensitivity) => set({ sensitivity }, settingName("sensitivity"));
  return html`<section class="panel" aria-labelledby=${PLACES.sensitivity.id}>
    <h2 id=${PLACES.sensitivity.id}>${say("panel.finding")}</h2>
    <div class="field">
      <label for="sensitivity">${settingName("sensitivity")}</label>
      <div class="row sensitivity">
        <input
          type="range"
          min="0"
          max="1"
          step="0.01"
          aria-label=${say("panel.slider", { name: settingName("sensitivity") })}
          aria-valuetext=${wrong ? null : writtenNumber(settings.sensitivity)}
          value=${wrong ? 0 : value}
          onInput=${(event) => change(event.target.value)}
        />
        <${DecimalInput}
          id="sensitivity"
          size="5"
          value=${settings.sensitivity}
          aria-invalid=${wrong ? "true" : "false"}
          aria-describedby="sensitivity-hint"
          onValue=${change}
        />
      </div>
      <p class=${wrong ? "small note" : "small"} id="sensitivity-hint">
        ${wrong ?? say("panel.score", { start: numberText(0.38, 2) })}
      </p>
    </div>
  </section>`;
}

const sizeLabel = (size) => (size === APPLICATION_SIZE ? say("panel.own", { size }) : size);

function SizeChoice({ id, label, value, sizes, onChange }) {
  const offered = sizes.includes(value) ? sizes : [value, ...sizes];
  return html`<div class="field">
    <label for=${id}>${label}</label>
    <select id=${id} value=${value} onChange=${(event) => onChange(event.target.value)}>
      ${offered.map(
        (size) =>
          html`<option key=${size} value=${size} selected=${size === value}>
            ${sizes.includes(size) ? sizeLabel(size) : say("panel.notOffered", { size: size || "none" })}
          </option>`,
      )}
    </select>
  </div>`;
}

/** A stream's switch and its size; `what` begins the names of both settings. */
function Stream({ what, hint, settings, set }) {
  const [on, size] = [`${what}On`, `${what}Size`];
  return html`<div class="pair">
    <${Switch}
      label=${settingName(on)}
      hint=${hint}
      checked=${settings[on]}
      onChange=${(checked) => set({ [on]: checked }, settingName(on))}
    />
    <${SizeChoice}
      id=${`${what}-size`}
      label=${settingName(size)}
      value=${settings[size]}
      sizes=${settings.sizes}
      onChange=${(chosen) => set({ [size]: chosen, problems: [] }, settingName(size))}
    />
  </div>`;
}

export function Streams(props) {
  const problem = anonymisedProblem(props.settings);
  return html`<section class="panel" aria-labelledby="streams-heading">
    <h2 id="streams-heading">${say("panel.streams")}</h2>
    <p class="small">${say("panel.streamsHint", { size: APPLICATION_SIZE })}</p>
    <${Stream} ...${props} what="overlay" hint=${say("panel.overlayHint")} />
    <${Stream} ...${props} what="anonymised" hint=${say("panel.anonymisedHint")} />
    ${problem && html`<p class="note"><span aria-hidden="true">! </span>${problem}</p>`}
  </section>`;
}

function DeveloperMode({ control }) {
  const [said, setSaid] = useState("");
  const toggle = async () => {
    try {
      await control.toggleDeveloperMode();
      setSaid(say("panel.switched"));
    } catch (error) {
      setSaid(say("panel.notSwitched", { error: error.message }));
    }
  };
  return html`<section class="panel" aria-labelledby="developer-heading">
    <h2 id="developer-heading">${say("panel.developer")}</h2>
    <p class="small">${say("panel.developerHint")}</p>
    <p><button type="button" class="quiet" onClick=${toggle}>${say("panel.developerSwitch")}</button></p>
    <p class="small" role="status">${said}</p>
  </section>`;
}

/** What nobody has to touch. */
export function Experts({ settings, set, control, open }) {
  return html`<details class="experts" open=${open}>
    <summary>${say("panel.experts")}</summary>
    <div class="cards">
      <${Sensitivity} settings=${settings} set=${set} />
      <${DeveloperMode} control=${control} />
    </div>
  </details>`;
}
