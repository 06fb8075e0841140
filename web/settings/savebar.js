/** The bar at the window's lower edge: unsaved changes, Save, what became of the last save, and what others changed. */
import { ALL_SAVED, clockTime } from "../base/words.js";
import { html, useRef, useState } from "../vendor/preact.js";

function Texts({ texts }) {
  return html`<ul>
    ${texts.map((text) => html`<li key=${text}>${text}</li>`)}
  </ul>`;
}

function Differences({ differences }) {
  return html`<div class="scroll" tabindex="0" role="region" aria-label="Differences">
    <table>
      <thead>
        <tr>
          <th scope="col">Setting</th>
          <th scope="col">Entered</th>
          <th scope="col">The program holds</th>
        </tr>
      </thead>
      <tbody>
        ${differences.map(
          ({ what, wanted, found }) =>
            html`<tr key=${what}>
              <th scope="row">${what}</th>
              <td>${String(wanted)}</td>
              <td>${String(found)}</td>
            </tr>`,
        )}
      </tbody>
    </table>
  </div>`;
}

function outcomeParts(outcome) {
  switch (outcome.kind) {
    case "saved":
      return { tone: "warn", sign: "!", title: `Saved and read back at ${clockTime(outcome.at)}, but look at this:` };
    case "refused":
      return { tone: "alarm", sign: "✕", title: "Not saved, nothing was sent:" };
    case "differs":
      return {
        tone: "warn",
        sign: "!",
        title: "The program holds something else than what was entered. Somebody else may have saved as well.",
      };
    case "changed":
      return {
        tone: "warn",
        sign: "!",
        title: "Not saved: somebody else has changed settings since your changes began. Yours are kept here.",
      };
    default:
      return { tone: "alarm", sign: "✕", title: `Not saved: ${outcome.error || "the program did not take it."}` };
  }
}

function Choice({ field, mine, onMine }) {
  const option = (label, value, chosen, keep) =>
    html`<label>
      <input type="radio" name=${`merge ${field.name}`} checked=${chosen} onChange=${() => onMine(keep)} />
      <span>${label}: <strong>${value}</strong></span>
    </label>`;
  return html`<fieldset class="merge-choice">
    <legend class="hidden">${field.name}</legend>
    ${option("Theirs", field.theirs, !mine, false)} ${option("Yours", field.mine, mine, true)}
  </fieldset>`;
}

/** What others have changed, and for what was changed here as well the choice between both. */
function Merge({ fields, onMerge }) {
  const [mine, setMine] = useState(() => new Set());
  const choose = (name) => (keep) => {
    const next = new Set(mine);
    if (keep) next.add(name);
    else next.delete(name);
    setMine(next);
  };
  return html`<div class="scroll" tabindex="0" role="region" aria-label="Changed by somebody else">
      <table class="merge">
        <thead>
          <tr>
            <th scope="col">Setting</th>
            <th scope="col">Was</th>
            <th scope="col">Becomes</th>
          </tr>
        </thead>
        <tbody>
          ${fields.map(
            (field) =>
              html`<tr key=${field.name}>
                <th scope="row">${field.name}</th>
                <td>${field.base}</td>
                <td>
                  ${
                    field.both
                      ? html`<${Choice} field=${field} mine=${mine.has(field.name)} onMine=${choose(field.name)} />`
                      : html`Theirs: <strong>${field.theirs}</strong>`
                  }
                </td>
              </tr>`,
          )}
        </tbody>
      </table>
    </div>
    <p class="row merge-end">
      <button type="button" class="quiet" onClick=${() => onMerge(mine)}>Merge with mine</button>
      <span class="small">Your other changes stay. Look at the result, then save.</span>
    </p>`;
}

function Outcome({ outcome, onDiscard, onMerge, onDismiss }) {
  const { tone, sign, title } = outcomeParts(outcome);
  const texts = outcome.texts ?? outcome.warnings ?? [];
  return html`<div class=${`outcome tone-${tone}`}>
    <div class="outcome-head">
      <span class="sign" aria-hidden="true">${sign}</span>
      <p>${title} ${outcome.kind === "failed" && "What you entered is kept."}</p>
      <button type="button" class="quiet small-button" aria-label="Close the message" onClick=${onDismiss}>✕</button>
    </div>
    ${outcome.kind === "changed" && html`<${Merge} fields=${outcome.fields} onMerge=${onMerge} />`}
    ${texts.length > 0 && html`<${Texts} texts=${texts} />`}
    ${
      outcome.kind === "differs" &&
      html`<${Differences} differences=${outcome.differences} />
        <p><button type="button" class="quiet" onClick=${onDiscard}>Take over what the program holds</button></p>`
    }
  </div>`;
}

function Before({ review }) {
  const texts = [...review.refusals, ...review.warnings];
  if (!texts.length) return null;
  const words = texts.length === 1 ? "1 thing to look at" : `${texts.length} things to look at`;
  return html`<details class="before">
    <summary>
      <span class=${`sign tone-${review.refusals.length ? "alarm" : "warn"}`} aria-hidden="true">
        ${review.refusals.length ? "✕" : "!"}
      </span>
      ${words}
    </summary>
    <${Texts} texts=${texts} />
  </details>`;
}

/** A save of which there is nothing more to say. */
const isPlainlySaved = (outcome) => outcome?.kind === "saved" && !outcome.warnings.length;

function State({ draft: { outcome, dirty, busy } }) {
  if (busy) return "Saving …";
  if (dirty) return "Changes are not saved yet.";
  if (!isPlainlySaved(outcome)) return ALL_SAVED;
  const words = `Saved and read back at ${clockTime(outcome.at)}.`;
  return html`<span class="tone-ok"><span class="sign" aria-hidden="true">✓</span></span> ${words}`;
}

/** @param {{draft: object, review: object}} props the SettingsDraft and what reviewSettings says of it */
export function SaveBar({ draft, review }) {
  const { outcome, dirty, busy } = draft;
  const saveButton = useRef(null);
  // What was clicked goes away with the message, or does nothing more: the focus stays in the bar.
  const leave = (action) => (what) => {
    action(what);
    saveButton.current.focus();
  };
  const discard = leave(() => draft.discard());
  return html`<section class="savebar" aria-label="Saving">
    <div aria-live="polite">
      ${
        outcome &&
        !isPlainlySaved(outcome) &&
        html`<${Outcome}
          outcome=${outcome}
          onDiscard=${discard}
          onMerge=${leave((keepMine) => draft.merge(keepMine))}
          onDismiss=${leave(() => draft.dismiss())}
        />`
      }
    </div>
    <div class="savebar-row">
      <p class="savebar-state" role="status"><${State} draft=${draft} /></p>
      ${!outcome && html`<${Before} review=${review} />`}
      <div class="row">
        <button type="button" class="quiet" disabled=${!dirty || busy} onClick=${discard}>Discard changes</button>
        <button
          type="button"
          class="primary"
          ref=${saveButton}
          aria-disabled=${busy ? "true" : "false"}
          onClick=${() => draft.save()}
        >
          Save
        </button>
      </div>
    </div>
  </section>`;
}
