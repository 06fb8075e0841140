/** What has to be allowed before this device calls, trying it, and the pause of the call. */
import { clockTime, durationInWords, say } from "../base/words.js";
import { html, useState } from "../vendor/preact.js";
import { deviceNow, limitsOf, toggleFullScreen } from "./device.js";
import { PAUSES, endPause, pause, test } from "./service.js";

/** Said until it is done: a page that has not been clicked makes no sound. */
export function SoundOff({ caller }) {
  const [wrong, setWrong] = useState("");
  if (caller.ready) return null;
  const allow = async () => setWrong((await caller.allow()) ? "" : say("sound.failed"));
  return html`<section class="notice tone-warn" aria-label=${say("sound.title")}>
    <p>
      <span class="sign" aria-hidden="true">!</span
      ><span><strong>${say("sound.off")}</strong> <span class="small">${say("sound.hint")}</span></span>
    </p>
    <button type="button" class="primary" onClick=${allow}>${say("sound.allow")}</button>
    <p role="status">${wrong}</p>
  </section>`;
}

/** Whoever opens the page anew is told anew. */
let isUnderstood = false;

/** What cannot work over this address, said before anyone relies on it. */
export function Insecure() {
  const [, redraw] = useState(isUnderstood);
  const device = deviceNow();
  if (device.secure || isUnderstood) return null;
  const understand = () => {
    isUnderstood = true;
    redraw(true);
  };
  return html`<section class="notice long tone-warn" aria-label=${say("device.limits")}>
    <p><span class="sign" aria-hidden="true">!</span><span>${limitsOf(device)}</span></p>
    <button type="button" class="quiet" onClick=${understand}>${say("device.understood")}</button>
  </section>`;
}

/** Of what came, what only ears and hands can tell, and what did not come. */
const SIGNS = { ok: "✓", idle: "?", warn: "✕" };

function Results({ results }) {
  return html`<ul class="results">
    ${results.map(
      ({ key, tone, words }) =>
        html`<li key=${key} class=${`tone-${tone}`}>
          <span class="sign" aria-hidden="true">${SIGNS[tone]}</span>
          <span>${say(`test.${key}`)}: ${words}</span>
        </li>`,
    )}
  </ul>`;
}

/** This device: what cannot work on it, a test of the whole way, and full screen. */
export function Device({ caller }) {
  const [state, setState] = useState({ busy: false, results: [] });
  const run = async () => {
    if (state.busy) return;
    setState({ busy: true, results: [] });
    setState({ busy: false, results: await caller.test(test) });
  };
  const device = deviceNow();
  return html`<section class="panel device" aria-labelledby="device-heading">
    <h2 id="device-heading">${say("device.title")}</h2>
    ${limitsOf(device).map((text) => html`<p key=${text} class="note"><span aria-hidden="true">! </span>${text}</p>`)}
    <p class="row">
      <button type="button" class="quiet" aria-disabled=${state.busy ? "true" : "false"} onClick=${run}>
        ${say("test.try")}
      </button>
      ${
        device.fullScreen &&
        html`<button type="button" class="quiet" onClick=${toggleFullScreen}>${say("device.fullScreen")}</button>`
      }
    </p>
    <div role="status">
      ${state.busy && html`<p>${say("test.trying")}</p>`}
      ${state.results.length > 0 && html`<${Results} results=${state.results} />`}
    </div>
  </section>`;
}

/** Asks the camera, and says what it refuses. */
function useAsking() {
  const [wrong, setWrong] = useState("");
  const ask = (promise) =>
    promise.then(
      () => setWrong(""),
      (error) => setWrong(error.message),
    );
  return { wrong, ask };
}

/** A pause that lasts, with what is left of it. */
export function Paused({ pause: { until, by }, now }) {
  const { wrong, ask } = useAsking();
  const left = Math.max(0, Date.parse(until) - now);
  const words = { at: clockTime(new Date(until), new Date(now)), by: by || say("alarm.somebody") };
  return html`<section class="notice tone-warn" aria-label=${say("pause.title")}>
    <p>
      <span class="sign" aria-hidden="true">‖</span
      ><span
        ><strong>${say("pause.on", words)}</strong>${" "}
        <span class="ticking">${say("pause.left", { left: durationInWords(left) })}</span></span
      >
    </p>
    <button type="button" class="quiet" onClick=${() => ask(endPause())}>${say("pause.end")}</button>
    ${wrong && html`<p role="alert">${wrong}</p>`}
  </section>`;
}

/** Begins a pause: somebody is in the room. */
export function Pause() {
  const [minutes, setMinutes] = useState(15);
  const { wrong, ask } = useAsking();
  return html`<details class="pause">
    <summary>${say("pause.begin")}</summary>
    <div class="row">
      <label class="field"
        ><span class="small">${say("pause.minutes")}</span>
        <select value=${minutes} onChange=${(event) => setMinutes(Number(event.target.value))}>
          ${PAUSES.map((count) => html`<option key=${count} value=${count} selected=${count === minutes}>${durationInWords(count * 60000)}</option>`)}
        </select></label
      >
      <button type="button" class="quiet" onClick=${() => ask(pause(minutes, say("pause.reason")))}>
        ${say("pause.start")}
      </button>
    </div>
    ${wrong && html`<p role="alert" class="note">${wrong}</p>`}
  </details>`;
}
