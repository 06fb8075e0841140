/** Setting up on the picture: the beds, the areas to leave out, the floor. */
import { PLACES } from "../base/facts.js";
import { capitalised, onOrOff, say } from "../base/words.js";
import { Switch } from "../settings/panels.js";
import { areaWarning } from "../settings/review.js";
import { html, useEffect, useRef, useState } from "../vendor/preact.js";
import { FloorHelp, FloorMetres, floorTrouble } from "./floor.js";
import { Volume, bedOf, mattressTrouble } from "./mattress.js";
import { Stage, pointName, pointWords } from "./stage.js";
import { FIGURE, FLOOR, FLOOR_NAMES, TOOLS, areaOf, placeFloorInMiddle, stepPoint, switchArea } from "./tools.js";

const NUDGES = [
  { sign: "←", word: "left", across: -1, down: 0 },
  { sign: "↑", word: "up", across: 0, down: -1 },
  { sign: "↓", word: "down", across: 0, down: 1 },
  { sign: "→", word: "right", across: 1, down: 0 },
];

/**
 * The picture with everything that is drawn on it, and the list of it.
 *
 * @param {object} props
 * @param {{width: number, height: number}} props.size of the analysis picture
 * @param {boolean} props.mirrored whether the streams show the analysis picture mirrored
 * @param {string} props.streamSize the stream to draw on
 * @param {object} props.link where pictures come from, as `props.live`, see LivePicture
 * @param {object} props.draft the settings as edited
 * @param {?string} props.place the heading that the address names, whose tool is taken up
 * @param {(settings: object, label?: string) => void} props.onDraft an edit; edits in a row with one label are one step
 * @param {() => void} props.onUndo
 * @param {() => void} props.onRedo
 * @param {boolean} props.canUndo
 * @param {boolean} props.canRedo
 */
export function Setup(props) {
  const { size, mirrored, draft } = props;
  const [preview, setPreview] = useState(null);
  const [loupe, setLoupe] = useState(false);
  const [said, tell] = useSaid();
  const editing = useEditing(props, tell);
  const { tool, point, figure, choose } = editing;
  usePlace(props.place, choose);
  const scene = preview ?? { settings: draft, figure };
  const undoing = useUndo(props, preview !== null, tell);
  const subject = { settings: scene.settings, size, mirrored };
  const list = { subject, tool, onTool: choose, onSwitch: editing.switchOn };
  const pad = html`<${Pad}
    tool=${tool}
    point=${point}
    onPoint=${editing.setPoint}
    onNudge=${editing.nudge}
    onLoupe=${setLoupe}
  />`;
  return html`
    <div class=${`editor ${size.width > size.height ? "editor-landscape" : ""}`}>
      <h2 class="hidden">${say("edit.title")}</h2>
      <div class="editor-picture">
        <${Stage}
          ...${props}
          ...${{ tool, scene, loupe, point }}
          onPoint=${editing.setPoint}
          onLoupe=${setLoupe}
          onTool=${choose}
          onPreview=${setPreview}
          onCommit=${editing.commit}
        />
        <${Bar} ...${undoing} tool=${tool} subject=${subject} />
      </div>
      <${List} list=${list} pad=${pad} draft=${draft} onDraft=${props.onDraft} onSaid=${tell} />
      <p class="hidden" role="status">${said}</p>
    </div>
  `;
}

/** Takes up the tool of the heading that the address names. */
function usePlace(place, choose) {
  useEffect(() => {
    const first = { [PLACES.floor.id]: FLOOR, [PLACES.beds.id]: TOOLS[0] }[place];
    if (first) choose(first);
  }, [place]);
}

/** Words for those who cannot see what an edit did: [said, tell]. */
function useSaid() {
  const [said, setSaid] = useState("");
  // The same words twice are told twice only when the text differs.
  return [said, (text) => setSaid((old) => (old === text ? `${text}\u00a0` : text))];
}

/** What is chosen and where the figure stands, and the edits of both; these go to the draft and are said. */
function useEditing({ size, mirrored, draft, onDraft }, tell) {
  const [tool, setTool] = useState(() => TOOLS[0]);
  const [point, setPoint] = useState(0);
  const [figure, setFigure] = useState(null);
  const choose = (next) => {
    setTool(next);
    setPoint(0);
  };
  const commit = (next, index, label) => {
    setFigure(next.figure);
    if (next.settings === draft) return;
    onDraft(next.settings, label);
    if (index === null) tell(say("edit.moved", { name: tool.name }));
    else tell(`${pointName(tool, index)}: ${pointWords(next.settings, tool, index, size, mirrored)}`);
  };
  const switchOn = (which, on) => {
    choose(which);
    onDraft(switchArea(draft, which, on, size));
    tell(say(on ? "edit.isOn" : "edit.isOff", { name: which.name }));
  };
  const nudge = ({ across, down }) => {
    const settings = stepPoint(draft, tool, point, mirrored ? -across : across, down, size);
    commit({ settings, figure }, point, `${pointName(tool, point)} by keys`);
  };
  return { tool, point, figure, choose, setPoint, commit, switchOn, nudge };
}

/** Undo and redo, by button and by keys, while nothing is dragged: {undo, redo, canUndo, canRedo}. */
function useUndo({ onUndo, onRedo, canUndo, canRedo }, dragging, tell) {
  const undo = () => {
    if (!canUndo || dragging) return;
    onUndo();
    tell(say("edit.undone"));
  };
  const redo = () => {
    if (!canRedo || dragging) return;
    onRedo();
    tell(say("edit.redone"));
  };
  useUndoKeys(undo, redo);
  return { undo, redo, canUndo, canRedo };
}

/** Under the picture. */
function Bar({ undo, redo, canUndo, canRedo, tool, subject }) {
  return html`<div class="editor-bar">
    <button type="button" class="quiet" disabled=${!canUndo} onClick=${undo} title="Ctrl+Z">
      <span aria-hidden="true">↶</span>${say("edit.undo")}
    </button>
    <button type="button" class="quiet" disabled=${!canRedo} onClick=${redo} title="Ctrl+Shift+Z">
      <span aria-hidden="true">↷</span>${say("edit.redo")}
    </button>
    <${Hint} tool=${tool} subject=${subject} />
  </div>`;
}

/** Beside the picture. */
function List({ list, pad, draft, onDraft, onSaid }) {
  const { tool, onTool, subject } = list;
  const volume = html`<${Volume} ...${{ draft, tool, onTool, onDraft, onSaid }} size=${subject.size} />`;
  return html`<div class="editor-list">
    <${Areas} ...${list} group="beds" title=${say("edit.beds")} pad=${pad} below=${volume}> ${say("edit.bedsHint")} <//>
    <${Areas} ...${list} group="exclusions" title=${say("edit.exclusions")} pad=${pad}>
      ${say("edit.exclusionsHint")}
    <//>
    <${Floor} ...${list} draft=${draft} onDraft=${onDraft} pad=${pad} />
  </div>`;
}

/** Ctrl+Z, Ctrl+Shift+Z and Ctrl+Y, also with Command; a text field keeps its own undo. */
function useUndoKeys(undo, redo) {
  const actions = useRef(null);
  actions.current = { undo, redo };
  useEffect(() => {
    const press = (event) => {
      if (!(event.ctrlKey || event.metaKey) || event.altKey || event.target.matches?.("input[type=text]")) return;
      const key = event.key.toLowerCase();
      const action = key === "y" || (key === "z" && event.shiftKey) ? "redo" : key === "z" ? "undo" : null;
      if (!action) return;
      event.preventDefault();
      actions.current[action]();
    };
    addEventListener("keydown", press);
    return () => removeEventListener("keydown", press);
  }, []);
}

/** The button that chooses a tool. */
function Choose({ tool, chosen, onTool, children }) {
  return html`<button
    type="button"
    class=${`editor-choose editor-${tool.group}`}
    aria-pressed=${chosen ? "true" : "false"}
    onClick=${() => onTool(tool)}
  >
    <span class="editor-swatch" aria-hidden="true"></span>${tool.name}${children}
  </button>`;
}

/** What is wrong with a tool's points as {refused, warned}: texts; the subject is {settings, size, mirrored}. */
function troubleOf(tool, { settings, size, mirrored }) {
  if (tool === FLOOR) return floorTrouble(settings, size, mirrored);
  if (tool.group === "mattresses") return mattressTrouble(settings, tool, size);
  const warning = areaWarning(settings, tool.group, tool.index, size);
  return { refused: [], warned: warning ? [warning] : [] };
}

const problemTexts = ({ refused, warned }) => [
  ...refused.map((text) => html`<p class="editor-refused"><span aria-hidden="true">✕ </span>${text}</p>`),
  ...warned.map((text) => html`<p class="note"><span aria-hidden="true">! </span>${text}</p>`),
];

/** Under the picture: how to move things, or what is wrong with what is being moved; the list says that as well. */
function Hint({ tool, subject }) {
  const problems = problemTexts(troubleOf(tool, subject));
  if (problems.length) return html`<div class="editor-hint" aria-hidden="true">${problems}</div>`;
  return html`<p class="small editor-hint">${say("edit.drag")}</p>`;
}

/** What is wrong with some tools, told as it changes. */
function Problems({ tools, subject }) {
  return html`<div role="status" class="editor-problems">
    ${tools.map((tool) => problemTexts(troubleOf(tool, subject)))}
  </div>`;
}

function Areas({ group, title, children, subject, tool, onTool, onSwitch, pad, below }) {
  const { settings } = subject;
  const tools = TOOLS.filter((entry) => entry.group === group);
  const chosen = tools.find((entry) => entry === bedOf(tool)) ?? null;
  return html`<section class="panel editor-group" aria-labelledby=${PLACES[group].id}>
    <h3 id=${PLACES[group].id}>${title}</h3>
    <p class="small">${children}</p>
    <ul class="editor-rows">
      ${tools.map(
        (entry) =>
          html`<li key=${entry.id}>
            <${Choose} tool=${entry} chosen=${entry === chosen} onTool=${onTool} />
            <label class="switch">
              <input
                type="checkbox"
                role="switch"
                aria-label=${say("edit.inUse", { name: entry.name })}
                checked=${areaOf(settings, entry).on}
                onChange=${(event) => onSwitch(entry, event.target.checked)}
              />
              <span aria-hidden="true">${capitalised(onOrOff(areaOf(settings, entry).on))}</span>
            </label>
          </li>`,
      )}
    </ul>
    <${Problems} tools=${chosen && chosen !== tool ? [...tools, tool] : tools} subject=${subject} />
    ${
      chosen &&
      (areaOf(settings, chosen).on
        ? html`${pad}${below}`
        : html`<p class="small">${say("edit.switchOn", { name: chosen.name })}</p>`)
    }
  </section>`;
}

function Floor({ subject, tool, onTool, draft, onDraft, pad }) {
  const refused = troubleOf(FLOOR, subject).refused.length > 0;
  const set = (change, label) => onDraft({ ...draft, ...change }, label);
  const inMiddle = () => {
    onTool(FLOOR);
    onDraft(placeFloorInMiddle(draft, subject.size));
  };
  return html`<section class="panel editor-group" aria-labelledby=${PLACES.floor.id}>
    <h3 id=${PLACES.floor.id}>${say("edit.floor")}</h3>
    <${FloorHelp} mirrored=${subject.mirrored} />
    <div class="editor-rows"><${Choose} tool=${FLOOR} chosen=${tool === FLOOR} onTool=${onTool} /></div>
    <${FloorMetres} settings=${draft} onChange=${set} />
    <${Problems} tools=${[FLOOR]} subject=${subject} />
    ${tool === FLOOR && pad}
    ${
      refused.length > 0 && html`<button type="button" class="quiet" onClick=${inMiddle}>${say("edit.middle")}</button>`
    }
    <${Switch}
      label=${say("edit.stakes")}
      hint=${say("edit.stakesHint")}
      checked=${draft.stakes}
      onChange=${(stakes) => set({ stakes })}
    />
  </section>`;
}

/** Chooses one of the tool's points and moves it without dragging. */
function Pad({ tool, point, onPoint, onNudge, onLoupe }) {
  const current = point === FIGURE ? null : point;
  const choose = (index) => {
    onPoint(index);
    onLoupe(true);
  };
  const noun = say(tool === FLOOR ? "edit.point" : "edit.corner");
  return html`<div class="editor-pad" onFocusIn=${() => onLoupe(true)} onFocusOut=${() => onLoupe(false)}>
    <fieldset class="editor-points">
      <legend class="small">${noun}</legend>
      <div class="segments">
        ${[0, 1, 2, 3].map(
          (index) =>
            html`<label key=${index}>
              <input
                type="radio"
                name="editor-point"
                aria-label=${pointName(tool, index)}
                checked=${index === current}
                onChange=${() => choose(index)}
              />
              <span>${tool === FLOOR ? FLOOR_NAMES[index] : index + 1}</span>
            </label>`,
        )}
      </div>
    </fieldset>
    <${Nudges} noun=${noun} disabled=${current === null} onNudge=${onNudge} />
  </div>`;
}

function Nudges({ noun, disabled, onNudge }) {
  return html`<div class="editor-nudges" role="group" aria-label=${say("edit.move", { noun })}>
    ${NUDGES.map(
      (nudge) =>
        html`<button
          key=${nudge.word}
          type="button"
          class="quiet"
          disabled=${disabled}
          aria-label=${say(`edit.to.${nudge.word}`)}
          onClick=${() => onNudge(nudge)}
        >
          ${nudge.sign}
        </button>`,
    )}
  </div>`;
}
