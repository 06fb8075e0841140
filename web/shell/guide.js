/** The guide for the first visit: a few steps beside the page, which stays usable; skipped and found again. */
import { BED, FALL, PLACES, VIEW, areaName } from "../base/facts.js";
import { recall, remember } from "../base/memory.js";
import { ALL_SAVED, NO_PICTURE_YET, PROPOSE } from "../base/words.js";
import { html, useEffect, useRef } from "../vendor/preact.js";

/** True until the guide was finished or skipped in this browser. */
export const guideIsNew = () => recall("guide") !== "done";

/** Whether something is missing that is mended at this place of Set up. */
const leadsTo = (gaps, { id }) => gaps.some(({ link }) => link?.href.endsWith(id));

const STEPS = [
  {
    view: VIEW.watch,
    title: "See the picture",
    texts: [
      "This is the room, live, with what the program finds drawn into it. Turn the camera until the bed and the floor around it are in view.",
      "Keep the way between camera and bed free: what hides a person hides a fall as well.",
    ],
    done: ({ seesPicture }) => seesPicture && "The camera answers.",
    open: NO_PICTURE_YET,
  },
  {
    view: VIEW.setup,
    title: "Place the floor points",
    texts: [
      "Lay out a rectangle on the floor, or take one that is there, such as tiles or a rug, and measure it in metres.",
      "Put the red, green, blue and yellow points on its corners, going around it clockwise, and enter its width (red to green) and depth (green to blue).",
      "It is right when the grid lies flat on the floor and the figure looks as tall as a person. Then press Save.",
    ],
    done: ({ dirty, gaps }) => gaps && !dirty && !leadsTo(gaps, PLACES.floor) && ALL_SAVED,
    open: "The floor is not placed and saved yet.",
  },
  {
    view: VIEW.setup,
    title: "Draw the bed",
    texts: [
      `Switch on “${areaName("beds", 0)}”, press “${PROPOSE}” and drag the four corners onto those of the mattress. Then take the proposal.`,
      "People are judged by the middle of their shoulders: whoever has it inside the area is in bed. So the proposal covers the mattress and the air above it, where the shoulders are of somebody who sits up.",
      "Is there a second picture of people, such as a mirror, a poster or a television? Cover it with an exclusion area. Then press Save.",
    ],
    done: ({ dirty, gaps }) => gaps && !dirty && !leadsTo(gaps, PLACES.beds) && "A bed area is switched on and saved.",
    open: "No bed area is switched on and saved yet.",
  },
  {
    view: VIEW.watch,
    title: "Watch an event",
    texts: [
      `Leave the bed empty: after some seconds “${BED}” becomes active, and it ends when somebody is back in it.`,
      `Lie down still on the floor, away from the picture's edge: “${FALL}” becomes active, until you get up.`,
    ],
    done: ({ seen }) => seen && `Seen: ${seen}.`,
    open: "No event has been seen yet.",
  },
];

function Progress({ step }) {
  return html`<ol class="guide-steps" aria-hidden="true">
    ${STEPS.map(
      ({ title }, index) =>
        html`<li key=${title} class=${index === step ? "here" : index < step ? "past" : ""}>
          <span>${index + 1}</span>${title}
        </li>`,
    )}
  </ol>`;
}

/**
 * @param {object} props {step, onStep(number or null), facts}: null ends the guide; facts {seesPicture, gaps,
 *   dirty, seen}: what a step's sign of success is told from; gaps: of the draft, null before there is one; seen: name of
 *   an event that was active, or null
 */
export function Guide({ step, onStep, facts }) {
  const heading = useRef(null);
  const { view, title, texts, done, open } = STEPS[step];
  useEffect(() => {
    location.hash = view;
    heading.current.focus({ preventScroll: true });
    heading.current.scrollIntoView({ block: "nearest" });
  }, [step]);
  const end = () => {
    remember("guide", "done");
    onStep(null);
  };
  const last = step === STEPS.length - 1;
  const success = done(facts);
  return html`<section class="guide" aria-labelledby="guide-heading">
    <${Progress} step=${step} />
    <h2 id="guide-heading" tabindex="-1" ref=${heading}>
      <span class="hidden">Guide, step ${step + 1} of ${STEPS.length}: </span>${title}
    </h2>
    <div class="guide-texts">${texts.map((text) => html`<p key=${text}>${text}</p>`)}</div>
    <p class=${success ? "guide-done" : "guide-open"} role="status">
      <span class="sign" aria-hidden="true">${success ? "✓" : "◌"}</span>${success || open}
    </p>
    <div class="row guide-buttons">
      ${step > 0 && html`<button type="button" class="quiet" onClick=${() => onStep(step - 1)}>Back</button>`}
      ${
        last
          ? html`<button type="button" class="primary" onClick=${end}>Finish</button>`
          : html`<button type="button" class="primary" onClick=${() => onStep(step + 1)}>Next</button>
              <button type="button" class="quiet" onClick=${end}>Skip the guide</button>`
      }
    </div>
  </section>`;
}
