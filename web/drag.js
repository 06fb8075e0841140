/** Taking hold of things on the picture and dragging them, by mouse, finger or pen. */
import { figureMovedTo } from "./floor.js";
import {
  FIGURE,
  FLOOR,
  TOOLS,
  areaOf,
  contains,
  distanceToSegment,
  movePoint,
  nearest,
  pointsOf,
  shiftArea,
} from "./tools.js";
import { useEffect, useRef, useState } from "./vendor/preact.js";

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
  const pointOf = (event) => {
    const box = group.current.ownerSVGElement.getBoundingClientRect();
    return { x: (event.clientX - box.left) * props.view.unit, y: (event.clientY - box.top) * props.view.unit };
  };
  const finish = () => {
    drag.current = null;
    setDragging(false);
    props.onPreview(null);
  };
  const handlers = {
    pointerdown(event) {
      if (drag.current || event.button !== 0 || !event.isPrimary) return;
      const at = pointOf(event);
      const hold = picked(props, mapping, spots, at, event.pointerType);
      if (!hold.spot && !hold.area) return;
      event.preventDefault();
      group.current.setPointerCapture(event.pointerId);
      if (hold.spot) {
        hold.start = mapping.toAnalysis(hold.spot.at);
        group.current.querySelector(`[data-spot="${hold.spot.index}"]`).focus({ preventScroll: true });
      }
      drag.current = { hold, from: mapping.toAnalysis(at), scene: props.scene, moved: null, id: event.pointerId };
      setDragging(true);
    },
    pointermove(event) {
      const { current } = drag;
      if (!current || event.pointerId !== current.id) return;
      current.moved = dragged(props, current.scene, current.hold, current.from, mapping.toAnalysis(pointOf(event)));
      props.onPreview(current.moved);
    },
    pointerup(event) {
      const { current } = drag;
      if (!current || event.pointerId !== current.id) return;
      finish();
      if (current.moved) props.onCommit(current.moved, current.hold.spot?.index ?? null);
    },
    pointercancel(event) {
      if (event.pointerId === drag.current?.id) finish();
    },
    click(event) {
      const { tool } = picked(props, mapping, spots, pointOf(event), event.pointerType);
      if (tool) props.onTool(tool);
    },
    // Keeps the page from scrolling under a finger that moves something; elsewhere on the picture it scrolls.
    touchstart(event) {
      const hold = picked(props, mapping, spots, pointOf(event.touches[0]), "touch");
      if (hold.spot || hold.area) event.preventDefault();
    },
  };
  const latest = useRef(handlers);
  latest.current = { ...handlers, finish };

  useEffect(() => {
    const element = group.current;
    const listeners = Object.keys(handlers).map((type) => [type, (event) => latest.current[type](event)]);
    listeners.forEach(([type, listener]) => element.addEventListener(type, listener, { passive: false }));
    return () => listeners.forEach(([type, listener]) => element.removeEventListener(type, listener));
  }, []);

  useEffect(() => {
    if (!dragging) return undefined;
    const escape = (event) => {
      if (event.key !== "Escape") return;
      event.preventDefault();
      latest.current.finish();
    };
    addEventListener("keydown", escape);
    return () => removeEventListener("keydown", escape);
  }, [dragging]);
  return dragging;
}
