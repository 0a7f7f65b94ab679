// VELK archives by libvelk, as a WebAssembly module that stands in this file. What is exported is
// described in velk.d.ts.

const kModule = "@MODULE@"; // gzipped, in base64
const kPiece = 1 << 20; // bytes that are handed in and out at a time, at most
const kLimit = 128; // MiB of memory that any archive can be restored with
const kLargeLimit = 256; // to compress blocks of more than 8 MiB

// As in velk.h.
const kOk = 0, kMemory = 2, kFormat = 4, kDamaged = 5, kRead = 6, kDone = 9;
const kPartBlock = 2, kPartIndex = 3;
const kRun = 0, kFinish = 2;

const kStages = ["EOL", "FLT32", "DELTA", "LZP", "BWT", "ST", "RLE", "DCE"];

let compiled;

function compile() {
  compiled ??= (async () => {
    const zipped = Uint8Array.from(atob(kModule), (c) => c.charCodeAt(0));
    const stream = new Blob([zipped]).stream().pipeThrough(new DecompressionStream("gzip"));
    return WebAssembly.compile(await new Response(stream).arrayBuffer());
  })();
  return compiled;
}

export class VelkError extends Error {
  // told: the report of the call that failed.
  constructor(message, status, told) {
    super(message);
    this.name = "VelkError";
    this.status = status;
    this.report = told;
  }
}

// The library with memory of its own, which goes when nothing refers to it any more.
class Library {
  static async load(mebibytes, calls = {}) {
    const library = new Library();
    // Pages of 64 KiB: what scripts/web links the module for, and its limit.
    library.memory = new WebAssembly.Memory({ initial: 32, maximum: 16 * mebibytes });
    const unused = () => 0;
    const { exports } = await WebAssembly.instantiate(await compile(), {
      env: { memory: library.memory },
      velk: { read_at: unused, restored: unused, ...calls },
    });
    exports._initialize();
    library.calls = exports;
    library.scratch = library.take(256); // for pointers and records
    return library;
  }

  take(size) {
    const place = this.calls.malloc(size);
    if (place === 0) this.fail(kMemory);
    return place;
  }

  // A look at the memory, good until the next call.
  bytes(place, size) {
    return new Uint8Array(this.memory.buffer, place, size);
  }
  words(place, count) {
    return new Uint32Array(this.memory.buffer, place, count);
  }
  wide(place, count) {
    return [...new BigUint64Array(this.memory.buffer, place, count)].map(Number);
  }

  // The velk_options at `scratch`.
  setOptions({ level = 0, blockSize = 0, plain = false } = {}) {
    this.calls.velk_options_init(this.scratch);
    this.words(this.scratch, 2).set([blockSize, 1]);
    const bytes = this.bytes(this.scratch, 21);
    bytes[19] = plain ? 1 : 0;
    bytes[20] = level;
    return this.scratch;
  }

  // The velk_report at `place`.
  report(place) {
    const [size, archiveSize, blocks, members, damagedBlock, damagedOffset] = this.wide(place, 6);
    const [crc, blockSize] = this.words(place + 48, 2);
    const [hasCrc, whole, bytesFollow, damagedPart] = this.bytes(place + 56, 4);
    return {
      size, archiveSize, blocks, members, damagedBlock, damagedOffset, damagedPart, blockSize,
      crc: hasCrc ? crc : undefined, whole: whole !== 0, bytesFollow: bytesFollow !== 0,
    };
  }

  text(status) {
    const start = this.calls.velk_status_text(status);
    const bytes = this.bytes(start, 100);
    return String.fromCharCode(...bytes.subarray(0, bytes.indexOf(0)));
  }

  // In the words of velkz.
  fail(status, told) {
    let text = this.text(status);
    const at = ` at offset ${told?.damagedOffset}`;
    const isDamaged = " is damaged or cut short";
    const remedy = "; 'velkinfo salvage' may restore ";
    if (status === kFormat) {
      text = "is not a VELK archive";
    } else if (status === kDamaged && told.damagedPart === kPartBlock) {
      const lost = `up to ${told.blockSize + 512} bytes from ${told.size} on are lost`;
      text = `block ${told.damagedBlock + 1}${at}${isDamaged}, ${lost}${remedy}the others`;
    } else if (status === kDamaged && told.damagedPart === kPartIndex) {
      text = `the index${at} does not fit the blocks, or is cut short`;
    } else if (status === kDamaged) {
      text = `the header${told.damagedOffset === 0 ? "" : at}${isDamaged}${remedy}the blocks`;
    }
    throw new VelkError(text, status, told);
  }
}

// An archive on its way, compressed or restored.
export class Flow {
  // size: bytes of the input.
  static async compress(size, options = {}) {
    const { level = 0, blockSize = 0 } = options;
    const large = blockSize === 0 ? level > 7 : blockSize > 1 << 23;
    const library = await Library.load(large ? kLargeLimit : kLimit);
    return new Flow(library, (to) =>
      library.calls.velk_flow_compress(to, library.setOptions(options), BigInt(size), 0, 0));
  }

  // restored: called with each block when it is: where its record is, its lengths and stages.
  static async restore(restored = () => {}) {
    const library = await Library.load(kLimit, {
      restored(place) {
        const [coded, original, fallback, ...rest] = library.words(place, 19);
        const offset = flow.report().archiveSize; // the blocks before it have all been given
        let before = original;
        const stages = kStages.map((name, i) => {
          const stage = { name, trailer: rest[8 + i], before, after: rest[i] };
          before = rest[i];
          return { ...stage, applied: stage.trailer !== 0 };
        });
        restored({
          offset, coded, original, form: fallback ? "fallback" : "normal",
          stages: fallback ? stages.slice(0, 4) : stages,
        });
      },
    });
    const flow = new Flow(library, (to) => library.calls.web_flow_restore(to));
    return flow;
  }

  constructor(library, open) {
    this.library = library;
    const to = library.take(4);
    const status = open(to);
    if (status !== kOk) library.fail(status);
    this.flow = library.words(to, 1)[0];
    this.in = library.take(kPiece);
    this.out = library.take(kPiece);
    this.ended = false;
  }

  // What has been given and taken so far, in whole blocks.
  report() {
    const { calls, scratch } = this.library;
    calls.velk_flow_report(this.flow, scratch + 64);
    return this.library.report(scratch + 64);
  }

  // Takes all of the input and gives what output there is, in pieces. last: it ends with this.
  // Throws behind all that came before a fault. From the archive's end on, `ended`, nothing is
  // taken.
  *run(input, last) {
    const { library } = this;
    const { calls, scratch } = library;
    for (let at = 0; !this.ended; ) {
      let left = Math.min(kPiece, input.length - at);
      library.bytes(this.in, left).set(input.subarray(at, (at += left)));
      const end = this.in + left;
      const ends = last && at === input.length;
      for (let room = 0; left !== 0 || room === 0; ) {
        library.words(scratch, 4).set([end - left, left, this.out, kPiece]);
        const status = calls.velk_flow_run(this.flow, scratch, ends ? kFinish : kRun);
        [, left, , room] = library.words(scratch, 4);
        const told = status === kOk || status === kDone ? null : this.report();
        if (room !== kPiece) yield library.bytes(this.out, kPiece - room).slice();
        if (told !== null) library.fail(status, told);
        this.ended = status === kDone;
        if (this.ended) return;
      }
      if (at === input.length) return;
    }
  }
}

function bytesOf(data) {
  return ArrayBuffer.isView(data)
    ? new Uint8Array(data.buffer, data.byteOffset, data.byteLength)
    : new Uint8Array(data);
}

async function runAll(flow, data) {
  const pieces = [...flow.run(bytesOf(data), true)];
  const all = new Uint8Array(pieces.reduce((sum, piece) => sum + piece.length, 0));
  let at = 0;
  for (const piece of pieces) {
    all.set(piece, at);
    at += piece.length;
  }
  return all;
}

export async function compress(data, options) {
  return runAll(await Flow.compress(data.byteLength, options), data);
}

export async function decompress(data) {
  return runAll(await Flow.restore(), data);
}

async function fetchRange(url, offset, length) {
  const headers = { Range: `bytes=${offset}-${offset + length - 1}` };
  const answer = await fetch(url, { headers });
  if (answer.status !== 206) {
    throw new Error(`${url}: ${answer.ok ? "the server has no ranges" : `status ${answer.status}`}`);
  }
  return answer;
}

// An archive's size, and read(offset, length) for its bytes or a promise of them.
async function sourceOf(from) {
  if (from instanceof Blob) {
    // In a worker there is a way without promises.
    const reader = typeof FileReaderSync === "undefined" ? undefined : new FileReaderSync();
    return {
      size: from.size,
      read(offset, length) {
        const part = from.slice(offset, offset + length);
        return reader ? new Uint8Array(reader.readAsArrayBuffer(part))
                      : part.arrayBuffer().then(bytesOf);
      },
    };
  }
  if (typeof from === "string" || from instanceof URL) {
    const range = (await fetchRange(from, 0, 1)).headers.get("Content-Range");
    const size = Number(/\/(\d+)$/.exec(range ?? "")?.[1] ?? NaN);
    if (Number.isNaN(size)) throw new Error(`${from}: the server does not tell the size`);
    const read = async (...range) => bytesOf(await (await fetchRange(from, ...range)).arrayBuffer());
    return { size, read };
  }
  if (typeof from.read === "function") return from;
  const bytes = bytesOf(from);
  return { size: bytes.length, read: (offset, length) => bytes.subarray(offset, offset + length) };
}

class Archive {
  #library;
  #source;
  #reader;
  #out;
  #pieces = []; // that the call under way has read
  #missing = null; // a promise of one
  #fault = null; // of the source
  #last = Promise.resolve(); // the call before

  static async open(from) {
    const archive = new Archive();
    const source = (archive.#source = await sourceOf(from));
    const library = (archive.#library = await Library.load(kLimit, {
      read_at: (_, offset, to, size) => BigInt(archive.#readAt(Number(offset), to, size)),
    }));
    const { calls, scratch } = library;
    const open = () => calls.web_reader_open(scratch, BigInt(source.size), scratch + 64);
    const status = await archive.#attempt(open);
    const told = library.report(scratch + 64);
    if (status !== kOk) library.fail(status, told);
    archive.#reader = library.words(scratch, 1)[0];
    archive.#out = library.take(kPiece);
    const { blocks: blockCount, damagedBlock, damagedOffset, damagedPart, ...facts } = told;
    return Object.assign(archive, { blockCount, ...facts });
  }

  #readAt(offset, to, size) {
    try {
      const isThere = ({ start, bytes }) =>
        offset >= start && offset < start + Math.max(bytes.length, 1);
      let piece = this.#pieces.find(isThere);
      if (piece === undefined) {
        const bytes = this.#source.read(offset, size);
        if (bytes instanceof Promise) {
          this.#missing = bytes.then((bytes) => this.#pieces.push({ start: offset, bytes }));
          return -1;
        }
        piece = { start: offset, bytes };
      }
      const part = piece.bytes.subarray(offset - piece.start, offset - piece.start + size);
      this.#library.bytes(to, part.length).set(part);
      return part.length;
    } catch (error) {
      this.#fault = error; // it can't pass through the module
      return -1;
    }
  }

  // The status of the call, which is made again with what it lacked.
  async #attempt(call) {
    this.#pieces = [];
    for (;;) {
      this.#missing = this.#fault = null;
      const status = call();
      if (this.#fault !== null) throw this.#fault;
      if (status !== kRead || this.#missing === null) return status;
      await this.#missing;
    }
  }

  blocks(first = 0, behind = this.blockCount) {
    const { calls, scratch } = this.#library;
    const list = [];
    for (let i = first; i < Math.min(behind, this.blockCount); ++i) {
      calls.velk_reader_block(this.#reader, BigInt(i), scratch);
      const [offset, start] = this.#library.wide(scratch, 2);
      const [recordSize, size, crc, indexed] = this.#library.words(scratch + 24, 4);
      list.push({ offset, start, recordSize, size, crc: indexed ? crc : undefined });
    }
    return list;
  }

  read(offset, length) {
    const result = this.#last.then(() => this.#read(offset, length));
    this.#last = result.catch(() => {});
    return result;
  }

  async #read(offset, length) {
    const library = this.#library;
    const { calls, scratch } = library;
    const all = new Uint8Array(Math.max(0, Math.min(length, this.size - offset)));
    for (let at = 0; at < all.length; ) {
      const size = Math.min(kPiece, all.length - at);
      const status = await this.#attempt(() =>
        calls.velk_reader_read(this.#reader, BigInt(offset + at), this.#out, size, scratch));
      const got = library.words(scratch, 1)[0];
      if (status !== kOk) library.fail(status, library.report(scratch + 64));
      all.set(library.bytes(this.#out, got), at);
      at += got;
    }
    return all;
  }
}

export function open(from) {
  return Archive.open(from);
}
