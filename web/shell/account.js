/** Who is signed in, the page's language, and the way to the wall's view. */
import { VIEW } from "../base/facts.js";
import { remember } from "../base/memory.js";
import { LANGUAGE, LANGUAGES, say } from "../base/words.js";
import { signOut } from "../people/service.js";
import { html, useEffect, useRef, useState } from "../vendor/preact.js";
import { tellOtherTabs } from "./who.js";

function choose(language) {
  remember("language", language);
  location.reload();
}

function Language() {
  return html`<label class="field"
    ><span>${say("menu.language")}</span>
    <select value=${LANGUAGE} onChange=${(event) => choose(event.target.value)}>
      ${Object.entries(LANGUAGES).map(([key, name]) => html`<option key=${key} value=${key} lang=${key} selected=${key === LANGUAGE}>${name}</option>`)}
    </select></label
  >`;
}

function Session({ who, onPassword }) {
  const [wrong, setWrong] = useState("");
  const leave = async () => {
    try {
      await signOut();
      tellOtherTabs();
      location.reload();
    } catch (error) {
      setWrong(error.message);
    }
  };
  return html`<p>${say("menu.signedIn", { name: who.name, role: say(`role.${who.role}`) })}</p>
    <p class="row">
      ${!who.token && html`<button type="button" class="quiet" onClick=${onPassword}>${say("menu.password")}</button>`}
      <button type="button" class="quiet" onClick=${leave}>${say("menu.out")}</button>
    </p>
    ${wrong && html`<p role="alert" class="note">${wrong}</p>`}`;
}

/** @param {{who: object, onPassword: () => void}} props */
export function Menu({ who, onPassword }) {
  const details = useRef(null);
  const close = () => details.current?.removeAttribute("open");
  useEffect(() => {
    const escape = ({ key }) => key === "Escape" && close();
    const outside = ({ target }) => details.current?.contains(target) || close();
    addEventListener("keydown", escape);
    addEventListener("pointerdown", outside);
    return () => {
      removeEventListener("keydown", escape);
      removeEventListener("pointerdown", outside);
    };
  }, []);
  const password = () => {
    close();
    onPassword();
  };
  return html`<details class="menu" ref=${details}>
    <summary>${who.people ? who.name : say("menu.menu")}</summary>
    <div class="panel">
      ${who.people && html`<${Session} who=${who} onPassword=${password} />`}
      <p><a href=${`index.html${VIEW.wall}`} onClick=${close}>${say("menu.wall")}</a></p>
      <${Language} />
    </div>
  </details>`;
}
