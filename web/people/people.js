/** The installer's list of people and of tokens for programs. What is secret is shown once. */
import { ROLES } from "../base/facts.js";
import { clockTime, say } from "../base/words.js";
import { html, useEffect, useState } from "../vendor/preact.js";
import { changePeople, readPeople, signIn } from "./service.js";

const roleName = (role) => say(`role.${role}`);

function Role({ label, role, onRole }) {
  return html`<select aria-label=${label} value=${role} onChange=${(event) => onRole(event.target.value)}>
    ${ROLES.map((one) => html`<option key=${one} value=${one} selected=${one === role}>${roleName(one)}</option>`)}
  </select>`;
}

/** Adds a person or a token: a name and a role. */
function Add({ id, title, button, first = ROLES[0], onAdd }) {
  const [name, setName] = useState("");
  const [role, setRole] = useState(first);
  const submit = async (event) => {
    event.preventDefault();
    // Whoever has typed the next name meanwhile keeps it.
    if (await onAdd({ name: name.trim(), role })) setName((now) => (now === name ? "" : now));
  };
  return html`<form class="add" onSubmit=${submit}>
    <div class="field">
      <label for=${id}>${title}</label>
      <input
        id=${id}
        type="text"
        autocomplete="off"
        spellcheck=${false}
        value=${name}
        onInput=${(event) => setName(event.target.value)}
      />
    </div>
    <${Role} label=${say("people.role")} role=${role} onRole=${setRole} />
    <button type="submit" class="quiet">${button}</button>
  </form>`;
}

function Person({ person: { name, role }, me, change }) {
  return html`<li>
    <span class="person-name"><strong>${name}</strong>${name === me && ` (${say("people.you")})`}</span>
    <${Role}
      label=${say("people.roleOf", { name })}
      role=${role}
      onRole=${(next) => change("role", { name, role: next })}
    />
    <button
      type="button"
      class="quiet"
      aria-label=${say("people.resetOf", { name })}
      onClick=${() => change("reset", { name })}
    >
      ${say("people.reset")}
    </button>
    <button
      type="button"
      class="quiet"
      aria-label=${say("people.removeOf", { name })}
      onClick=${() => change("remove", { name })}
    >
      ${say("remove")}
    </button>
  </li>`;
}

function Token({ token: { id, name, role, made }, change }) {
  return html`<li>
    <span class="person-name"
      ><strong>${name}</strong>${" "}
      <span class="small">${roleName(role)}${made && `, ${clockTime(new Date(made))}`}</span></span
    >
    <button
      type="button"
      class="quiet"
      aria-label=${say("people.revokeOf", { name })}
      onClick=${() => change("revoke", { id })}
    >
      ${say("people.revoke")}
    </button>
  </li>`;
}

/** What the camera tells once: a password or a token. */
function Once({ once, onGone }) {
  return html`<div class="notice tone-warn" role="alert">
    <p>
      <span class="sign" aria-hidden="true">!</span
      ><span
        >${say(once.token ? "people.token" : "people.password", { name: once.name })}
        <code class="secret">${once.token ?? once.password}</code></span
      >
    </p>
    <p class="small">${say("people.once")}</p>
    <button type="button" class="quiet" onClick=${onGone}>${say("people.noted")}</button>
  </div>`;
}

/** What was told once and is not noted yet: it must outlast a page that is drawn anew for somebody else. */
let unnoted = null;

/** The list, changes to it, and what was told once: {list, once, wrong, change, forget}. */
function usePeople(who, onWho) {
  const [list, setList] = useState(null);
  const [once, show] = useState(unnoted);
  const setOnce = (told) => {
    unnoted = told;
    show(told);
  };
  const [wrong, setWrong] = useState("");
  const fail = (error) => setWrong(error.message);
  const read = () => readPeople().then(setList, fail);
  useEffect(() => void read(), []);
  const change = async (action, fields) => {
    try {
      const told = await changePeople(action, fields);
      if (told?.password || told?.token) setOnce({ name: fields.name, ...told });
      setWrong("");
      // With the first person everybody has to sign in: whoever adds it becomes that person.
      if (!who.people && told?.password) await signIn(fields.name, told.password).then(onWho);
      await read();
      return true;
    } catch (error) {
      fail(error);
      return false;
    }
  };
  return { list, once, wrong, change, forget: () => setOnce(null) };
}

/** @param {{who: object, onWho: () => void}} props who looks on; told when that may have become somebody else */
export function People({ who, onWho }) {
  const { list, once, wrong, change, forget } = usePeople(who, onWho);
  return html`<h1 tabindex="-1">${say("view.people")}</h1>
    ${once && html`<${Once} once=${once} onGone=${forget} />`}
    <p role="alert" class="note">${wrong}</p>
    ${
      list &&
      html`<section class="panel" aria-labelledby="people-heading">
          <h2 id="people-heading">${say("people.title")}</h2>
          <p class="small">${say("people.roles")}</p>
          ${list.people.length === 0 && html`<p class="note">${say("people.none")}</p>`}
          <ul class="people">
            ${list.people.map((person) => html`<${Person} key=${person.name} person=${person} me=${who.name} change=${change} />`)}
          </ul>
          <${Add}
            id="person-name"
            first=${who.people ? "carer" : "installer"}
            title=${say("people.name")}
            button=${say("people.add")}
            onAdd=${(fresh) => change("add", fresh)}
          />
        </section>
        <section class="panel" aria-labelledby="tokens-heading">
          <h2 id="tokens-heading">${say("people.tokens")}</h2>
          <p class="small">${say("people.tokensHint")}</p>
          <ul class="people">
            ${list.tokens.map((token) => html`<${Token} key=${token.id} token=${token} change=${change} />`)}
          </ul>
          <${Add}
            id="token-name"
            title=${say("people.tokenName")}
            button=${say("people.addToken")}
            onAdd=${(fresh) => change("add_token", fresh)}
          />
        </section>`
    }`;
}
