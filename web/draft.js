/** The settings being edited beside those that the program holds: load, edit, save, discard. */
import { saveAndCheck } from "./api.js";
import { createHistory } from "./history.js";
import { reviewSettings } from "./review.js";
import { differences, encodeSettings } from "./wire.js";

const sent = (settings, size) => encodeSettings(settings, size).toString();

/**
 * Settings of one program. `onChange` is called after every change; the fields are for reading only.
 * outcome: what the last save or load led to, null when there is nothing to say:
 * {kind: "saved", at, warnings} | {kind: "refused", texts} | {kind: "differs", differences} | {kind: "failed", error}
 * | {kind: "kept"}.
 */
export class SettingsDraft {
  constructor(control, onChange) {
    this.control = control;
    this.onChange = onChange;
    this.size = null;
    this.saved = null;
    this.history = null;
    this.busy = false;
    this.outcome = null;
    this.loadError = null;
  }

  /** The settings as edited, null before the first load. */
  get present() {
    return this.history?.present ?? null;
  }

  /** True when what would be sent differs from what the program holds. */
  get dirty() {
    return (
      this.saved !== null &&
      this.present !== this.saved &&
      sent(this.present, this.size) !== sent(this.saved, this.size)
    );
  }

  /** Reads the program's settings. Edits are kept; without edits the page shows what was read. */
  async load() {
    if (this.busy) return;
    try {
      const size = (await this.control.isPortrait()) ? { width: 720, height: 1280 } : { width: 1280, height: 720 };
      this.take(await this.control.settings(size), size);
      this.loadError = null;
    } catch (error) {
      this.loadError = error.message;
    }
    this.onChange();
  }

  take(read, size) {
    const turned = this.size !== null && this.size.width !== size.width;
    const edited = this.dirty && !turned;
    const changed = this.saved === null || turned || differences(this.saved, read, size).length > 0;
    this.size = size;
    if (!changed && String(read.sizes) === String(this.saved.sizes)) return;
    this.saved = read;
    if (!edited) this.history = createHistory(read);
    else if (changed) this.outcome = { kind: "kept" };
  }

  edit(next, label) {
    this.history = this.history.push(next, label);
    if (this.outcome?.kind !== "differs") this.outcome = null;
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

  /** Back to what the program holds; undo brings the edits back. */
  discard() {
    this.history = this.history.push(this.saved, "Discard changes");
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
    this.onChange();
  }

  async send(wanted, warnings) {
    try {
      const result = await saveAndCheck(this.control, wanted, this.size);
      if (result.saved) {
        this.saved = wanted;
        return { kind: "saved", at: new Date(), warnings };
      }
      if (result.error || !result.differences.length) return { kind: "failed", error: result.error };
      this.saved = await this.control.settings(this.size);
      return { kind: "differs", differences: result.differences };
    } catch (error) {
      return { kind: "failed", error: error.message };
    }
  }
}
