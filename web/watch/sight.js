/** Why the camera does not see as it should: since when, and what it saw then and sees now, as far as anybody may see it. */
import { PLACES, TROUBLE, VIEW } from "../base/facts.js";
import { recall } from "../base/memory.js";
import { clockTime } from "../base/words.js";
import { acceptPlace, sightUrl } from "../program/api.js";
import { html, useState } from "../vendor/preact.js";

const SIGHT = [TROUBLE.pictureFrozen, TROUBLE.tooDark, TROUBLE.lensCovered, TROUBLE.outOfFocus, TROUBLE.cameraMoved];
/** Milliseconds for which the same pictures are shown. */
const SHOWN_MS = 5000;

/** Of a heartbeat's troubles those that are about what the camera sees. */
export const sightTroubles = (wrong) => wrong.filter(({ what }) => SIGHT.includes(what));

function Seen({ show, words, anonymised, turn }) {
  return html`<figure>
    <img src=${sightUrl(show, anonymised, turn)} alt=${words} width="640" height="360" />
    <figcaption>${words}</figcaption>
  </figure>`;
}

/** The room then and now, laid over each other, and what can be done. */
function Moved({ anonymised, turn }) {
  const [told, setTold] = useState("");
  const accept = async () => {
    setTold("Telling the camera …");
    try {
      await acceptPlace();
      setTold("The room as it is seen now counts from now on. It takes a minute to learn.");
    } catch (error) {
      setTold(`That did not work: ${error.message}`);
    }
  };
  const words = anonymised
    ? "Orange: edges of the room when the floor was calibrated. Those of now may show people."
    : "Orange: edges of the room when the floor was calibrated. Blue: those of now.";
  return html`<${Seen} show="both" words=${words} anonymised=${anonymised} turn=${turn} />
    <p class="row">
      <a class="button" href=${`${VIEW.setup}/${PLACES.floor.id}`}>Check the floor points</a>
      <button type="button" class="quiet" onClick=${accept}>The floor points are right</button>
    </p>
    <p class="small" role="status">${told}</p>`;
}

/**
 * @param {object} view
 * @param {{what: string, since: string}[]} view.wrong the heartbeat's troubles
 * @param {number} view.now milliseconds since 1970 by the camera's clock
 */
export function Sight({ wrong, now }) {
  const troubles = sightTroubles(wrong);
  if (!troubles.length) return null;
  const anonymised = recall("anonymise") === "on";
  const turn = Math.floor(now / SHOWN_MS);
  const since = clockTime(new Date(Math.min(...troubles.map((one) => Date.parse(one.since)))), new Date(now));
  const moved = troubles.some(({ what }) => what === TROUBLE.cameraMoved);
  return html`<section class="panel sight" aria-labelledby="sight-heading">
    <h2 id="sight-heading">What the camera sees</h2>
    <p class="small">Not as it should since ${since}. Coarse on purpose: edges and light, no faces.</p>
    ${
      moved
        ? html`<${Moved} anonymised=${anonymised} turn=${turn} />`
        : html`<div class="then-and-now">
            <${Seen} show="then" words=${`Then: before ${since}`} anonymised=${anonymised} turn="then" />
            <${Seen} show="now" words="Now" anonymised=${anonymised} turn=${turn} />
          </div>`
    }
  </section>`;
}
