/**
 * Undo and redo over immutable states. Every change returns a new history, so a history can itself be a piece of state.
 *
 * @template State
 * @typedef {object} History
 * @property {State} present what is shown and would be saved
 * @property {(next: State, label?: string) => History<State>} push takes `next` as a step of its own; directly after a
 *     push with the same label it becomes part of that step (typing a number is one step, not one per digit). Without a
 *     label a step never merges.
 * @property {() => History<State>} undo
 * @property {() => History<State>} redo
 * @property {boolean} canUndo
 * @property {boolean} canRedo
 */

/**
 * @template State
 * @param {State} initial
 * @returns {History<State>}
 */
export function createHistory(initial) {
  return historyOf([], initial, [], undefined);
}

function historyOf(past, present, future, label) {
  const history = {
    present,
    canUndo: past.length > 0,
    canRedo: future.length > 0,
    push(next, nextLabel) {
      if (next === present) return history;
      const merges = label !== undefined && label === nextLabel;
      return historyOf(merges ? past : [...past, present], next, [], nextLabel);
    },
    undo: () => (past.length ? historyOf(past.slice(0, -1), past.at(-1), [present, ...future], undefined) : history),
    redo: () => (future.length ? historyOf([...past, present], future[0], future.slice(1), undefined) : history),
  };
  return history;
}
