import { COLOURS } from "../base/facts.js";
import { numberText, say } from "../base/words.js";
import { clamp, streamMapping } from "../geometry/plane.js";
import { LivePicture } from "../picture/picture.js";
import { html, useRef } from "../vendor/preact.js";
import { REACH, useDrag } from "./drag.js";
import { FloorDrawing, figureAt, figureStepped, figureWords } from "./floor.js";
import { Loupe } from "./loupe.js";
import { Proposal, bedOf } from "./mattress.js";
import { FIGURE, FLOOR, FLOOR_NAMES, FLOOR_SIGNS, TOOLS, areaOf, pointsOf, stepPoint } from "./tools.js";

/** Arrow keys, as steps to the right and down on the screen. */
const ARROWS = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };

const pathOf = (points) => `M${points.map(({ x, y }) => `${x} ${y}`).join("L")}Z`;

/** "Bed area 1, corner 2", "Red floor point". */
export function pointName(tool, index) {
  if (index === FIGURE) return say("stage.figure");
  return tool === FLOOR
    ? say("stage.point", { colour: FLOOR_NAMES[index] })
    : say("stage.corner", { tool: tool.name, number: index + 1 });
}

/** A floor point as the viewer sees it: a mirrored picture is counted from its own left edge. */
const seen = ({ x, y }, size, mirrored) => ({ x: mirrored ? size.width - 1 - x : x, y });

/** Where a point is, in words and as the viewer sees it. */
export function pointWords(settings, tool, index, size, mirrored) {
  if (tool === FLOOR) {
    const { x, y } = seen(settings.floor[index], size, mirrored);
    return say("stage.pixels", { x, y });
  }
  const { x, y } = areaOf(settings, tool).corners[index];
  return say("stage.percent", { x: numberText(mirrored ? 100 - x : x), y: numberText(y) });
}

/** Between analysis pixels and the view's SVG, where the middle of a pixel lies half a unit into it. */
function mappingOf(view, size, mirrored) {
  const mapping = streamMapping({ streamWidth: view.width, streamHeight: view.height, size, mirrored });
  const shifted = ({ x, y }, by) => ({ x: x + by, y: y + by });
  return {
    toView: (point) => shifted(mapping.toView(point), 0.5),
    toAnalysis: (point) => mapping.toAnalysis(shifted(point, -0.5)),
  };
}

/** A stream of other proportions may show less than the analysis picture; handles stay where they can be reached. */
const withinView = ({ x, y }, view) => ({
  x: clamp(x, 0, view.width),
  y: clamp(y, 0, view.height),
});

/**
 * The live picture with the areas and floor points on it, to be moved by mouse, finger, pen and keys.
 *
 * @param {object} props
 * @param {import("./tools.js").Tool} props.tool what is being edited; the rest is shown faintly
 * @param {{settings: object, figure: ?{x: number, y: number}}} props.scene as it is to be drawn
 * @param {{width: number, height: number}} props.size of the analysis picture
 * @param {object} props.link where pictures come from, as `props.live`, see LivePicture
 * @param {boolean} props.loupe shows the loupe although no handle has the focus
 * @param {number} props.point which point was last chosen, for the loupe
 * @param {(index: number) => void} props.onPoint a point has got the focus
 * @param {(shown: boolean) => void} props.onLoupe
 * @param {(tool: import("./tools.js").Tool) => void} props.onTool an area was clicked
 * @param {(scene: ?object) => void} props.onPreview a scene to draw while something is dragged; null: as before
 * @param {(scene: object, index: ?number, label?: string) => void} props.onCommit the scene to keep, and which point was
 *     moved, null for a whole area; changes with the same label make one step
 */
export function Stage(props) {
  return html`<${LivePicture}
    link=${props.link}
    size=${props.streamSize}
    live=${props.live}
    label=${say("stage.room")}
    above=${(view) => html`<${PointLoupe} ...${props} view=${view} />`}
  >
    ${(view) => html`<${Board} ...${props} view=${view} />`}
  <//>`;
}

/** The point that is being placed, much larger: floor points and corners need the same care. */
function PointLoupe({ tool, scene, size, mirrored, loupe, point, view }) {
  if (!loupe || point === FIGURE || (tool !== FLOOR && !areaOf(scene.settings, tool).on)) return null;
  const at = mappingOf(view, size, mirrored).toView(pointsOf(scene.settings, tool, size)[point]);
  return html`<${Loupe}
    view=${view}
    at=${withinView(at, view)}
    name=${loupeName(scene.settings, tool, point, size, mirrored)}
  />`;
}

function loupeName(settings, tool, point, size, mirrored) {
  if (tool !== FLOOR) {
    const { x, y } = areaOf(settings, tool).corners[point];
    return `${point + 1}: ${numberText(mirrored ? 100 - x : x)} %, ${numberText(y)} %`;
  }
  const { x, y } = seen(settings.floor[point], size, mirrored);
  return `${FLOOR_NAMES[point]} ${x}, ${y}`;
}

/** What lies over the picture. */
function Board(props) {
  const { tool, scene, size, mirrored, view } = props;
  const group = useRef(null);
  const mapping = mappingOf(view, size, mirrored);
  const spots = spotsOf(props, mapping);
  const dragging = useDrag(group, props, mapping, spots);
  const marking = tool.group === "mattresses";
  const shown = marking ? [...TOOLS, tool] : TOOLS;
  return html`
    <g
      ref=${group}
      role="group"
      aria-label=${say("stage.on", { name: tool.name })}
      class=${`board ${dragging ? "is-dragging" : ""}`}
    >
      <defs>
        <pattern id="editor-hatch" width="10" height="10" patternUnits="userSpaceOnUse" patternTransform="rotate(45)">
          <line class="hatch" x1="0" y1="0" x2="0" y2="10" />
        </pattern>
      </defs>
      <rect class="board-ground" width=${view.width} height=${view.height} />
      <svg width=${view.width} height=${view.height} viewBox=${`0 0 ${view.width} ${view.height}`}>
        ${shown.map((other) => html`<${Outline} key=${other.id} ...${props} ...${{ tool: other, chosen: other === tool, named: other === tool || other !== bedOf(tool), mapping }} />`)}
        ${marking && html`<${Proposal} tool=${tool} scene=${scene} size=${size} mapping=${mapping} unit=${view.unit} />`}
        ${tool === FLOOR && html`<${FloorDrawing} scene=${scene} size=${size} mapping=${mapping} unit=${view.unit} />`}
      </svg>
      ${handlesFor(spots, props)}
    </g>
  `;
}

/** A handle for each spot, with its keys. */
function handlesFor(spots, props) {
  const { tool, mirrored, view, point, onPoint, onCommit, onLoupe } = props;
  const keyDown = (index) => (event) => {
    const arrow = ARROWS[event.key];
    if (!arrow || event.ctrlKey || event.altKey || event.metaKey) return;
    event.preventDefault();
    const [right, down] = arrow;
    const across = mirrored ? -right : right;
    onCommit(stepped(props, index, across, down, event.shiftKey), index, `${pointName(tool, index)} by keys`);
  };
  const focus = (index) => () => {
    onPoint(index);
    onLoupe(true);
  };
  return spots.map(
    (spot) =>
      html`<${Handle}
        key=${`${tool.id}-${spot.index}`}
        spot=${spot}
        unit=${view.unit}
        active=${spot.index === point}
        onKeyDown=${keyDown(spot.index)}
        onFocus=${focus(spot.index)}
        onBlur=${() => onLoupe(false)}
      />`,
  );
}

/** The scene with a point, or the figure, moved by one step of a key. */
function stepped({ tool, scene, size }, index, across, down, large) {
  if (index === FIGURE) return { ...scene, figure: figureStepped(scene, across, down, large) };
  const step = tool === FLOOR ? (large ? 10 : 1) : large ? 5 : 1;
  return { ...scene, settings: stepPoint(scene.settings, tool, index, across * step, down * step, size) };
}

/** What can be taken hold of: {index, at, name, words, now, kind}, `at` in the view. */
function spotsOf({ tool, scene, size, mirrored, view }, mapping) {
  const { settings } = scene;
  if (tool !== FLOOR && !areaOf(settings, tool).on) return [];
  const spots = pointsOf(settings, tool, size).map((point, index) => ({
    index,
    at: withinView(mapping.toView(point), view),
    name: pointName(tool, index),
    words: pointWords(settings, tool, index, size, mirrored),
    now: Math.round(((mirrored ? size.width - point.x : point.x) * 100) / size.width),
    kind: tool === FLOOR ? COLOURS[index] : tool.group,
    sign: tool === FLOOR ? FLOOR_SIGNS[index] : String(index + 1),
    mirrored,
  }));
  const figure = tool === FLOOR ? figureAt(scene, size) : null;
  if (!figure) return spots;
  const at = withinView(mapping.toView(figure.foot), view);
  const head = mapping.toView(figure.head);
  const now = Math.round((100 * at.x) / view.width);
  return [
    ...spots,
    { index: FIGURE, at, head, name: say("stage.figure"), words: figureWords(scene), now, kind: "figure", sign: "" },
  ];
}

/** An area's or the floor rectangle's outline; of what is not being edited a faint one. `named`: with its name. */
function Outline({ tool, chosen, named, scene, size, view, mapping }) {
  const on = tool === FLOOR || areaOf(scene.settings, tool).on;
  if (!on) return null;
  const points = pointsOf(scene.settings, tool, size).map(mapping.toView);
  const middle = points.reduce((sum, { x, y }) => ({ x: sum.x + x / 4, y: sum.y + y / 4 }), { x: 0, y: 0 });
  return html`
    <g class=${`outline outline-${tool.group} ${chosen ? "is-chosen" : ""}`}>
      <path class="editor-halo" d=${pathOf(points)} />
      <path class="outline-line" d=${pathOf(points)} />
      ${
        tool !== FLOOR &&
        named &&
        html`<text class="editor-text" transform=${`translate(${middle.x} ${middle.y}) scale(${view.unit})`}>
          ${tool.short}
        </text>`
      }
    </g>
  `;
}

function Handle({ spot, unit, active, onKeyDown, onFocus, onBlur }) {
  return html`
    <g
      class=${`handle handle-${spot.kind} ${active ? "is-active" : ""}`}
      transform=${`translate(${spot.at.x} ${spot.at.y}) scale(${unit})`}
      tabindex="0"
      role="slider"
      aria-label=${spot.name}
      aria-valuemin="0"
      aria-valuemax="100"
      aria-valuenow=${clamp(spot.now, 0, 100)}
      aria-valuetext=${spot.words}
      data-spot=${spot.index}
      onKeyDown=${onKeyDown}
      onFocus=${onFocus}
      onBlur=${onBlur}
    >
      <circle class="handle-reach" r=${REACH.mouse} />
      <circle class="handle-focus" r="15" />
      <circle class="handle-halo" r="10" />
      <circle class="handle-ring" r="10" />
      ${
        spot.kind in SIGN_BESIDE
          ? html`<circle class="handle-dot" r="1.5" />
              <text class="editor-text handle-sign" ...${signBeside(spot)}>${spot.sign}</text>`
          : html`<text class="editor-text handle-number" y="4">${spot.sign}</text>`
      }
    </g>
  `;
}

/** Floor points keep their middle free for what they are placed on; the letter stands outside the rectangle. */
const SIGN_BESIDE = {
  red: { x: -17, y: -8 },
  green: { x: 17, y: -8 },
  blue: { x: 17, y: 20 },
  yellow: { x: -17, y: 20 },
};

const signBeside = ({ kind, mirrored }) => ({ ...SIGN_BESIDE[kind], x: SIGN_BESIDE[kind].x * (mirrored ? -1 : 1) });
