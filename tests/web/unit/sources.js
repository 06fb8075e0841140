/** What stands in the texts of the program's C++ sources. */
import { readFile, readdir } from "node:fs/promises";
import { join } from "node:path";
import { fileURLToPath } from "node:url";

const ROOT = fileURLToPath(new URL("../../..", import.meta.url));

/** A comment, a raw text, a text or a character; of texts with what is in them. */
const TOKEN = /\/\/.*|\/\*[\s\S]*?\*\/|R"\(([\s\S]*?)\)"|"((?:[^"\\\n]|\\.)*)"|'(?:[^'\\\n]|\\.)+'/g;

const LONGEST_STATEMENT = 2000;

const ESCAPES = { n: "\n", t: "\t", r: "\r", 0: "\0" };
const unescaped = (text) => text.replace(/\\(.)/g, (_, one) => ESCAPES[one] ?? one);

/**
 * The texts of a source, those beside each other as one: {text, before}, with what stands before it in its statement,
 * other texts as "".
 */
export function textsIn(source) {
  const texts = [];
  let code = "";
  let end = 0;
  for (const match of source.matchAll(TOKEN)) {
    const between = source.slice(end, match.index);
    end = match.index + match[0].length;
    code += between;
    const [, raw, plain] = match;
    if (raw === undefined && plain === undefined) continue;
    const text = raw ?? unescaped(plain);
    if (/""\s*$/.test(code)) texts.at(-1).text += text;
    else texts.push({ text, before: /[^;{}]*$/.exec(code)[0].trim() });
    code = code.replace(/""\s*$/, "").slice(-LONGEST_STATEMENT) + '""';
  }
  return texts;
}

/** All sources below a folder, as [name, source] with names from the root on. */
export async function sourcesBelow(folder) {
  const names = (await readdir(join(ROOT, folder), { recursive: true })).filter((name) => name.endsWith(".cpp"));
  return Promise.all(names.map(async (name) => [join(folder, name), await readFile(join(ROOT, folder, name), "utf8")]));
}
