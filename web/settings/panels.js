/** The settings that are not drawn: detections, sensitivity, streams, developer mode. */
import { APPLICATION_SIZE, SETTING_NAMES as NAMES, PLACES } from "../base/facts.js";
import { html, useState } from "../vendor/preact.js";
import { anonymisedProblem, decimal } from "./review.js";

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

function Detections({ settings, set }) {
  return html`<section class="panel" aria-labelledby=${PLACES.events.id}>
    <h3 id=${PLACES.events.id}>Events</h3>
    <${Switch}
      label=${NAMES.outOfBed}
      hint="When a bed area that is switched on has been empty for some seconds."
      checked=${settings.outOfBed}
      onChange=${(on) => set({ outOfBed: on }, NAMES.outOfBed)}
    />
    <${Switch}
      label=${NAMES.falls}
      hint="When somebody lies still on the floor, away from the picture's edge."
      checked=${settings.falls}
      onChange=${(on) => set({ falls: on }, NAMES.falls)}
    />
  </section>`;
}

function Sensitivity({ settings, set }) {
  const value = decimal(settings.sensitivity);
  const wrong = value === null || value > 1;
  const change = (event) => set({ sensitivity: event.target.value }, "Sensitivity");
  return html`<section class="panel" aria-labelledby=${PLACES.sensitivity.id}>
    <h3 id=${PLACES.sensitivity.id}>Finding people</h3>
    <div class="field">
      <label for="sensitivity">${NAMES.sensitivity}</label>
      <div class="row sensitivity">
        <input
          type="range"
          min="0"
          max="1"
          step="0.01"
          aria-label=${`${NAMES.sensitivity}, as a slider`}
          value=${wrong ? 0 : value}
          onInput=${change}
        />
        <input
          id="sensitivity"
          type="text"
          inputmode="decimal"
          size="5"
          value=${settings.sensitivity}
          aria-invalid=${wrong ? "true" : "false"}
          aria-describedby="sensitivity-hint"
          onInput=${change}
        />
      </div>
      <p class=${wrong ? "small note" : "small"} id="sensitivity-hint">
        ${
          wrong
            ? "A number from 0 to 1, such as 0.38."
            : "From 0 to 1. Lower finds more people, and more things that are none; 0.38 is a good start."
        }
      </p>
    </div>
  </section>`;
}

const sizeLabel = (size) => (size === APPLICATION_SIZE ? `${size} (the application's own)` : size);

function SizeChoice({ id, label, value, sizes, onChange }) {
  const offered = sizes.includes(value) ? sizes : [value, ...sizes];
  return html`<div class="field">
    <label for=${id}>${label}</label>
    <select id=${id} value=${value} onChange=${(event) => onChange(event.target.value)}>
      ${offered.map(
        (size) =>
          html`<option key=${size} value=${size} selected=${size === value}>
            ${sizes.includes(size) ? sizeLabel(size) : `${size || "none"} (not offered)`}
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
      label=${NAMES[on]}
      hint=${hint}
      checked=${settings[on]}
      onChange=${(checked) => set({ [on]: checked }, NAMES[on])}
    />
    <${SizeChoice}
      id=${`${what}-size`}
      label=${NAMES[size]}
      value=${settings[size]}
      sizes=${settings.sizes}
      onChange=${(chosen) => set({ [size]: chosen, problems: [] }, NAMES[size])}
    />
  </div>`;
}

function Streams(props) {
  const problem = anonymisedProblem(props.settings);
  return html`<section class="panel" aria-labelledby="streams-heading">
    <h3 id="streams-heading">Streams</h3>
    <p class="small">
      The camera offers one stream for each size. The program draws on the one of ${APPLICATION_SIZE} always, and on
      these:
    </p>
    <${Stream} ...${props} what="overlay" hint="People and what they do, drawn into the picture." />
    <${Stream} ...${props} what="anonymised" hint="People are covered, so that nobody can be recognised." />
    ${problem && html`<p class="note"><span aria-hidden="true">! </span>${problem}</p>`}
  </section>`;
}

function DeveloperMode({ control }) {
  const [said, setSaid] = useState("");
  const toggle = async () => {
    try {
      await control.toggleDeveloperMode();
      setSaid("Switched over. It is on when the live picture shows boxes and numbers around people.");
    } catch (error) {
      setSaid(`Not switched: ${error.message}`);
    }
  };
  return html`<section class="panel" aria-labelledby="developer-heading">
    <h3 id="developer-heading">Developer mode</h3>
    <p class="small">
      Draws scores, boxes and expected positions into the picture and writes more into the log, until the program starts
      again. It takes effect at once; the program does not tell whether it is on.
    </p>
    <p><button type="button" class="quiet" onClick=${toggle}>Switch developer mode on or off</button></p>
    <p class="small" role="status">${said}</p>
  </section>`;
}

/**
 * @param {{settings: object, onDraft: (settings: object, label: string) => void, control: object}} props the draft,
 *   where an edited copy goes with the edit's label, and the program
 */
export function Settings({ settings, onDraft, control }) {
  const set = (part, label) => onDraft({ ...settings, ...part }, label);
  return html`<div class="cards">
    <div>
      <${Detections} settings=${settings} set=${set} />
      <${Sensitivity} settings=${settings} set=${set} />
    </div>
    <div>
      <${Streams} settings=${settings} set=${set} />
      <${DeveloperMode} control=${control} />
    </div>
  </div>`;
}
