// What the tests of the page and of the package compare with: velkz, and the corpus.
import { spawnSync } from "node:child_process";
import { readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";

export const ROOT = process.env.VELK_ROOT;
const CORPUS = join(ROOT, "tests/corpus");

export function run(program, args, input = undefined) {
  return spawnSync(join(ROOT, "build/release", program), args, { input, maxBuffer: 1 << 28 });
}

export const velkz = (input, ...args) => run("velkz", ["-c", ...args], input);

// The archives, what velkz restores of them, and what it says.
export function corpus() {
  return readdirSync(CORPUS).filter((name) => name.endsWith(".velk")).map((name) => {
    const path = join(CORPUS, name);
    const { stdout, stderr, status } = run("velkz", ["-dc", path]);
    const said = stderr.toString().trim().replace(`velkz: ${path}: `, "");
    return { name, path, archive: readFileSync(path), good: status !== 1, stdout, said };
  });
}

// Text of made-up words, a stretch of records, and noise, over and over; the same each time.
export function made(size) {
  const bytes = Buffer.alloc(size);
  let state = 1;
  const next = () => (state = (Math.imul(state, 1103515245) + 12345) >>> 0) >>> 8;
  for (let at = 0; at < size; ) {
    const kind = Math.floor(at / 700_000) % 8;
    if (kind === 6) at = bytes.writeUInt8(next() & 255, at);
    else if (kind === 7) at = bytes.writeUInt8((at % 4 ? at >> (8 * (at % 4)) : next() & 7) & 255, at);
    else at += Math.max(1, bytes.write(`${(next() % (kind * 900 + 500)).toString(36)} `, at));
  }
  return bytes;
}
