/** Who has changed what, and the settings as a file. */
import { clockTime, say } from "../base/words.js";
import { askService, fetchText } from "../program/api.js";
import { html, useEffect, useRef, useState } from "../vendor/preact.js";
import { changeLines } from "./parameters.js";

const CHANGES_URL = "/platform/changes";
const SETTINGS_URL = "/platform/settings";
const ABSENT = 404;
const FIRST = 20;

const listOf = (told) => (Array.isArray(told) ? told : (told?.changes ?? []));

/** What was changed, with the program's own name for those who look for that. */
function Line({ line: { time, by, key, name, from, to }, now }) {
  return html`<tr>
    <td>${clockTime(new Date(time), new Date(now))}</td>
    <td>${by || "–"}</td>
    <th scope="row">${name ? html`${name} <code class="small">${key}</code>` : key}</th>
    <td>${from}</td>
    <td>${to}</td>
  </tr>`;
}

function Rows({ changes, now }) {
  const lines = changes.flatMap((change) => changeLines(change).map((line) => ({ ...change, ...line })));
  return html`<div class="scroll" tabindex="0" role="region" aria-label=${say("changes.title")}>
    <table>
      <thead>
        <tr>
          ${["time", "by", "key", "from", "to"].map((key) => html`<th key=${key} scope="col">${say(`changes.${key}`)}</th>`)}
        </tr>
      </thead>
      <tbody>
        ${lines.map((line, index) => html`<${Line} key=${index} line=${line} now=${now} />`)}
      </tbody>
    </table>
  </div>`;
}

/** The section; nothing on a camera that keeps no changes. */
export function Changes({ now, saved }) {
  const [changes, setChanges] = useState(null);
  const [wrong, setWrong] = useState("");
  useEffect(() => {
    const fail = (error) => error.status !== ABSENT && setWrong(error.message);
    askService(CHANGES_URL).then((told) => setChanges(listOf(told)), fail);
  }, [saved]);
  if (!changes && !wrong) return null;
  return html`<div class="panel">
    <h2>${say("changes.title")}</h2>
    ${wrong && html`<p role="alert" class="note">${wrong}</p>`}
    ${changes?.length === 0 && html`<p class="muted">${say("changes.none")}</p>`}
    ${changes?.length > 0 && html`<${Rows} changes=${changes.slice(0, FIRST)} now=${now} />`}
  </div>`;
}

function download(text) {
  const link = document.createElement("a");
  link.href = URL.createObjectURL(new Blob([text], { type: "application/json" }));
  link.download = "velmor-settings.json";
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href));
}

/** Settings to a file and back; the camera checks what comes back as it does a save. */
export function Transfer({ onTaken }) {
  const [said, setSaid] = useState("");
  const file = useRef(null);
  const out = () => fetchText(SETTINGS_URL).then(download, (error) => setSaid(error.message));
  const take = async ({ target }) => {
    const [chosen] = target.files;
    if (!chosen) return;
    setSaid(say("save.saving"));
    try {
      await askService(SETTINGS_URL, { action: "import", document: await chosen.text() });
      setSaid(say("transfer.taken", { name: chosen.name }));
      onTaken();
    } catch (error) {
      setSaid(say("transfer.refused", { error: error.message }));
    }
    target.value = "";
  };
  return html`<section class="panel" aria-labelledby="transfer-heading">
    <h2 id="transfer-heading">${say("transfer.title")}</h2>
    <p class="small">${say("transfer.hint")}</p>
    <p class="row">
      <button type="button" class="quiet" onClick=${out}>${say("transfer.out")}</button>
      <button type="button" class="quiet" onClick=${() => file.current.click()}>${say("transfer.in")}</button>
      <input
        ref=${file}
        type="file"
        accept=".json,application/json"
        class="hidden"
        aria-label=${say("transfer.file")}
        tabindex="-1"
        onChange=${take}
      />
    </p>
    <p role="status">${said}</p>
  </section>`;
}
