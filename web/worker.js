
// The page's worker: one file, restored, compressed, or what is intact of it.

const kShown = 500; // blocks that the page shows one by one

// Hands a piece to the page, which answers when it has it: memory stays that for one block.
function give(bytes) {
  return new Promise((taken) => {
    onmessage = taken;
    postMessage({ type: "bytes", bytes }, [bytes.buffer]);
  });
}

// What the archive's index tells at once; nothing where it can't be read so.
async function openAt(file) {
  try {
    const archive = await open(file);
    const { size, blockCount, crc } = archive;
    const blocks = archive.blocks(0, kShown);
    postMessage({ type: "opened", size, blockCount, crc, blocks });
    return archive;
  } catch {
    return null;
  }
}

async function pump(file, flow, done = () => {}) {
  const bytes = async (at) => new Uint8Array(await file.slice(at, at + kPiece).arrayBuffer());
  for (let at = 0; !flow.ended && (at < file.size || at === 0); at += kPiece) {
    for (const piece of flow.run(await bytes(at), at + kPiece >= file.size)) await give(piece);
    const { size, archiveSize } = flow.report();
    postMessage({ type: "progress", size, archiveSize });
    done();
  }
  return flow.report();
}

async function restore({ file }) {
  await openAt(file);
  const flow = await Flow.restore((block) => postMessage({ type: "block", block }));
  const { size, archiveSize, crc, blocks, whole, bytesFollow } = await pump(file, flow);
  const warnings = [
    ...(bytesFollow
      ? [`${file.size - archiveSize} bytes that follow the archive's end are left out`] : []),
    ...(whole ? [] : ["a plain archive, which can't tell whether its end was cut off"]),
  ];
  return { size, crc, blocks, warning: warnings.join("; ") };
}

async function pack({ file, level }) {
  const flow = await Flow.compress(file.size, { level });
  const { size, archiveSize, crc } = await pump(file, flow);
  return { size, archiveSize, crc };
}

// All blocks that are whole, by the index; without one, those before the damage.
async function salvage({ file }) {
  const archive = await openAt(file);
  let blocks = 0, size = 0;
  const lost = [];
  if (archive === null) {
    const flow = await Flow.restore(() => ++blocks);
    let why = null;
    await pump(file, flow).catch((error) => (why = error));
    return { size: flow.report().size, blocks: flow.report().blocks, lost, early: why !== null };
  }
  for (let i = 0; i < archive.blockCount; ++i) {
    const [block] = archive.blocks(i, i + 1);
    try {
      for (let at = 0; at < block.size; at += kPiece) {
        await give(await archive.read(block.start + at, Math.min(kPiece, block.size - at)));
      }
      ++blocks;
      size += block.size;
    } catch (error) {
      if (!(error instanceof VelkError) || error.status !== kDamaged) throw error;
      lost.push({ number: i + 1, from: block.start, to: block.start + block.size });
    }
    postMessage({ type: "progress", size: block.start + block.size, archiveSize: block.offset });
  }
  return { size, blocks, lost, early: false };
}

onmessage = async ({ data: job }) => {
  const work = { restore, compress: pack, salvage }[job.mode];
  try {
    compiled = job.module;
    postMessage({ type: "module", module: await compile() });
    postMessage({ type: "end", result: await work(job) });
  } catch (error) {
    const archive = error instanceof VelkError;
    const text = error.name === "NotReadableError" ? "can't be read" : error.message;
    postMessage({ type: "end", fault: { text, status: archive ? error.status : -1, told: error.report } });
  }
};
