/** Which view the page's address names, and which place in it. */
import { VIEW } from "../base/facts.js";
import { useEffect, useRef, useState } from "../vendor/preact.js";

/** "#setup/editor-beds" as a view and a heading's id in it; null for other anchors, such as the skip link's. */
function addressed() {
  const [view, place = null] = location.hash.split("/");
  return Object.values(VIEW).includes(view) ? { view, place } : null;
}

/** The view that the address names; other anchors leave the view as it is. */
export function useView() {
  const [named, setNamed] = useState(() => addressed() ?? { view: VIEW.watch, place: null });
  useEffect(() => {
    const follow = () => setNamed((before) => addressed() ?? before);
    addEventListener("hashchange", follow);
    return () => removeEventListener("hashchange", follow);
  }, []);
  return named;
}

/**
 * Moves the focus to a view's heading, or to the one that the address names, so that the keyboard starts there. The guide
 * keeps it, and stays in sight as far as the heading leaves room.
 */
export function useFocusOnChange({ view, place }, ready, main) {
  const shown = useRef({ view, place: null });
  useEffect(() => {
    const before = shown.current;
    if (before.view === view && before.place === place) return;
    const heading = place && document.getElementById(place);
    if (place && !heading && !ready) return;
    shown.current = { view, place };
    const guided = main.current.querySelector(".guide:focus-within") !== null;
    if (heading) {
      heading.tabIndex = -1;
      heading.scrollIntoView({ block: guided ? "nearest" : "start" });
      if (!guided) heading.focus({ preventScroll: true });
    } else if (before.view !== view) {
      scrollTo(0, 0);
      if (!guided) main.current.querySelector("h1")?.focus();
    }
  }, [view, place, ready]);
}
