/** The lens and the sensor: what the program calculates with, and what it shall from its next start on. */
import { SENSORS, UNKNOWN_SENSOR } from "../base/facts.js";
import { decimal, limitProblem } from "../base/limits.js";
import { DecimalInput } from "../base/number.js";
import { numberText, say, settingName } from "../base/words.js";
import { html, useState } from "../vendor/preact.js";
import { Field } from "./field.js";
import { chooseOptics } from "./service.js";

const MICRONS = 1000; // a millimetre
const isKnown = (model) => Object.hasOwn(SENSORS, model);
const fieldsOf = ({ product_name, focal_length_um }) => ({
  model: product_name,
  focal: String(focal_length_um / MICRONS),
});
const formOf = ({ model, focal }) => ({
  product_name: model,
  focal_length_um: Math.round(decimal(focal) * MICRONS),
});

const inWords = ({ product_name, focal_length_um }) =>
  say("camera.optics", { model: product_name, focal: numberText(focal_length_um / MICRONS, 3) });
const sides = ([width, height]) => ({ width: numberText(width, 2), height: numberText(height, 2) });
const modelWords = (model) =>
  isKnown(model) ? say("camera.modelOf", { model, ...sides(SENSORS[model]) }) : say("camera.modelUnknown", { model });

/** What is kept for the next start, or just was. */
function keptWords({ chosen }, isKept) {
  if (chosen) return say("camera.opticsChosen", { optics: inWords(chosen) });
  return isKept ? say("camera.opticsSame") : "";
}

function Model({ model, models, onModel }) {
  return html`<div class="field">
    <label for="camera-model">${say("camera.model")}</label>
    <select
      id="camera-model"
      aria-describedby="camera-model-hint"
      value=${model}
      onChange=${(event) => onModel(event.target.value)}
    >
      ${models.map((one) => html`<option key=${one} value=${one} selected=${one === model}>${modelWords(one)}</option>`)}
    </select>
    <p class="small" id="camera-model-hint">${say("camera.modelHint")}</p>
  </div>`;
}

/** @param {object} props `optics` as the service tells them; `take`, which takes an answer of the service's */
export function Optics({ optics, take }) {
  const [typed, setTyped] = useState(null);
  const [wrong, setWrong] = useState(null); // empty once something was kept
  const shown = typed ?? fieldsOf(optics.chosen ?? optics);
  const problem = limitProblem("focalLength", shown.focal);
  const models = [...new Set([...Object.keys(SENSORS), optics.product_name, shown.model])].sort();
  const set = (part) => setTyped({ ...shown, ...part });
  const submit = (event) => {
    event.preventDefault();
    if (problem) setWrong(problem);
    else take(chooseOptics(formOf(shown)), setWrong);
  };
  return html`<form class="camera-form camera-optics" onSubmit=${submit}>
    <h3>${say("camera.opticsTitle")}</h3>
    <p>${say("camera.opticsNow", { optics: inWords(optics) })}</p>
    ${
      !isKnown(optics.product_name) &&
      html`<p class="note">${say("camera.sensorUnknown", { model: optics.product_name, ...sides(UNKNOWN_SENSOR) })}</p>`
    }
    <${Model} model=${shown.model} models=${models} onModel=${(model) => set({ model })} />
    <${Field}
      id="camera-focal"
      label=${settingName("focalLength")}
      kind=${DecimalInput}
      hint=${say("camera.focalHint")}
      value=${shown.focal}
      aria-invalid=${problem ? "true" : "false"}
      onValue=${(focal) => set({ focal })}
    />
    <p><button type="submit" class="quiet">${say("camera.keepOptics")}</button></p>
    <p role="status">${wrong || keptWords(optics, wrong === "")}</p>
  </form>`;
}
