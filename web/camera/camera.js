/** The camera of the room: an installer tries an address, sees what it shows, and lets the program watch it. */
import { html, useEffect, useRef, useState } from "../vendor/preact.js";
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
  const take = (asked) =>
    asked.then(
      (now) => {
        setKnown(now);
        setWrong("");
      },
      (error) => setWrong(error.message),
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

function Field({ id, label, hint, ...input }) {
  return html`<div class="field">
    <label for=${id}>${label}</label>
    <input
      id=${id}
      autocomplete="off"
      autocapitalize="off"
      spellcheck=${false}
      aria-describedby=${`${id}-hint`}
      ...${input}
    />
    <p class="small" id=${`${id}-hint`}>${hint}</p>
  </div>`;
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
      label="Camera's address"
      type="text"
      inputmode="url"
      hint="Such as rtsp://192.168.1.20/stream; the camera's manual or its own page names it."
      value=${typed.address}
      onInput=${set("address")}
    />
    <${Field}
      id="camera-user"
      label="User name"
      type="text"
      hint="Of a user whom the camera lets watch; empty if it asks for none."
      value=${typed.user}
      onInput=${set("user")}
    />
    <${Field}
      id="camera-password"
      label="Password"
      type="password"
      hint="Kept on this machine alone, in a file of its own, once the camera is watched."
      value=${typed.password}
      onInput=${set("password")}
    />
    <p><button type="submit" class="quiet" aria-disabled=${busy ? "true" : "false"}>Try this camera</button></p>
  </form>`;
}

function Facts({ facts }) {
  return html`<dl class="camera-facts">
    ${facts.map(
      ([heading, text]) =>
        html`<div key=${heading}>
          <dt>${heading}</dt>
          <dd>${text}</dd>
        </div>`,
    )}
  </dl>`;
}

function Problem({ check, busy, onBelieve }) {
  return html`<p><strong>${check.problem}</strong></p>
    <p>${check.advice}</p>
    ${
      check.fingerprint &&
      html`<p>
        <button type="button" class="quiet" aria-disabled=${busy ? "true" : "false"} onClick=${onBelieve}>
          The fingerprint is the camera's: believe it and try again
        </button>
      </p>`
    }`;
}

/** What was found at an address, with the way to watch it. */
function Result({ known, busy, onBelieve, onTake }) {
  const { check, recording } = known;
  return html`<div class=${`camera-result tone-${check.fits ? "ok" : "warn"}`}>
    <h4>
      <span class="sign" aria-hidden="true">${check.fits ? "✓" : "!"}</span>
      ${check.address}: ${check.fits ? "can be watched" : "cannot be watched"}
    </h4>
    ${!check.fits && html`<${Problem} check=${check} busy=${busy} onBelieve=${onBelieve} />`}
    <${Facts} facts=${check.facts} />
    ${check.picture && html`<img class="camera-picture" src=${check.picture} alt="What this camera shows" />`}
    ${
      check.fits &&
      !recording &&
      html`<p>
        <button type="button" class="primary" aria-disabled=${busy ? "true" : "false"} onClick=${onTake}>
          Watch this camera from now on
        </button>
      </p>`
    }
  </div>`;
}

/** How a takeover goes. */
function takeoverWords({ takeover, source }) {
  if (takeover.state === "opening") return "Opening it beside the camera that is watched …";
  if (takeover.state === "failed") return `Not taken over: ${takeover.reason}. ${source} is watched as before.`;
  return `${source} is watched now, also after a restart. Its view is another one: check the floor points and the bed areas above, and save them.`;
}

/** What is going on, for everybody who listens. */
function statusWords(known, wrong) {
  if (wrong) return wrong;
  if (known.check?.state === "checking") return `Trying ${known.check.address} …`;
  return known.takeover && known.takeover.check === known.check?.id ? takeoverWords(known) : "";
}

/** What those hear who do not see the result appear. */
function resultWords(check) {
  if (check?.state !== "done") return "";
  return check.fits ? "This camera can be watched." : check.problem;
}

const watchedWords = ({ recording, source }) =>
  recording
    ? `A recording is being played: ${source}. An address can be tried here; to watch it, start ./run --source ADDRESS.`
    : `Watched now: ${source}. Another camera takes its place only once it gives pictures; until then this one is watched.`;

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
    <h3 id="camera-heading">Camera</h3>
    <p class="small">${watchedWords(known)}</p>
    <${Address} typed=${typed} onTyped=${setTyped} busy=${busy} onTry=${() => tryIt(typed)} />
    ${known.check?.state === "done" && html`<${Result} known=${known} busy=${busy} onBelieve=${believe} onTake=${watch} />`}
    <p role="status">${statusWords(known, wrong)}</p>
    <p class="hidden" role="status">${resultWords(known.check)}</p>
  </section>`;
}
