/** The camera of the room: an installer tries an address, sees what it shows, and lets the program watch it. */
import { programWords, say } from "../base/words.js";
import { html, useEffect, useRef, useState } from "../vendor/preact.js";
import { Field } from "./field.js";
import { Optics } from "./optics.js";
import { knownCamera, takeOver, tryCamera } from "./service.js";

const LOOK_MS = 1000;
const NOTHING_TYPED = { address: "", user: "", password: "", certificate: "" };

const isBusy = (known) => known?.check?.state === "checking" || known?.takeover?.state === "opening";

/** What the service knows, asked again each second while something goes on; undefined until it has answered. */
function useKnown() {
  const [known, setKnown] = useState(undefined);
  const [wrong, setWrong] = useState("");
  const busy = isBusy(known);
  const looks = busy || known === undefined;
  const take = (asked, fail = setWrong) =>
    asked.then(
      (now) => {
        setKnown(now);
        fail("");
      },
      (error) => fail(error.message),
    );
  useEffect(() => {
    if (!looks) return undefined;
    const look = () => take(knownCamera());
    look();
    const timer = setInterval(look, LOOK_MS);
    return () => clearInterval(timer);
  }, [looks]);
  return { known, wrong, busy, take };
}

function Address({ typed, onTyped, busy, onTry }) {
  const set = (name) => (event) => onTyped({ ...typed, [name]: event.target.value, certificate: "" });
  const submit = (event) => {
    event.preventDefault();
    if (!busy) onTry();
  };
  return html`<form class="camera-form" onSubmit=${submit}>
    <${Field}
      id="camera-address"
      label=${say("camera.address")}
      type="text"
      inputmode="url"
      hint=${say("camera.addressHint")}
      value=${typed.address}
      onInput=${set("address")}
    />
    <${Field}
      id="camera-user"
      label=${say("camera.user")}
      type="text"
      hint=${say("camera.userHint")}
      value=${typed.user}
      onInput=${set("user")}
    />
    <${Field}
      id="camera-password"
      label=${say("camera.password")}
      type="password"
      hint=${say("camera.passwordHint")}
      value=${typed.password}
      onInput=${set("password")}
    />
    <p><button type="submit" class="quiet" aria-disabled=${busy ? "true" : "false"}>${say("camera.try")}</button></p>
  </form>`;
}

function Facts({ facts }) {
  return html`<dl class="camera-facts">
    ${facts.map(
      ([heading, text]) =>
        html`<div key=${heading}>
          <dt>${programWords(heading)}</dt>
          <dd>${programWords(text)}</dd>
        </div>`,
    )}
  </dl>`;
}

function Problem({ check, busy, onBelieve }) {
  return html`<p><strong>${programWords(check.problem)}</strong></p>
    <p>${programWords(check.advice)}</p>
    ${
      check.fingerprint &&
      html`<p>
        <button type="button" class="quiet" aria-disabled=${busy ? "true" : "false"} onClick=${onBelieve}>
          ${say("camera.believe")}
        </button>
      </p>`
    }`;
}

/** What was found at an address, with the way to watch it. */
function Result({ known, busy, onBelieve, onTake }) {
  const { check, recording } = known;
  return html`<div class=${`camera-result tone-${check.fits ? "ok" : "warn"}`}>
    <h3>
      <span class="sign" aria-hidden="true">${check.fits ? "✓" : "!"}</span>
      ${check.address}: ${check.fits ? say("camera.can") : say("camera.cannot")}
    </h3>
    ${!check.fits && html`<${Problem} check=${check} busy=${busy} onBelieve=${onBelieve} />`}
    <${Facts} facts=${check.facts} />
    ${check.picture && html`<img class="camera-picture" src=${check.picture} alt=${say("camera.shows")} />`}
    ${
      check.fits &&
      !recording &&
      html`<p>
        <button type="button" class="primary" aria-disabled=${busy ? "true" : "false"} onClick=${onTake}>
          ${say("camera.watch")}
        </button>
      </p>`
    }
  </div>`;
}

/** How a takeover goes. */
function takeoverWords({ takeover, source }) {
  if (takeover.state === "opening") return say("camera.opening");
  if (takeover.state === "failed") return say("camera.notTaken", { reason: programWords(takeover.reason), source });
  return say("camera.taken", { source });
}

/** What is going on, for everybody who listens. */
function statusWords(known, wrong) {
  if (wrong) return wrong;
  if (known.check?.state === "checking") return say("camera.trying", { address: known.check.address });
  return known.takeover && known.takeover.check === known.check?.id ? takeoverWords(known) : "";
}

/** What those hear who do not see the result appear. */
function resultWords(check) {
  if (check?.state !== "done") return "";
  return check.fits ? say("camera.canBe") : programWords(check.problem);
}

const watchedWords = ({ recording, source }) =>
  recording ? say("camera.recording", { source }) : say("camera.now", { source });

/** The section; nothing on a camera that is its own source. */
export function Camera() {
  const { known, wrong, busy, take } = useKnown();
  const [typed, setTyped] = useState(NOTHING_TYPED);
  const tried = useRef(NOTHING_TYPED);
  if (!known) return null;
  const tryIt = (fields) => {
    tried.current = fields;
    take(tryCamera(fields));
  };
  const believe = () => busy || tryIt({ ...tried.current, certificate: known.check.fingerprint });
  const watch = () => busy || take(takeOver(known.check.id));
  return html`<section class="panel" aria-labelledby="camera-heading">
    <h2 id="camera-heading">${say("camera.camera")}</h2>
    <p class="small">${watchedWords(known)}</p>
    <${Address} typed=${typed} onTyped=${setTyped} busy=${busy} onTry=${() => tryIt(typed)} />
    ${known.check?.state === "done" && html`<${Result} known=${known} busy=${busy} onBelieve=${believe} onTake=${watch} />`}
    <p role="status">${statusWords(known, wrong)}</p>
    <p class="hidden" role="status">${resultWords(known.check)}</p>
    <${Optics} optics=${known.optics} take=${take} />
  </section>`;
}
