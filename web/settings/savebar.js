/** The bar at the window's lower edge: unsaved changes, Save, what became of the last save, and what others changed. */
import { clockTime, say } from "../base/words.js";
import { html, useRef, useState } from "../vendor/preact.js";

function Texts({ texts }) {
  return html`<ul>
    ${texts.map((text) => html`<li key=${text}>${text}</li>`)}
  </ul>`;
}

function Differences({ differences }) {
  return html`<div class="scroll" tabindex="0" role="region" aria-label=${say("save.differences")}>
    <table>
      <thead>
        <tr>
          <th scope="col">${say("save.setting")}</th>
          <th scope="col">${say("save.entered")}</th>
          <th scope="col">${say("save.holds")}</th>
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
      return { tone: "warn", sign: "!", title: say("save.lookAt", { at: clockTime(outcome.at) }) };
    case "refused":
      return { tone: "alarm", sign: "✕", title: say("save.refused") };
    case "differs":
      return {
        tone: "warn",
        sign: "!",
        title: say("save.differs"),
      };
    case "changed":
      return {
        tone: "warn",
        sign: "!",
        title: say("save.changed"),
      };
    default:
      return { tone: "alarm", sign: "✕", title: say("save.failed", { error: outcome.error || say("save.notTaken") }) };
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
    ${option(say("save.theirs"), field.theirs, !mine, false)} ${option(say("save.yours"), field.mine, mine, true)}
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
  return html`<div class="scroll" tabindex="0" role="region" aria-label=${say("save.byOthers")}>
      <table class="merge">
        <thead>
          <tr>
            <th scope="col">${say("save.setting")}</th>
            <th scope="col">${say("save.was")}</th>
            <th scope="col">${say("save.becomes")}</th>
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
                      : html`${say("save.theirs")}: <strong>${field.theirs}</strong>`
                  }
                </td>
              </tr>`,
          )}
        </tbody>
      </table>
    </div>
    <p class="row merge-end">
      <button type="button" class="quiet" onClick=${() => onMerge(mine)}>${say("save.merge")}</button>
      <span class="small">${say("save.mergeHint")}</span>
    </p>`;
}

function Outcome({ outcome, onDiscard, onMerge, onDismiss }) {
  const { tone, sign, title } = outcomeParts(outcome);
  const texts = outcome.texts ?? outcome.warnings ?? [];
  return html`<div class=${`outcome tone-${tone}`}>
    <div class="outcome-head">
      <span class="sign" aria-hidden="true">${sign}</span>
      <p>${title} ${outcome.kind === "failed" && say("save.kept")}</p>
      <button type="button" class="quiet small-button" aria-label=${say("save.close")} onClick=${onDismiss}>✕</button>
    </div>
    ${outcome.kind === "changed" && html`<${Merge} fields=${outcome.fields} onMerge=${onMerge} />`}
    ${texts.length > 0 && html`<${Texts} texts=${texts} />`}
    ${
      outcome.kind === "differs" &&
      html`<${Differences} differences=${outcome.differences} />
        <p><button type="button" class="quiet" onClick=${onDiscard}>${say("save.takeOver")}</button></p>`
    }
  </div>`;
}

function Before({ review }) {
  const texts = [...review.refusals, ...review.warnings];
  if (!texts.length) return null;
  return html`<details class="before">
    <summary>
      <span class=${`sign tone-${review.refusals.length ? "alarm" : "warn"}`} aria-hidden="true">
        ${review.refusals.length ? "✕" : "!"}
      </span>
      ${say("save.things", { count: texts.length })}
    </summary>
    <${Texts} texts=${texts} />
  </details>`;
}

/** A save of which there is nothing more to say. */
const isPlainlySaved = (outcome) => outcome?.kind === "saved" && !outcome.warnings.length;

function State({ draft: { outcome, dirty, busy }, called }) {
  if (busy) return say("save.saving");
  if (dirty || called.dirty) return say("save.dirty");
  if (!isPlainlySaved(outcome)) return say("allSaved");
  const words = say("save.saved", { at: clockTime(outcome.at) });
  return html`<span class="tone-ok"><span class="sign" aria-hidden="true">✓</span></span> ${words}`;
}

function Buttons({ draft, called, saveButton, onDiscard }) {
  const { busy } = draft;
  const dirty = draft.dirty || called.dirty;
  const save = () => {
    if (called.dirty) called.save();
    if (draft.dirty || !called.dirty) draft.save();
  };
  return html`<button type="button" class="quiet" disabled=${!dirty || busy} onClick=${onDiscard}>
      ${say("draft.discard")}
    </button>
    <button type="button" class="primary" ref=${saveButton} aria-disabled=${busy ? "true" : "false"} onClick=${save}>
      ${say("save.save")}
    </button>`;
}

/**
 * @param {{draft: object, called: object, review: object}} props the SettingsDraft, whom alarms call, and what
 * reviewSettings says of the first
 */
export function SaveBar({ draft, called, review }) {
  const { outcome } = draft;
  const saveButton = useRef(null);
  // What was clicked goes away with the message, or does nothing more: the focus stays in the bar.
  const leave = (action) => (what) => {
    action(what);
    saveButton.current.focus();
  };
  const discard = leave(() => {
    draft.discard();
    called.discard();
  });
  return html`<section class="savebar" aria-label=${say("save.bar")}>
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
      <p class="savebar-state" role="status"><${State} draft=${draft} called=${called} /></p>
      ${(!outcome || isPlainlySaved(outcome)) && html`<${Before} review=${review} />`}
      <div class="row">
        <${Buttons} draft=${draft} called=${called} saveButton=${saveButton} onDiscard=${discard} />
      </div>
    </div>
  </section>`;
}
