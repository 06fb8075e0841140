/** A field for a decimal number. */
import { html, useState } from "../vendor/preact.js";
import { entered } from "./limits.js";
import { writtenNumber } from "./words.js";

/**
 * Shows a number with the reader's decimal mark and gives it as the program writes it. What is being typed stays as it is
 * typed, with either mark, until the field is left.
 * @param {object} props `value`, `onValue(value)`, and what else an input has
 */
export function DecimalInput({ value, onValue, ...input }) {
  const [typed, setTyped] = useState(null);
  const isTyped = typed !== null && entered(typed) === value;
  const take = ({ target }) => {
    setTyped(target.value);
    onValue(entered(target.value));
  };
  return html`<input
    type="text"
    inputmode="decimal"
    autocomplete="off"
    ...${input}
    value=${isTyped ? typed : writtenNumber(value)}
    onInput=${take}
    onBlur=${() => setTyped(null)}
  />`;
}
