// The npm package, as scripts/test-web installed it, beside velkz.
import assert from "node:assert/strict";
import { createServer } from "node:http";
import test from "node:test";
import { compress, decompress, open } from "velk";
import { corpus, made, velkz } from "./programs.mjs";

const original = made(3_000_000);

test("the same archives as velkz", async () => {
  for (const [options, args] of [[{}, []], [{ level: 1 }, ["-1"]], [{ level: 9 }, ["-9"]],
    [{ blockSize: 1 << 20, plain: true }, ["-b1M", "--plain", "--size=3000000"]]]) {
    const archive = velkz(original, "-T1", ...args).stdout;
    assert(archive.equals(await compress(original, options)), args);
    assert(original.equals(await decompress(archive)));
  }
  await assert.rejects(compress(original, { level: 10 }), { status: 1 });
  const shorts = Uint16Array.of(1, 2, 3).subarray(1); // what is no view of bytes, and of a part
  const bytes = new Uint8Array(shorts.buffer, 2, 4);
  assert.deepEqual(await decompress(await compress(shorts)), bytes);
});

test("what every decoder makes of the corpus", async () => {
  for (const { name, archive, good, stdout, said } of corpus()) {
    if (good) assert(stdout.equals(await decompress(archive)), name);
    else await assert.rejects(decompress(archive), { message: said }, name);
  }
});

// Serves the archive by ranges, or without, and counts.
async function serve(archive, ranges) {
  const server = createServer(({ headers: { range } }, answer) => {
    const [, from, to] = /bytes=(\d+)-(\d+)/.exec(range);
    const part = archive.subarray(Number(from), Number(to) + 1);
    server.bytes += part.length;
    const place = `bytes ${from}-${Number(from) + part.length - 1}/${archive.length}`;
    answer.writeHead(ranges ? 206 : 200, { "Content-Range": place }).end(part);
  });
  server.bytes = 0;
  await new Promise((ready) => server.listen(0, "127.0.0.1", ready));
  return server;
}

test("random access", async () => {
  const member = velkz(original, "-1").stdout, plain = velkz(original, "-1", "--plain").stdout;
  const all = Buffer.concat([original, original, original]);
  const archive = Buffer.concat([member, plain, member]);
  const source = { size: archive.length, read: async (at, n) => archive.subarray(at, at + n) };
  for (const from of [archive, new Blob([archive]), source]) {
    const opened = await open(from);
    assert.deepEqual([opened.size, opened.members], [all.length, 3]);
    const places = [[0, 10], [2_999_990, 20], [5_000_000, 1_200_000], [8_999_999, 5], [9e6, 1]];
    const parts = await Promise.all(places.map((place) => opened.read(...place)));
    parts.forEach((part, i) =>
      assert(all.subarray(places[i][0], places[i][0] + places[i][1]).equals(part), `${places[i]}`));
    const [second] = opened.blocks(1, 2);
    assert.deepEqual([opened.blocks().length, second.start], [opened.blockCount, 131072]);
  }
  await assert.rejects(open({ size: 9, read() { throw new TypeError("lost"); } }), TypeError);
});

test("a URL: no more is fetched than needed; a damaged block costs that block", async () => {
  const archive = velkz(original, "-1").stdout;
  const { offset, recordSize } = (await open(archive)).blocks()[3];
  archive[offset + recordSize - 1] ^= 1;
  const server = await serve(archive, true), other = await serve(archive, false);
  const url = ({ address: { port } = server.address() }) => `http://127.0.0.1:${port}/`;
  const opened = await open(url({}));
  assert(original.subarray(131072, 131082).equals(await opened.read(131072, 10)));
  assert(server.bytes < 65536 + 2 * recordSize + 1000, `${server.bytes}`);
  await assert.rejects(opened.read(3 * 131072, 1), { status: 5, message: /^block 4 at offset/ });
  assert(original.subarray(4 * 131072, 4 * 131072 + 10).equals(await opened.read(4 * 131072, 10)));
  await assert.rejects(open(url({ address: other.address() })), /has no ranges/);
  for (const each of [server, other]) each.close().closeAllConnections?.();
});
