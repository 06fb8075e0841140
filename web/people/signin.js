/** The sign-in form, and the form for another password. */
import { say } from "../base/words.js";
import { html, useEffect, useRef, useState } from "../vendor/preact.js";
import { changePassword, signIn } from "./service.js";

function Field({ id, label, field, ...input }) {
  return html`<div class="field">
    <label for=${id}>${label}</label>
    <input id=${id} ref=${field} autocapitalize="off" spellcheck=${false} ...${input} />
  </div>`;
}

/** Sends a form once: {busy, wrong, submit}. */
function useForm(send) {
  const [state, setState] = useState({ busy: false, wrong: "" });
  const submit = async (event) => {
    event.preventDefault();
    if (state.busy) return;
    setState({ busy: true, wrong: "" });
    try {
      await send();
      setState({ busy: false, wrong: "" });
    } catch (error) {
      setState({ busy: false, wrong: error.message });
    }
  };
  return { ...state, submit };
}

/** @param {{ended: boolean, onIn: () => void}} props ended: somebody was signed in until just now */
export function SignIn({ ended, onIn }) {
  const [name, setName] = useState("");
  const [password, setPassword] = useState("");
  const first = useRef(null);
  useEffect(() => first.current.focus(), []);
  const { busy, wrong, submit } = useForm(async () => {
    await signIn(name, password);
    onIn();
  });
  return html`<form class="panel sign-in" onSubmit=${submit}>
    <h1>${say("signIn.title")}</h1>
    <p class="note" role=${ended ? "alert" : undefined}>
      ${ended && html`<strong>${say("signIn.ended")}</strong> `}${say("signIn.deaf")}
    </p>
    <${Field}
      id="sign-in-name"
      field=${first}
      label=${say("signIn.name")}
      type="text"
      autocomplete="username"
      value=${name}
      onInput=${(event) => setName(event.target.value)}
    />
    <${Field}
      id="sign-in-password"
      label=${say("signIn.password")}
      type="password"
      autocomplete="current-password"
      value=${password}
      onInput=${(event) => setPassword(event.target.value)}
    />
    <p role="alert" class="note">${wrong}</p>
    <p><button type="submit" class="primary" aria-disabled=${busy ? "true" : "false"}>${say("signIn.in")}</button></p>
    ${!globalThis.isSecureContext && html`<p class="small">${say("signIn.insecure")} ${say("device.insecure")}</p>`}
  </form>`;
}

/** @param {{must: boolean, onDone: () => void}} props must: the first password was shown to somebody else as well */
export function Password({ must, onDone }) {
  const [old, setOld] = useState("");
  const [fresh, setFresh] = useState("");
  const { busy, wrong, submit } = useForm(async () => {
    await changePassword(old, fresh);
    onDone();
  });
  return html`<form class="panel sign-in" onSubmit=${submit}>
    <h2>${say("password.title")}</h2>
    ${must && html`<p class="note">${say("password.must")}</p>`}
    <${Field}
      id="password-old"
      label=${say("password.old")}
      type="password"
      autocomplete="current-password"
      value=${old}
      onInput=${(event) => setOld(event.target.value)}
    />
    <${Field}
      id="password-new"
      label=${say("password.new")}
      type="password"
      autocomplete="new-password"
      value=${fresh}
      onInput=${(event) => setFresh(event.target.value)}
    />
    <p role="alert" class="note">${wrong}</p>
    <p class="row">
      <button type="submit" class="primary" aria-disabled=${busy ? "true" : "false"}>${say("password.change")}</button>
      <button type="button" class="quiet" onClick=${onDone}>${say(must ? "password.later" : "back")}</button>
    </p>
  </form>`;
}
