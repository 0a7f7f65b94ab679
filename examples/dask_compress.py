#!/usr/bin/env python3
"""Compresses one file by many processes or machines, with Dask, into the archive of velkz.

    dask_compress.py INPUT ARCHIVE                      one process a processor, here
    dask_compress.py INPUT ARCHIVE --scheduler ADDRESS  the workers of that scheduler,
                                                        which see INPUT by the same path

Blocks depend on nothing but the input's size and the settings. A task compresses a few in
a row and returns their records, and their entries for the index; here they are written in
order, a few tasks a worker ahead.
"""

import argparse
import collections
import os

from distributed import Client

import velk

BLOCKS_A_TASK = 4  # in blocks of 2 MiB: a second or two of work
TASKS_A_THREAD = 2  # one at work, one waiting


def compress_blocks(path, offset, end, size, settings):
    """The records of the blocks that begin in this part of the file, and their entries."""
    encoder = velk.Encoder(size, **settings)
    coded = []
    with open(path, "rb") as file:
        file.seek(offset)
        while offset < end:
            block = file.read(min(encoder.block_size, end - offset))
            if not block:
                raise EOFError(f"{path} is shorter than it was")
            coded.append(encoder.encode(block))
            offset += len(block)
    return [b"".join(parts) for parts in zip(*coded)]


def compress_file(client, path, archive, **settings):
    """Writes the archive of the file at `path` to the file object `archive`."""
    size = os.path.getsize(path)
    first = velk.Encoder(size, **settings)
    archive.write(first.header)
    step = BLOCKS_A_TASK * first.block_size
    at_once = TASKS_A_THREAD * max(1, sum(client.nthreads().values()))
    tasks = collections.deque()
    entries = []

    def write_oldest():
        records, its_entries = tasks.popleft().result()
        archive.write(records)
        entries.append(its_entries)

    for offset in range(0, size, step):
        if len(tasks) == at_once:
            write_oldest()
        part = (offset, min(offset + step, size))
        tasks.append(client.submit(compress_blocks, path, *part, size, settings, pure=False))
    while tasks:
        write_oldest()
    archive.write(velk.make_index(first.header, b"".join(entries)))


def main():
    parser = argparse.ArgumentParser(description="Compress one file with Dask.")
    parser.add_argument("input")
    parser.add_argument("archive")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of a cluster that runs already")
    parser.add_argument("--workers", type=int, metavar="N", help="processes to start here")
    parser.add_argument("--block-size", type=int, default=0, metavar="BYTES")
    arguments = parser.parse_args()
    if arguments.scheduler is not None:
        cluster = {"address": arguments.scheduler}
    else:
        workers = arguments.workers or os.cpu_count()
        cluster = {"n_workers": workers, "threads_per_worker": 1, "dashboard_address": None}
    with Client(**cluster) as client, open(arguments.archive, "wb") as archive:
        path = os.path.abspath(arguments.input)
        compress_file(client, path, archive, block_size=arguments.block_size)


if __name__ == "__main__":
    main()
