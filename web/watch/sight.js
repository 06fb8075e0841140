/** Why the camera does not see as it should: since when, and what it saw then and sees now, as far as anybody may see it. */
import { PLACES, TROUBLE, hrefOf } from "../base/facts.js";
import { recall } from "../base/memory.js";
import { clockTime, say } from "../base/words.js";
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
function Moved({ anonymised, turn, mends }) {
  const [told, setTold] = useState("");
  const accept = async () => {
    setTold(say("sight.telling"));
    try {
      await acceptPlace();
      setTold(say("sight.counts"));
    } catch (error) {
      setTold(say("sight.failed", { error: error.message }));
    }
  };
  const words = anonymised ? say("sight.orange") : say("sight.blue");
  return html`<${Seen} show="both" words=${words} anonymised=${anonymised} turn=${turn} />
    ${
      mends &&
      html`<p class="row">
        <a class="button" href=${hrefOf(PLACES.floor)}>${say("sight.check")}</a>
        <button type="button" class="quiet" onClick=${accept}>${say("sight.right")}</button>
      </p>`
    }
    <p class="small" role="status">${told}</p>`;
}

/**
 * @param {object} view
 * @param {{what: string, since: string}[]} view.wrong the heartbeat's troubles
 * @param {number} view.now milliseconds since 1970 by the camera's clock
 * @param {boolean} view.mends whether who looks on may change settings
 */
export function Sight({ wrong, now, mends }) {
  const troubles = sightTroubles(wrong);
  if (!troubles.length) return null;
  const anonymised = recall("anonymise") === "on";
  const turn = Math.floor(now / SHOWN_MS);
  const since = clockTime(new Date(Math.min(...troubles.map((one) => Date.parse(one.since)))), new Date(now));
  const moved = troubles.some(({ what }) => what === TROUBLE.cameraMoved);
  return html`<section class="panel sight" aria-labelledby="sight-heading">
    <h2 id="sight-heading">${say("sight.title")}</h2>
    <p class="small">${say("sight.since", { since })}</p>
    ${
      moved
        ? html`<${Moved} anonymised=${anonymised} turn=${turn} mends=${mends} />`
        : html`<div class="then-and-now">
            <${Seen} show="then" words=${say("sight.then", { since })} anonymised=${anonymised} turn="then" />
            <${Seen} show="now" words=${say("sight.now")} anonymised=${anonymised} turn=${turn} />
          </div>`
    }
  </section>`;
}
