/** What the program sees now, in its own sentences: closed until somebody asks for it. */
import { clockTime, durationInWords, programWords, say } from "../base/words.js";
import { html, useEffect, useState } from "../vendor/preact.js";
import { isSeeing } from "./readiness.js";

/** Milliseconds after which sentences no longer tell of now: a slow machine's cycles and answers take some seconds. */
const SHOWN_MS = 15000;
/** Milliseconds from which their age stands before them: fresh ones come every two to three seconds. */
const AGED_MS = 4000;

/**
 * What can be shown as seen now, null when that is not known: what was seen before must not look like it.
 * @param {?{time: ?string, people: string[], beds: string[]}} scene as the hub told last
 * @param {?object} news of the hub, with ages as of now
 * @param {number} now milliseconds since 1970 by the camera's clock
 */
export function sceneNow(scene, news, now) {
  if (!scene?.time || !news || !isSeeing(news)) return null;
  return now - Date.parse(scene.time) <= SHOWN_MS ? scene : null;
}

/** "4 seconds ago:" of sentences that are not of just now; empty otherwise. */
export function ageWords(time, now) {
  const age = now - Date.parse(time);
  return age >= AGED_MS ? say("scene.ago", { age: durationInWords(age) }) : "";
}

function Sentences({ scene, now }) {
  if (!scene) return html`<p class="muted">${say("scene.unknown")}</p>`;
  const { time, people, beds } = scene;
  const told = [...people, ...beds].map(programWords);
  const sentences = people.length ? told : [say("scene.nobody"), ...told];
  const age = ageWords(time, now);
  return html`${age && html`<p class="muted">${age}</p>`}
    <ul>
      ${sentences.map((text, index) => html`<li key=${index}>${text}</li>`)}
    </ul>
    <p class="small">${say("scene.asOf", { at: clockTime(new Date(time), new Date(now)) })}</p>`;
}

/** Asks the hub for sentences while `open` in a tab that is seen. */
function useLook(link, open) {
  useEffect(() => {
    if (!open) return undefined;
    const look = () => link.look(!document.hidden);
    look();
    document.addEventListener("visibilitychange", look);
    return () => {
      document.removeEventListener("visibilitychange", look);
      link.look(false);
    };
  }, [open]);
}

/** @param {object} view `link` to the hub; `scene` of sceneNow; `now` milliseconds since 1970 by the camera's clock */
export function Scene({ link, scene, now }) {
  const [open, setOpen] = useState(false);
  useLook(link, open);
  return html`<section class="panel scene" aria-labelledby="scene-heading">
    <details onToggle=${(event) => setOpen(event.currentTarget.open)}>
      <summary><h2 id="scene-heading">${say("scene.title")}</h2></summary>
      ${open && html`<${Sentences} scene=${scene} now=${now} />`}
    </details>
  </section>`;
}
