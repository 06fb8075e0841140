/** Taking hold of things on the picture and dragging them, by mouse, finger or pen. */
import { contains, distanceToSegment, nearest } from "../geometry/plane.js";
import { useEffect, useRef, useState } from "../vendor/preact.js";
import { figureMovedTo } from "./floor.js";
import { FIGURE, FLOOR, TOOLS, areaOf, movePoint, pointsOf, shiftArea } from "./tools.js";

/** How far from a handle's middle it can be taken, in CSS pixels: a finger's 44 across, less for a mouse or a pen. */
export const REACH = { touch: 22, pen: 16, mouse: 14 };

const plus = (a, b) => ({ x: a.x + b.x, y: a.y + b.y });
const minus = (a, b) => ({ x: a.x - b.x, y: a.y - b.y });

/** What a pointer at `at` (view) would take: a spot, the chosen area as a whole, another area's tool, or nothing. */
function picked({ tool, scene, size, view }, mapping, spots, at, pointerType) {
  const reach = (REACH[pointerType] ?? REACH.mouse) * view.unit;
  const found = nearest(
    spots.map((spot) => spot.at),
    at,
    reach,
  );
  if (found >= 0) return { spot: spots[found] };
  const figure = spots.find((spot) => spot.index === FIGURE);
  if (figure && distanceToSegment(at, figure.at, figure.head) <= reach) return { spot: figure };
  const holds = (other) => contains(pointsOf(scene.settings, other, size).map(mapping.toView), at);
  if (tool !== FLOOR && spots.length && holds(tool)) return { area: tool };
  if (tool.group === "mattresses") return {};
  const shown = TOOLS.filter((other) => other !== tool && other !== FLOOR && areaOf(scene.settings, other).on);
  const other = shown.find(holds);
  return other ? { tool: other } : {};
}

/** The scene with what was taken (`hold`) at `from` brought to `to`, both in the analysis picture. */
function dragged({ tool, size }, scene, hold, from, to) {
  const distance = minus(to, from);
  if (hold.area) return { ...scene, settings: shiftArea(scene.settings, hold.area, distance, size) };
  const point = plus(hold.start, distance);
  if (hold.spot.index === FIGURE) return { ...scene, figure: figureMovedTo(scene, point, size) };
  return { ...scene, settings: movePoint(scene.settings, tool, hold.spot.index, point, size) };
}

/** Where an event is in an element, in the view's units. */
function pointIn(element, { clientX, clientY }, unit) {
  const { left, top } = element.getBoundingClientRect();
  return { x: (clientX - left) * unit, y: (clientY - top) * unit };
}

const focusOn = (group, { index }) => group.querySelector(`[data-spot="${index}"]`).focus({ preventScroll: true });

/** What pointer events do, with a drag that is going on in `drag.current` and `finish` to end it. */
function handlersOf({ group, props, mapping, spots, drag, begin, finish }) {
  const pointOf = (event) => pointIn(group.current.ownerSVGElement, event, props.view.unit);
  const pick = (event, type = event.pointerType) => picked(props, mapping, spots, pointOf(event), type);
  const isDragged = (event) => drag.current?.id === event.pointerId;
  return {
    pointerdown(event) {
      if (drag.current || event.button !== 0 || !event.isPrimary) return;
      const hold = pick(event);
      if (!hold.spot && !hold.area) return;
      event.preventDefault();
      group.current.setPointerCapture(event.pointerId);
      if (hold.spot) hold.start = mapping.toAnalysis(hold.spot.at);
      if (hold.spot) focusOn(group.current, hold.spot);
      const from = mapping.toAnalysis(pointOf(event));
      begin({ hold, from, scene: props.scene, moved: null, id: event.pointerId });
    },
    pointermove(event) {
      if (!isDragged(event)) return;
      const { scene, hold, from } = drag.current;
      drag.current.moved = dragged(props, scene, hold, from, mapping.toAnalysis(pointOf(event)));
      props.onPreview(drag.current.moved);
    },
    pointerup(event) {
      if (!isDragged(event)) return;
      const { moved, hold } = drag.current;
      finish();
      if (moved) props.onCommit(moved, hold.spot?.index ?? null);
    },
    pointercancel: (event) => isDragged(event) && finish(),
    click(event) {
      const { tool } = pick(event);
      if (tool) props.onTool(tool);
    },
    // Keeps the page from scrolling under a finger that moves something; elsewhere on the picture it scrolls.
    touchstart(event) {
      const hold = pick(event.touches[0], "touch");
      if (hold.spot || hold.area) event.preventDefault();
    },
  };
}

/** Calls an element's newest handlers; the listeners stay, so that a drag survives drawing anew. */
function useHandlers(element, handlers) {
  const latest = useRef(null);
  latest.current = handlers;
  useEffect(() => {
    const { current } = element;
    const listeners = Object.keys(handlers).map((type) => [type, (event) => latest.current[type](event)]);
    listeners.forEach(([type, listener]) => current.addEventListener(type, listener, { passive: false }));
    return () => listeners.forEach(([type, listener]) => current.removeEventListener(type, listener));
  }, []);
}

function useEscape(active, leave) {
  const latest = useRef(null);
  latest.current = leave;
  useEffect(() => {
    if (!active) return undefined;
    const escape = (event) => {
      if (event.key !== "Escape") return;
      event.preventDefault();
      latest.current();
    };
    addEventListener("keydown", escape);
    return () => removeEventListener("keydown", escape);
  }, [active]);
}

/**
 * Drags with any pointer; tells through the props of the stage. Escape, or the browser taking the pointer away, brings
 * everything back.
 *
 * @param {{current: ?SVGGElement}} group what receives the pointer, inside the picture's SVG
 * @param {object} props of the stage, with `view`
 * @param {{toView: Function, toAnalysis: Function}} mapping
 * @param {object[]} spots what can be taken hold of
 * @returns {boolean} whether something is being dragged
 */
export function useDrag(group, props, mapping, spots) {
  const [dragging, setDragging] = useState(false);
  const drag = useRef(null);
  const begin = (started) => {
    drag.current = started;
    setDragging(true);
  };
  const finish = () => {
    drag.current = null;
    setDragging(false);
    props.onPreview(null);
  };
  useHandlers(group, handlersOf({ group, props, mapping, spots, drag, begin, finish }));
  useEscape(dragging, finish);
  return dragging;
}
