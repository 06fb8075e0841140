/** Whom the alarms call, when, and how often: the installer's. */
import { CALL_TIMES, decimal, limitProblem } from "../base/limits.js";
import { programWords, say } from "../base/words.js";
import { html, useEffect, useState } from "../vendor/preact.js";
import { readCalls, saveCalls } from "./service.js";

const ABSENT = 404;
const KINDS = ["fall", "exit"];
const WHOLE_DAY = { from: "00:00", to: "24:00" };
const NEW_ADDRESS = { kind: "webhook", name: "", url: "" };

const replaced = (list, index, value) => list.map((old, at) => (at === index ? value : old));
const without = (list, index) => list.filter((_, at) => at !== index);

/** Those that the camera knows. */
const timesOf = (event) => CALL_TIMES.filter((key) => key in event);

/** A document as the camera takes it: seconds as numbers, no level that is empty, no secret that was not entered. */
export function toSend({ events, levels }) {
  const seconds = (event) => Object.fromEntries(timesOf(event).map((key) => [key, decimal(event[key]) ?? event[key]]));
  return {
    events: Object.fromEntries(KINDS.map((kind) => [kind, { ...events[kind], ...seconds(events[kind]) }])),
    levels: levels
      .map((level) =>
        level.map((receiver) => ({
          ...receiver,
          secret: receiver.secret || undefined,
          secret_set: undefined,
        })),
      )
      .filter((level) => level.length > 0),
  };
}

/** What is wrong with what was entered for one of an event's times, or null. */
const timeProblem = (event, key) => limitProblem(key, event[key], say(`calls.${key}`));

/** What the camera would not take. */
export const problemsOf = (document) =>
  KINDS.flatMap((kind) => {
    const event = document?.events?.[kind] ?? {};
    const found = timesOf(event).map((key) => timeProblem(event, key));
    return found.filter(Boolean).map((problem) => `${say(`event.${kind}`)}: ${problem}`);
  });

function Seconds({ id, name, event, onEvent }) {
  const problem = timeProblem(event, name);
  return html`<div class="field">
    <label for=${id}>${say(`calls.${name}`)}</label>
    <input
      id=${id}
      type="text"
      inputmode="numeric"
      size="6"
      value=${event[name]}
      aria-invalid=${problem ? "true" : "false"}
      aria-describedby=${problem && `${id}-limit`}
      onInput=${({ target }) => onEvent({ ...event, [name]: target.value })}
    />
    ${problem && html`<p class="small note" id=${`${id}-limit`}>${problem}</p>`}
  </div>`;
}

function Hours({ hours, onHours }) {
  const set = (index, part) => onHours(replaced(hours, index, { ...hours[index], ...part }));
  return html`<fieldset class="hours">
    <legend>${say("calls.hours")}</legend>
    ${hours.map(
      ({ from, to }, index) =>
        html`<div class="row" key=${index}>
          ${[
            ["from", from],
            ["to", to],
          ].map(
            ([key, value]) =>
              html`<input
                key=${key}
                type="text"
                size="5"
                placeholder="00:00"
                aria-label=${say(`calls.${key}`)}
                value=${value}
                onInput=${(event) => set(index, { [key]: event.target.value })}
              />`,
          )}
          <button type="button" class="quiet" onClick=${() => onHours(without(hours, index))}>${say("remove")}</button>
        </div>`,
    )}
    ${hours.length === 0 && html`<p class="note">${say("calls.noHours")}</p>`}
    <p>
      <button type="button" class="quiet" onClick=${() => onHours([...hours, WHOLE_DAY])}>
        ${say("calls.addHours")}
      </button>
    </p>
  </fieldset>`;
}

function Event({ kind, event, onEvent }) {
  return html`<section class="panel calls-event" aria-labelledby=${`calls-${kind}`}>
    <h3 id=${`calls-${kind}`}>${say(`event.${kind}`)}</h3>
    ${timesOf(event).map((key) => html`<${Seconds} key=${key} id=${`${kind}-${key}`} name=${key} ...${{ event, onEvent }} />`)}
    <${Hours} hours=${event.hours ?? []} onHours=${(hours) => onEvent({ ...event, hours })} />
  </section>`;
}

function Address({ id, receiver, onReceiver }) {
  const field = (key, label, more = {}) =>
    html`<div class="field" key=${key}>
      <label for=${`${id}-${key}`}>${label}</label>
      <input
        id=${`${id}-${key}`}
        type="text"
        autocomplete="off"
        spellcheck=${false}
        value=${receiver[key] ?? ""}
        onInput=${({ target }) => onReceiver({ ...receiver, [key]: target.value })}
        ...${more}
      />
    </div>`;
  const kept = receiver.secret_set ? { placeholder: say("calls.secretKept") } : {};
  return html`<div class="pair">
    ${field("name", say("calls.name"))} ${field("url", say("calls.url"), { inputmode: "url" })}
    ${field("secret", say("calls.secret"), { type: "password", ...kept })}
  </div>`;
}

function Level({ number, level, hasPeople, onLevel }) {
  return html`<section class="panel" aria-labelledby=${`level-${number}`}>
    <h3 id=${`level-${number}`}>${say("calls.level", { number })}</h3>
    <p class="small">${say(number === 1 ? "calls.first" : "calls.later")}</p>
    ${level.map(
      (receiver, index) =>
        html`<div class="receiver" key=${index}>
          ${
            receiver.kind === "people"
              ? html`<p>${say("calls.people")}</p>`
              : html`<${Address}
                  id=${`level-${number}-${index}`}
                  receiver=${receiver}
                  onReceiver=${(next) => onLevel(replaced(level, index, next))}
                />`
          }
          ${
            (receiver.kind !== "people" || number > 1) &&
            html`<button type="button" class="quiet" onClick=${() => onLevel(without(level, index))}>
              ${say("remove")}
            </button>`
          }
        </div>`,
    )}
    <p class="row">
      ${!hasPeople && html`<button type="button" class="quiet" onClick=${() => onLevel([...level, { kind: "people" }])}>${say("calls.addPeople")}</button>`}
      <button type="button" class="quiet" onClick=${() => onLevel([...level, NEW_ADDRESS])}>
        ${say("calls.addAddress")}
      </button>
    </p>
  </section>`;
}

/**
 * The document as it is edited, for the whole page, so that no tab loses what was entered in another:
 * {document, dirty, problems, said, set, save, discard}; document: undefined until it was read, null where there is none.
 * @param {boolean} wanted whether who looks on may set it
 */
export function useCallsDraft(wanted) {
  const [stored, setStored] = useState(undefined);
  const [document, set] = useState(undefined);
  const [said, setSaid] = useState("");
  const take = (read) => {
    setStored(read);
    set(read);
  };
  const read = () => readCalls().then(take, (error) => (error.status === ABSENT ? take(null) : setSaid(error.message)));
  useEffect(() => void (wanted && read()), [wanted]);
  const problems = problemsOf(document);
  const send = async () => {
    setSaid(say("save.saving"));
    try {
      await saveCalls(toSend(document));
      await read();
      setSaid(say("calls.saved"));
    } catch (error) {
      setSaid(say("save.failed", { error: error.message }));
    }
  };
  const save = () => (problems.length ? setSaid([say("save.refused"), ...problems].join(" ")) : send());
  const discard = () => {
    set(stored);
    setSaid("");
  };
  const dirty = JSON.stringify(document) !== JSON.stringify(stored);
  const edit = (next) => {
    set(next);
    setSaid("");
  };
  return { document, dirty, problems, said, set: edit, save, discard };
}

/** Whether those who were called have been reached. */
function Reached({ receivers }) {
  const told = receivers.filter(({ kind }) => kind !== "people");
  if (!told.length) return null;
  return html`<ul class="results">
    ${told.map(
      ({ name, state, status }) =>
        html`<li key=${name} class=${`tone-${LOOKS[state]?.tone ?? "idle"}`}>
          <span class="sign" aria-hidden="true">${LOOKS[state]?.sign ?? "–"}</span>
          <span
            >${say(state in LOOKS ? `calls.${state}` : "calls.unknown", { name, status: status && programWords(status) })}</span
          >
        </li>`,
    )}
  </ul>`;
}

const LOOKS = { reached: { tone: "ok", sign: "✓" }, "not-reached": { tone: "warn", sign: "✕" } };

/** @param {{draft: object, receivers: object[]}} props of useCallsDraft; whether they were reached, as the alarms tell */
export function Receivers({ draft, receivers }) {
  const { document, dirty, said, set, save } = draft;
  if (document === null) return html`<p class="muted">${say("calls.absent")}</p>`;
  if (!document) return html`<p role="status">${said}</p>`;
  const { events, levels } = document;
  const setEvent = (kind) => (event) => set({ ...document, events: { ...events, [kind]: event } });
  const shown = levels.length ? levels : [[{ kind: "people" }]];
  const hasPeople = shown.flat().some(({ kind }) => kind === "people");
  return html`<h2>${say("calls.title")}</h2>
    <div class="cards">
      ${KINDS.map((kind) => html`<${Event} key=${kind} kind=${kind} event=${events[kind]} onEvent=${setEvent(kind)} />`)}
    </div>
    ${shown.map(
      (level, index) =>
        html`<${Level}
          key=${index}
          number=${index + 1}
          level=${level}
          hasPeople=${hasPeople}
          onLevel=${(next) => set({ ...document, levels: replaced(shown, index, next) })}
        />`,
    )}
    <p class="row">
      <button type="button" class="quiet" onClick=${() => set({ ...document, levels: [...shown, []] })}>
        ${say("calls.addLevel")}
      </button>
      <button type="button" class="primary" onClick=${save}>${say("calls.save")}</button>
    </p>
    <p role="status">${dirty && !said ? say("save.dirty") : said}</p>
    <${Reached} receivers=${receivers} />`;
}
