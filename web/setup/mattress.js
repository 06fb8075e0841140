/** A bed's area proposed from its mattress: the mark on the picture, what it leads to, and what is entered for it. */
import { decimal, limitProblem } from "../base/limits.js";
import { DecimalInput } from "../base/number.js";
import { say, settingName } from "../base/words.js";
import { floorProblem, floorWarning, isFloorPlaced } from "../geometry/calibration.js";
import { mattressProblem, volumeOutline } from "../geometry/volume.js";
import { html, useRef } from "../vendor/preact.js";
import { MATTRESSES, TOOLS, areaOf, pointsOf, withArea, withPoints } from "./tools.js";

/** What is entered of a bed, in metres. */
const METRES = ["height", "air"];

/** The bed's tool for a mattress', any other as it is. */
export const bedOf = (tool) =>
  tool.group === "mattresses" ? TOOLS.find(({ group, index }) => group === "beds" && index === tool.index) : tool;

const metresProblem = (mark) => METRES.map((key) => limitProblem(key, mark[key])).find(Boolean) ?? null;

function uncalibrated({ floor, widthM, depthM }, size) {
  const measured = [floor, decimal(widthM) ?? 0, decimal(depthM) ?? 0];
  if (!isFloorPlaced(floor)) return say("bed.notPlaced");
  return floorProblem(...measured) ?? floorWarning(...measured, size);
}

/** The area proposed for a mattress' bed, {points} in the analysis picture, or {problem}: why there is none. */
export function proposalOf(settings, tool, size) {
  const mark = areaOf(settings, tool);
  const floor = uncalibrated(settings, size);
  if (floor) return { problem: say("bed.first", { problem: floor }) };
  const corners = pointsOf(settings, tool, size);
  const problem = metresProblem(mark) ?? mattressProblem(corners);
  if (problem) return { problem };
  const metres = { height: decimal(mark.height), air: decimal(mark.air) };
  const measured = [settings.floor, decimal(settings.widthM), decimal(settings.depthM)];
  const points = volumeOutline(corners, measured, metres, size);
  return points ? { points } : { problem: say("bed.nowhere") };
}

/** What keeps a mattress from a proposal, as {refused, warned}. */
export function mattressTrouble(settings, tool, size) {
  const { problem } = proposalOf(settings, tool, size);
  return { refused: [], warned: problem ? [problem] : [] };
}

/** Settings with the proposal as the bed's area; the mark is kept, since the area no longer tells it. */
export function withProposal(settings, tool, size) {
  const { points } = proposalOf(settings, tool, size);
  if (!points) return settings;
  return withPoints(withArea(settings, tool, areaOf(settings, tool)), bedOf(tool), points, size);
}

/** Height of the proposal's name in CSS pixels; it stands above the proposal where there is room. */
const LABEL = 18;

/** The proposal, drawn in the view. */
export function Proposal({ tool, scene, size, mapping, unit }) {
  const { points } = proposalOf(scene.settings, tool, size);
  if (!points) return null;
  const corners = points.map(mapping.toView);
  const path = `M${corners.map(({ x, y }) => `${x} ${y}`).join("L")}Z`;
  const [first, second] = [...corners].sort((a, b) => a.y - b.y);
  const middle = { x: (first.x + second.x) / 2, y: (first.y + second.y) / 2 };
  const beside = middle.y > LABEL * unit ? -6 : LABEL;
  return html`<g class="proposal">
    <path class="editor-halo" d=${path} />
    <path class="proposal-line" d=${path} />
    <text class="editor-text" transform=${`translate(${middle.x} ${middle.y}) scale(${unit})`} y=${beside}
      >${say("bed.proposed")}</text
    >
  </g>`;
}

function Metres({ draft, tool, onDraft }) {
  const mark = areaOf(draft, tool);
  return html`<div class="editor-fields">
    ${METRES.map(
      (key) =>
        html`<div class="field" key=${key}>
          <label for=${`mattress-${key}`}>${settingName(key)}</label>
          <span class="editor-metres">
            <${DecimalInput}
              id=${`mattress-${key}`}
              size="6"
              value=${mark[key]}
              aria-invalid=${limitProblem(key, mark[key]) ? "true" : "false"}
              onValue=${(value) =>
                onDraft(withArea(draft, tool, { ...mark, [key]: value }), `${tool.name}, ${settingName(key)}`)}
            />
            m
          </span>
        </div>`,
    )}
  </div>`;
}

function Marking({ draft, tool, size, onDraft, onTake, onKeep }) {
  const { problem } = proposalOf(draft, tool, size);
  return html`
    <p class="small">${say("bed.marking")}</p>
    <${Metres} draft=${draft} tool=${tool} onDraft=${onDraft} />
    <div class="row">
      <button type="button" class="primary" disabled=${Boolean(problem)} onClick=${onTake}>${say("bed.take")}</button>
      <button type="button" class="quiet" onClick=${onKeep}>${say("bed.keep")}</button>
    </div>
  `;
}

const WHY = html`<p class="small">${say("bed.why")}</p>`;

/**
 * Under a bed that is drawn: why it is drawn as a volume, and its proposal.
 *
 * @param {object} props
 * @param {object} props.draft the settings as edited
 * @param {import("./tools.js").Tool} props.tool what is chosen: a bed, or its mattress while that is marked
 * @param {{width: number, height: number}} props.size of the analysis picture
 * @param {(tool: import("./tools.js").Tool) => void} props.onTool
 * @param {(settings: object, label?: string) => void} props.onDraft
 * @param {(text: string) => void} props.onSaid
 */
export function Volume({ draft, tool, size, onTool, onDraft, onSaid }) {
  const toggle = useRef(null);
  const marking = tool.group === "mattresses";
  const bed = bedOf(tool);
  const close = () => {
    onTool(bed);
    toggle.current.focus({ preventScroll: true });
  };
  const take = () => {
    onDraft(withProposal(draft, tool, size));
    onSaid(say("bed.isProposal", { name: bed.name }));
    close();
  };
  return html`<div class="editor-volume">
    ${!marking && WHY}
    <button
      ref=${toggle}
      type="button"
      class="quiet"
      aria-expanded=${marking ? "true" : "false"}
      onClick=${marking ? close : () => onTool(MATTRESSES[bed.index])}
    >
      ${say("propose")}
    </button>
    ${marking && html`<${Marking} ...${{ draft, tool, size, onDraft }} onTake=${take} onKeep=${close} />`}
  </div>`;
}
