/** The camera that sees a calibrated floor, as it is estimated from the four floor points. Heights are metres above the floor. */
import { columnsOf, likelyFocalLength } from "./calibration.js";

/**
 * @typedef {import("../program/wire.js").Point} Point
 * @typedef {{x: number, y: number, z: number}} Vector of the camera: x right, y down, z forward
 */

export const plus = (...vectors) => ({
  x: vectors.reduce((sum, { x }) => sum + x, 0),
  y: vectors.reduce((sum, { y }) => sum + y, 0),
  z: vectors.reduce((sum, { z }) => sum + z, 0),
});
export const times = ({ x, y, z }, factor) => ({ x: x * factor, y: y * factor, z: z * factor });
export const vectorProduct = (a, b) => ({
  x: a.y * b.z - a.z * b.y,
  y: a.z * b.x - a.x * b.z,
  z: a.x * b.y - a.y * b.x,
});
export const unit = (vector) => times(vector, 1 / Math.hypot(vector.x, vector.y, vector.z));

/** Nothing nearer than this is drawn or calculated with, in metres before the camera. */
export const NEAREST = 0.05;

/**
 * The floor's camera, in its own coordinates and metres.
 * @param {Point[]} points red, green, blue, yellow in pixels
 * @param {number | string} widthM
 * @param {number | string} depthM
 * @param {import("../program/wire.js").Size} size
 * @returns {{across: Vector, up: Vector, place: (x: number, y: number) => Vector, ray: (p: Point) => Vector,
 *   project: (v: Vector) => ?Point}} across and place: metres of width and depth from the red point; up: a metre; ray: the
 *   way to what a point of the picture shows; project: null for what is not before the camera
 */
export function cameraOver(points, widthM, depthM, size) {
  const focal = likelyFocalLength(points, widthM, depthM, size);
  const rays = columnsOf(points, widthM, depthM, size).map(({ x, y, z }) => ({ x: x / focal, y: y / focal, z }));
  const metre = Math.sqrt(Math.hypot(rays[0].x, rays[0].y, rays[0].z) * Math.hypot(rays[1].x, rays[1].y, rays[1].z));
  const [across, down, origin] = rays.map((ray) => times(ray, 1 / metre));
  return {
    across,
    up: unit(vectorProduct(down, across)),
    place: (x, y) => plus(times(across, x), times(down, y), origin),
    ray: ({ x, y }) => ({ x: (x - size.width / 2) / focal, y: (y - size.height / 2) / focal, z: 1 }),
    project: ({ x, y, z }) =>
      z > NEAREST ? { x: (focal * x) / z + size.width / 2, y: (focal * y) / z + size.height / 2 } : null,
  };
}
