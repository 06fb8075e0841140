/** The floor rectangle on the picture: grid, stakes and figure as this calibration would place them; its list entry. */
import { COLOURS } from "../base/facts.js";
import { decimal, limitProblem } from "../base/limits.js";
import { DecimalInput } from "../base/number.js";
import { numberText, say } from "../base/words.js";
import { floorProblem, floorTransform, floorWarning } from "../geometry/calibration.js";
import { floorGrid, stakesOf, uprightFigure } from "../geometry/figures.js";
import { clamp } from "../geometry/plane.js";
import { html } from "../vendor/preact.js";
import { FLOOR_SIGNS } from "./tools.js";

/** How far beside the rectangle the figure may walk, in metres. */
const WALK = 5;
const STEP = 0.1;
const LARGE_STEP = 0.5;

const pathOf = (segments) => segments.map(([a, b]) => `M${a.x} ${a.y}L${b.x} ${b.y}`).join("");

const floorOf = ({ floor, widthM, depthM }) => [floor, decimal(widthM) ?? 0, decimal(depthM) ?? 0];
const problemOf = ({ floor, widthM, depthM }) =>
  limitProblem("widthM", widthM) ?? limitProblem("depthM", depthM) ?? floorProblem(floor, widthM, depthM);
const isUsable = (settings) => problemOf(settings) === null;

/**
 * What is wrong with the floor: {refused, warned}, texts. A refused one would stop the program's next start. Directions
 * in them are the analysis picture's, which a mirrored stream shows the other way round.
 */
export function floorTrouble(settings, size, mirrored) {
  const refused = problemOf(settings);
  const warned = refused ? null : floorWarning(...floorOf(settings), size);
  const turned = mirrored && goesAround(warned) ? [say("edit.mirror")] : [];
  return { refused: refused ? [refused] : [], warned: warned ? [warned, ...turned] : [] };
}

/** Whether a warning names a direction, which a mirrored picture shows the other way round. */
const goesAround = (warned) => [say("calibration.cross"), say("calibration.counter")].includes(warned);

/** Where the figure stands, in metres from the red point along the width and the depth. */
function figurePlace({ settings, figure }) {
  const [, width, depth] = floorOf(settings);
  return figure ?? { x: width / 2, y: depth / 2 };
}

/** A place in metres, kept near the rectangle; null for one that is not on the floor at all. */
function nearRectangle({ x, y }, settings) {
  const [, width, depth] = floorOf(settings);
  if (!Number.isFinite(x) || !Number.isFinite(y)) return null;
  return { x: clamp(x, -WALK, width + WALK), y: clamp(y, -WALK, depth + WALK) };
}

/** The figure in the analysis picture ({foot, head, parts}), or null when this floor cannot be calibrated. */
export function figureAt(scene, size) {
  if (!isUsable(scene.settings)) return null;
  return uprightFigure(...floorOf(scene.settings), size, figurePlace(scene));
}

/** The figure's place when its feet are dragged to a point of the analysis picture. */
export function figureMovedTo(scene, point, size) {
  const place = nearRectangle(floorTransform(...floorOf(scene.settings)).toFloor(point), scene.settings);
  return place && figureAt({ ...scene, figure: place }, size) ? place : scene.figure;
}

/** The figure's place one step further along the rectangle's sides. */
export function figureStepped(scene, across, down, large) {
  const step = large ? LARGE_STEP : STEP;
  const { x, y } = figurePlace(scene);
  return nearRectangle({ x: x + across * step, y: y + down * step }, scene.settings);
}

export function figureWords(scene) {
  const { x, y } = figurePlace(scene);
  return say("floor.figure", { across: numberText(x), down: numberText(y) });
}

/** What this calibration makes of the floor, drawn in the view. */
export function FloorDrawing({ scene, size, mapping, unit }) {
  const { settings } = scene;
  if (!isUsable(settings)) return null;
  const floor = floorOf(settings);
  const drawn = (segments) => pathOf(segments.map((segment) => segment.map(mapping.toView)));
  const figure = figureAt(scene, size);
  const grid = drawn(floorGrid(...floor, size));
  const stakes = drawn(stakesOf(...floor, size));
  const [red, green, blue] = settings.floor.map(mapping.toView);
  return html`
    <path class="floor-grid" d=${grid} />
    <path class="editor-halo" d=${stakes} />
    <path class="floor-stakes" d=${stakes} />
    ${
      figure &&
      html`<path class="editor-halo figure-halo" d=${drawn(figure.parts)} />
        <path class="figure" d=${drawn(figure.parts)} />`
    }
    <${Length} from=${red} to=${green} text=${settings.widthM} unit=${unit} />
    <${Length} from=${green} to=${blue} text=${settings.depthM} unit=${unit} />
  `;
}

function Length({ from, to, text, unit }) {
  const middle = `translate(${(from.x + to.x) / 2} ${(from.y + to.y) / 2}) scale(${unit})`;
  return html`<text class="editor-text" transform=${middle}>${text} m</text>`;
}

/** Where the drawing beside the help has the floor points. */
const HELP_DOTS = [
  [66, 16],
  [138, 16],
  [158, 60],
  [42, 60],
];

/** How to measure and mark the floor; a mirrored picture shows the order the other way round. */
export function FloorHelp({ mirrored }) {
  const [first, second] = mirrored ? [say("right"), say("left")] : [say("left"), say("right")];
  return html`
    <p class="small">${say("floor.help", { first, second })}</p>
    <svg class="floor-help" viewBox="0 0 200 76" aria-hidden="true">
      <g transform=${mirrored ? "translate(200 0) scale(-1 1)" : ""}>
        <path class="floor-help-outline" d="M66 16H138L158 60H42Z" />
        ${HELP_DOTS.map(([x, y], index) => html`<circle class=${`floor-dot floor-dot-${COLOURS[index]}`} cx=${x} cy=${y} r="7" />`)}
      </g>
      ${HELP_DOTS.map(([x, y], index) => html`<text x=${mirrored ? 200 - x : x} y=${y + 3.5}>${FLOOR_SIGNS[index]}</text>`)}
      <text class="floor-help-word" x="100" y="10">${say("floor.across")}</text>
      <text class="floor-help-word" x=${mirrored ? 30 : 172} y="42">${say("floor.down")}</text>
    </svg>
  `;
}

/** The rectangle's sides in metres, as entered. */
export function FloorMetres({ settings, onChange }) {
  const field = (key, id, label) =>
    html`<div class="field">
      <label for=${id}>${label}</label>
      <span class="editor-metres">
        <${DecimalInput}
          id=${id}
          size="6"
          value=${settings[key]}
          aria-invalid=${limitProblem(key, settings[key]) ? "true" : "false"}
          onValue=${(value) => onChange({ [key]: value }, label)}
        />
        m
      </span>
    </div>`;
  return html`<div class="editor-fields">
    ${field("widthM", "editor-width", say("floor.width"))} ${field("depthM", "editor-depth", say("floor.depth"))}
  </div>`;
}
