/** The installer's tabs beside the picture. */
import { PLACES, VIEW } from "../base/facts.js";
import { say } from "../base/words.js";
import { Device } from "../call/bar.js";
import { Receivers } from "../call/receivers.js";
import { Camera } from "../camera/camera.js";
import { People } from "../people/people.js";
import { Changes, Transfer } from "../settings/changes.js";
import { Detections, Experts, Streams } from "../settings/panels.js";
import { Setup } from "../setup/editor.js";
import { html } from "../vendor/preact.js";
import { watchedSize } from "../watch/room.js";

export const TABS = Object.keys(VIEW).filter((name) => name !== "wall");

function Floor({ link, facts, appearance, place }) {
  const { draft, live } = facts;
  return html`<div class="setup">
    <h1 tabindex="-1" class="hidden">${say("view.floor")}</h1>
    <${Setup}
      size=${draft.size}
      mirrored=${appearance.mirrored}
      streamSize=${watchedSize(draft.saved)}
      link=${link}
      live=${live}
      draft=${draft.present}
      place=${place}
      onDraft=${(next, label) => draft.edit(next, label)}
      onUndo=${() => draft.undo()}
      onRedo=${() => draft.redo()}
      canUndo=${draft.history.canUndo}
      canRedo=${draft.history.canRedo}
    />
  </div>`;
}

const Alarms = ({ settings, set, caller, facts, called }) =>
  html`<h1 tabindex="-1">${say("view.alarms")}</h1>
    <div class="cards"><${Detections} settings=${settings} set=${set} /><${Device} caller=${caller} /></div>
    <${Receivers} draft=${called} receivers=${facts.calls.receivers} />`;

const Drawn = ({ settings, set }) =>
  html`<h1 tabindex="-1">${say("view.streams")}</h1>
    <${Streams} settings=${settings} set=${set} />`;

const System = ({ settings, set, control, facts, who, place, link }) =>
  html`<h1 tabindex="-1">${say("view.system")}</h1>
    <${Camera} />
    ${
      who.known &&
      html`<${Transfer} onTaken=${() => link.refresh()} /> <${Changes} now=${facts.now} saved=${facts.draft.saved} />`
    }
    <${Experts} ...${{ settings, set, control }} open=${place === PLACES.sensitivity.id} />`;

const Nobody = () =>
  html`<h1 tabindex="-1">${say("view.people")}</h1>
    <p class="muted">${say("people.absent")}</p>`;

/** @param {object} props `name` of the tab, `place` in it, and what the views need */
export function Tab(props) {
  const { name, facts, appearance, who, waiting } = props;
  const { draft } = facts;
  if (name === "people") return who.known ? html`<${People} who=${who} onWho=${props.onWho} />` : html`<${Nobody} />`;
  if (!draft.present || (name === "floor" && !appearance)) {
    return html`<h1 class="hidden" tabindex="-1">${say(`view.${name}`)}</h1>
      <p class="loading" role="status">${waiting}</p>`;
  }
  const settings = draft.present;
  const set = (part, label) => draft.edit({ ...settings, ...part }, label);
  const Content = { floor: Floor, alarms: Alarms, streams: Drawn, system: System }[name];
  return html`<div class="tab tab-${name}"><${Content} ...${props} settings=${settings} set=${set} /></div>`;
}
