/** The guide for the first visit: a few steps beside the page, which stays usable; skipped and found again. */
import { PLACES, TROUBLE, VIEW, hrefOf } from "../base/facts.js";
import { recall, remember } from "../base/memory.js";
import { areaName, eventName, say } from "../base/words.js";
import { isFloorPlaced } from "../geometry/calibration.js";
import { html, useEffect, useRef, useState } from "../vendor/preact.js";
import { settingsGaps } from "../watch/readiness.js";

/** True until the guide was finished or skipped in this browser. */
const guideIsNew = () => recall("guide") !== "done";

/** Whether something is missing that is mended at this place. */
const leadsTo = (gaps, { id }) => gaps.some(({ link }) => link?.href.endsWith(id));
const isSaved = ({ dirty, gaps }, place) => gaps && !dirty && !leadsTo(gaps, place);

const STEPS = [
  {
    href: VIEW.watch,
    title: say("guide.see"),
    texts: [say("guide.see.1"), say("guide.see.2")],
    done: ({ seesPicture }) => seesPicture && say("guide.see.done"),
    open: () => say("picture.waiting"),
  },
  {
    href: hrefOf(PLACES.floor),
    title: say("guide.floor"),
    texts: [say("guide.floor.1"), say("guide.floor.2"), say("guide.floor.3")],
    done: (facts) => isSaved(facts, PLACES.floor) && say("allSaved"),
    open: ({ placed }) => say(placed === false ? "gap.package" : "guide.floor.open"),
  },
  {
    href: hrefOf(PLACES.beds),
    title: say("guide.bed"),
    texts: [
      say("guide.bed.1", { area: areaName("beds", 0), propose: say("propose") }),
      say("guide.bed.2"),
      say("guide.bed.3"),
    ],
    done: (facts) => isSaved(facts, PLACES.beds) && say("guide.bed.done"),
    open: () => say("guide.bed.open"),
  },
  {
    href: VIEW.watch,
    title: say("guide.watch"),
    texts: [say("guide.watch.1", { event: say("event.exit") }), say("guide.watch.2", { event: say("event.fall") })],
    done: ({ seen }) => seen && say("guide.watch.done", { event: eventName(seen) }),
    open: () => say("guide.watch.open"),
  },
];

/** What the guide's steps are told by. */
export function guideFacts({ news, connected, draft, seen }) {
  const away = news?.heartbeat?.wrong?.some(({ what }) => what === TROUBLE.cameraAway);
  const seesPicture = connected && !away && (!news.heartbeat || news.heartbeat.cycle > 0);
  const gaps = draft.present && settingsGaps(draft.present, draft.size);
  return { seesPicture, gaps, dirty: draft.dirty, seen, placed: draft.present && isFloorPlaced(draft.present.floor) };
}

/** The guide's step, null without the guide, and the button to which the focus goes when it ends. */
export function useGuide(offered) {
  const [step, setStep] = useState(() => (offered && guideIsNew() ? 0 : null));
  const button = useRef(null);
  const toStep = (next) => {
    setStep(next);
    if (next === null) button.current?.focus();
  };
  return { step, toStep, button };
}

/** The steps in a row; one is ticked when what it is about is done, whoever has been there. */
function Progress({ step, facts }) {
  return html`<ol class="guide-steps" aria-hidden="true">
    ${STEPS.map(
      ({ title, done }, index) =>
        html`<li key=${title} class=${index === step ? "here" : ""}>
          <span>${done(facts) ? "✓" : index + 1}</span>${title}
        </li>`,
    )}
  </ol>`;
}

/**
 * @param {object} props {step, onStep(number or null), facts}: null ends the guide; facts {seesPicture, gaps,
 *   dirty, seen, placed}: what a step's sign of success is told from; gaps: of the draft, null before there is one; seen:
 *   name of an event that was active, or null; placed: whether somebody has placed the floor
 */
export function Guide({ step, onStep, facts }) {
  const heading = useRef(null);
  const { href, title, texts, done, open } = STEPS[step];
  useEffect(() => {
    location.hash = href;
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
    <${Progress} step=${step} facts=${facts} />
    <h2 id="guide-heading" tabindex="-1" ref=${heading}>
      <span class="hidden">${say("guide.step", { step: step + 1, of: STEPS.length })} </span>${title}
    </h2>
    <div class="guide-texts">${texts.map((text) => html`<p key=${text}>${text}</p>`)}</div>
    <p class=${success ? "guide-done" : "guide-open"} role="status">
      <span class="sign" aria-hidden="true">${success ? "✓" : "◌"}</span>${success || open(facts)}
    </p>
    <div class="row guide-buttons">
      ${step > 0 && html`<button type="button" class="quiet" onClick=${() => onStep(step - 1)}>${say("back")}</button>`}
      ${
        last
          ? html`<button type="button" class="primary" onClick=${end}>${say("guide.finish")}</button>`
          : html`<button type="button" class="primary" onClick=${() => onStep(step + 1)}>${say("guide.next")}</button>
              <button type="button" class="quiet" onClick=${end}>${say("guide.skip")}</button>`
      }
    </div>
  </section>`;
}
