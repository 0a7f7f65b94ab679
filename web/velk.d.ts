/** Bytes that are handed in: they are neither changed nor kept. */
export type Data = ArrayBuffer | ArrayBufferView;

export interface Options {
  /** 1 to 9; 5 by default. 8 and 9 take up to 256 MiB of memory, the others up to 128. */
  level?: number;
  /** Bytes: 131072 to 16776192, a multiple of 1024; in place of the level's. */
  blockSize?: number;
  /** No index: what `VELK e` writes. */
  plain?: boolean;
}

/** The archive of the data, the same bytes as velkz makes. */
export function compress(data: Data, options?: Options): Promise<Uint8Array>;

/**
 * What the archive was made of, checked block by block. Bytes behind the archive that are no part
 * of it are left out. Rejects with a VelkError for what is damaged, cut short or no archive.
 */
export function decompress(archive: Data): Promise<Uint8Array>;

/** Where the bytes of an archive are read: at most `length` of them, fewer at its end. */
export interface Source {
  size: number;
  read(offset: number, length: number): Uint8Array | Promise<Uint8Array>;
}

/**
 * Opens an archive to read any part of its original; what is read costs the blocks that it lies
 * in. A string or URL is fetched by ranges: its server must have them and tell `Content-Range`.
 */
export function open(from: Data | Blob | string | URL | Source): Promise<Archive>;

export interface Archive {
  /** Bytes of the original. */
  readonly size: number;
  readonly archiveSize: number;
  readonly blockCount: number;
  /** The most bytes of a block. */
  readonly blockSize: number;
  /** Archives in a row. */
  readonly members: number;
  /** CRC-32 of the original, as gzip has it; undefined where no index tells it. */
  readonly crc: number | undefined;
  /** False: its end may have been cut off, which a plain archive can't tell. */
  readonly whole: boolean;
  /** Behind the archive are bytes that are no part of it. */
  readonly bytesFollow: boolean;
  /** The bytes of the original from `offset` on, fewer at its end. */
  read(offset: number, length: number): Promise<Uint8Array>;
  /** All blocks, or those from number `first`, counted from 0, to before `behind`. */
  blocks(first?: number, behind?: number): Block[];
}

export interface Block {
  /** Of its record in the archive. */
  offset: number;
  recordSize: number;
  /** Of its bytes in the original. */
  start: number;
  size: number;
  /** CRC-32 of them; undefined in a plain member. */
  crc: number | undefined;
}

/** A fault of the archive, told in the words of velkz. */
export class VelkError extends Error {
  /** As velk_status in velk.h: 1 an option out of bounds, 2 no memory, 4 no archive, 5 damaged. */
  readonly status: number;
  /** What came of the archive before the fault, and where that is; undefined with status 1. */
  readonly report?: {
    size: number;
    archiveSize: number;
    blocks: number;
    /** Counted from 0. */
    damagedBlock: number;
    /** Of what is damaged, in the archive. */
    damagedOffset: number;
    /** 0: not damaged, 1: the header, 2: a block, 3: the index. */
    damagedPart: number;
  };
}
