/** Small choices kept in this browser; a browser that keeps nothing loses only these. */

export function recall(key) {
  try {
    return localStorage.getItem(`velmor-${key}`);
  } catch {
    return null;
  }
}

export function remember(key, value) {
  try {
    localStorage.setItem(`velmor-${key}`, value);
  } catch {
    // Storage is full or forbidden.
  }
}
