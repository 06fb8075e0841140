/** A field of the camera's forms, with a hint; `kind` is what stands for a plain input. */
import { html } from "../vendor/preact.js";

export function Field({ id, label, hint, kind = "input", ...input }) {
  return html`<div class="field">
    <label for=${id}>${label}</label>
    <${kind}
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
