/** The program's sentences in another language, by a table of sentences with {places}. */

/** Longer texts are none of the program's sentences. */
const LONGEST = 4000;
/** Sentences in a sentence in a sentence: "What was set could not be stored: calls.json: cannot be written: ...". */
const DEEPEST = 2;
/** Of a clause that is taken apart too often: two pieces beside its first, and what stands between them. */
const LONGEST_CLAUSE = 5;

const PLACE = /\{([a-z]+)\d*\}/g;
const NUMBER = /^-?\d{1,15}(\.\d{1,9})?$/;

/** "{who} stands" as the texts between the places, and the places' names and kinds: {who2} is one of "who". */
function compiled([own, other]) {
  const places = [...own.matchAll(PLACE)].map(([place, kind]) => ({ name: place.slice(1, -1), kind }));
  return { texts: own.replace(PLACE, "\0").split("\0"), places, other };
}

/**
 * What stands in the places, one value each, or null. Each ends where the text after it first comes: nothing is tried
 * twice, so that no text, however odd, takes long.
 */
function valuesIn(text, { texts, places }) {
  const [first] = texts;
  const last = texts[places.length];
  if (!text.startsWith(first) || !text.endsWith(last)) return null;
  const end = text.length - last.length;
  const values = [];
  let at = first.length;
  for (let i = 0; i < places.length; i++) {
    const to = i === places.length - 1 ? end : text.indexOf(texts[i + 1], at + 1);
    if (to <= at || to > end) return null;
    values.push(text.slice(at, to));
    at = to + texts[i + 1].length;
  }
  return places.length || text === first ? values : null;
}

export class Translator {
  /**
   * @param {Object<string, string>} table the program's sentences, each without its full stop, and the other language's
   * @param {Object<string, Object<string, string>>} parts what may stand in a place, by its kind. Three kinds are no
   *   tables: "number"; "reason", a sentence again, or the program's own where there is none; "text", anybody's words
   * @param {(value: number, digits: number) => string} write a number with so many decimals
   */
  constructor(table, parts, write) {
    this.sentences = Object.entries(table).map(compiled);
    this.parts = new Map(Object.entries(parts).map(([kind, list]) => [kind, Object.entries(list).map(compiled)]));
    this.write = write;
  }

  /** @returns {?string} null where no part of the text is known */
  translate(text) {
    return text.length > LONGEST ? null : this.known(text, 0);
  }

  /** All of it, else what is known of its clauses: the others stay as the program said them. */
  known(text, depth) {
    if (depth > DEEPEST) return null;
    const all = this.sentence(text, depth);
    if (all !== null) return all;
    const pieces = text.split(/([.;] )/); // with what stands between them
    let words = "";
    let isKnown = false;
    for (let at = 0; at < pieces.length;) {
      const found = this.clause(pieces, at, depth);
      const { next, other } = found ?? { next: at + 1, other: pieces[at] };
      words += other + (pieces[next] ?? "");
      isKnown ||= found !== null;
      at = next + 1;
    }
    return isKnown ? words : null;
  }

  /** The pieces from there on that are one clause: a name in it may have a full stop or a semicolon. */
  clause(pieces, at, depth) {
    for (let next = at + 1; next <= Math.min(at + LONGEST_CLAUSE, pieces.length); next += 2) {
      const other = this.sentence(pieces.slice(at, next).join(""), depth);
      if (other !== null) return { next, other };
    }
    return null;
  }

  /** All of it or null: one sentence after the other, one clause after the other, or one alone. */
  sentence(text, depth) {
    const [words, stop] = text.endsWith(".") ? [text.slice(0, -1), "."] : [text, ""];
    for (const between of [". ", "; "]) {
      const pieces = words.split(between);
      const other = pieces.length > 1 ? this.every(pieces, between, depth) : null;
      if (other !== null) return other + stop;
    }
    const other = this.whole(words, depth);
    return other === null ? null : other + stop;
  }

  every(pieces, between, depth) {
    const others = [];
    for (const piece of pieces) {
      const other = this.sentence(piece, depth);
      if (other === null) return null;
      others.push(other);
    }
    return others.join(between);
  }

  /** Of one that begins a sentence the table may have the first letter as a small one. */
  whole(text, depth) {
    const other = this.oneOf(this.sentences, text, depth);
    if (other !== null || !/^\p{Lu}/u.test(text)) return other;
    const small = this.oneOf(this.sentences, text.charAt(0).toLowerCase() + text.slice(1), depth);
    return small && small.charAt(0).toUpperCase() + small.slice(1);
  }

  oneOf(list, text, depth) {
    for (const entry of list) {
      const other = this.filled(entry, text, depth);
      if (other !== null) return other;
    }
    return null;
  }

  filled(entry, text, depth) {
    const values = valuesIn(text, entry);
    if (!values) return null;
    const others = {};
    for (const [i, { name, kind }] of entry.places.entries()) {
      others[name] = this.inPlace(kind, values[i], depth);
      if (others[name] === null) return null;
    }
    return entry.other.replace(/\{(\w+)\}/g, (_, name) => others[name]);
  }

  inPlace(kind, value, depth) {
    if (kind === "text") return value;
    if (kind === "reason") return this.known(value, depth + 1) ?? value;
    if (kind !== "number") return this.oneOf(this.parts.get(kind), value, depth);
    return NUMBER.test(value) ? this.write(Number(value), value.split(".")[1]?.length ?? 0) : null;
  }
}
