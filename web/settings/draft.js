/** The settings being edited beside those that the program holds: load, edit, save, merge, discard. */
import { LANDSCAPE, PORTRAIT } from "../base/facts.js";
import { say } from "../base/words.js";
import { saveAndCheck } from "../program/api.js";
import { differences, encodeSettings, parseSettings } from "../program/wire.js";
import { createHistory } from "./history.js";
import { changedByOthers, merged } from "./merge.js";
import { reviewSettings } from "./review.js";

const sent = (settings, size) => encodeSettings(settings, size).toString();

/**
 * Settings of one program. `onChange` is called after every change, `refresh` when settings came at the wrong time and are
 * to be given to receive() again; the fields are for reading only.
 * saved: what the program holds, as last read. base: what the edits began with; others may have saved since.
 * outcome: what the last save or news led to, null when there is nothing to say:
 * {kind: "saved", at, warnings} | {kind: "refused", texts} | {kind: "differs", differences} | {kind: "failed", error}
 * | {kind: "changed", fields}: others have changed these, see changedByOthers; nothing is sent until that is merged.
 */
export class SettingsDraft {
  constructor(control, onChange, refresh = () => {}) {
    this.control = control;
    this.onChange = onChange;
    this.refresh = refresh;
    this.size = LANDSCAPE;
    this.saved = null;
    this.base = null;
    this.history = null;
    this.busy = false;
    this.missed = false;
    this.outcome = null;
    this.loadError = null;
  }

  /** The settings as edited, null before the first that were read. */
  get present() {
    return this.history?.present ?? null;
  }

  /** True when what would be sent differs from what the edits began with. */
  get dirty() {
    return (
      this.base !== null && this.present !== this.base && sent(this.present, this.size) !== sent(this.base, this.size)
    );
  }

  /**
   * Takes settings that were read, or why they could not be. Edits are kept; without edits the page shows what was read.
   * @param {{portrait: ?boolean, document: ?string, error: ?string}} read
   */
  receive({ portrait, document, error }) {
    this.missed = this.busy;
    if (this.busy) return;
    this.loadError = error;
    try {
      const size = portrait ? PORTRAIT : LANDSCAPE;
      if (!error) this.take(parseSettings(document, size), size);
    } catch (reason) {
      this.loadError = reason.message;
    }
    this.onChange();
  }

  take(read, size) {
    const turned = this.saved !== null && this.size.width !== size.width;
    const edited = this.dirty && !turned;
    const changed = this.saved === null || turned || differences(this.saved, read, size).length > 0;
    this.size = size;
    if (!changed && String(read.sizes) === String(this.saved.sizes)) return;
    this.saved = read;
    if (edited) this.compare();
    else this.beginWith(read);
  }

  beginWith(settings) {
    this.base = settings;
    this.history = createHistory(settings);
    if (this.outcome?.kind === "changed") this.outcome = null;
  }

  /** Tells what others have changed since the edits began; true when nothing. */
  compare() {
    const fields = changedByOthers(this.base, this.present, this.saved, this.size);
    if (fields.length) this.outcome = { kind: "changed", fields };
    else if (this.outcome?.kind === "changed") this.outcome = null;
    return fields.length === 0;
  }

  /**
   * Puts what others have changed under the edits. Undo leads to theirs, never back to what would overwrite it.
   * @param {Set<string>} keepMine names of the fields, changed by both, that stay as edited here
   */
  merge(keepMine) {
    const next = merged(this.base, this.present, this.saved, this.size, keepMine);
    this.beginWith(this.saved);
    this.history = this.history.push(next);
    this.onChange();
  }

  edit(next, label) {
    this.history = this.history.push(next, label);
    if (this.outcome?.kind === "changed") this.compare();
    else if (this.outcome?.kind !== "differs") this.outcome = null;
    this.onChange();
  }

  undo() {
    this.history = this.history.undo();
    this.onChange();
  }

  redo() {
    this.history = this.history.redo();
    this.onChange();
  }

  /** Back to what the program holds; undo brings the edits back, unless others have saved since they began. */
  discard() {
    if (this.compare()) this.history = this.history.push(this.saved, say("draft.discard"));
    else this.beginWith(this.saved);
    this.outcome = null;
    this.onChange();
  }

  dismiss() {
    this.outcome = null;
    this.onChange();
  }

  /** Sends the settings and reads them back; what was entered stays whatever happens. */
  async save() {
    if (this.busy || !this.present) return;
    const { refusals, warnings } = reviewSettings(this.present, this.size);
    this.busy = refusals.length === 0;
    this.outcome = this.busy ? null : { kind: "refused", texts: refusals };
    this.onChange();
    if (!this.busy) return;
    this.outcome = await this.send(this.present, warnings);
    this.busy = false;
    if (this.missed) this.refresh();
    this.missed = false;
    this.onChange();
  }

  /** Others may have saved since the edits began, so it is read once more before anything is sent. */
  async send(wanted, warnings) {
    try {
      this.saved = await this.control.settings(this.size);
      if (!this.compare()) return this.outcome;
      const result = await saveAndCheck(this.control, wanted, this.size);
      if (result.saved) {
        this.saved = wanted;
        this.base = wanted;
        return { kind: "saved", at: new Date(), warnings: [...result.warnings, ...warnings] };
      }
      if (result.error || !result.differences.length) return { kind: "failed", error: result.error };
      this.saved = await this.control.settings(this.size);
      this.base = this.saved;
      return { kind: "differs", differences: result.differences };
    } catch (error) {
      return { kind: "failed", error: error.message };
    }
  }
}
