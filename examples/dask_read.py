#!/usr/bin/env python3
"""Counts the lines of one large archive's original by many processes or machines, with Dask.

    dask_read.py ARCHIVE                      one process a processor, here
    dask_read.py ARCHIVE --scheduler ADDRESS  the workers of that scheduler,
                                              which see ARCHIVE by the same path

The archive's index tells where its blocks are. A task reads the records of a few in a row, and
nothing else of the archive, and restores them.
"""

import argparse
import os
import zlib

from distributed import Client

import velk

BLOCKS_A_TASK = 16  # in blocks of 2 MiB: a second or two of work


def restore_blocks(path, blocks):
    """The originals of these blocks, one by one."""
    header = None
    with open(path, "rb") as file:
        for block in blocks:
            if block.header != header:  # of another member
                header = block.header
                file.seek(header)
                decoder = velk.Decoder(file.read(velk.HEADER_SIZE))
            file.seek(block.offset)
            original = decoder.decode(file.read(block.record_size))
            if block.indexed and zlib.crc32(original) != block.crc:
                raise velk.VelkError(f"{path} is damaged at {block.offset}")
            yield original


def count_lines(path, blocks):
    return sum(original.count(b"\n") for original in restore_blocks(path, blocks))


def count_all(client, path):
    with velk.open(path) as file:
        blocks = file.blocks()
    parts = [blocks[i : i + BLOCKS_A_TASK] for i in range(0, len(blocks), BLOCKS_A_TASK)]
    tasks = [client.submit(count_lines, path, part, pure=False) for part in parts]
    return sum(client.gather(tasks))


def main():
    parser = argparse.ArgumentParser(description="Count lines with Dask.")
    parser.add_argument("archive")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of a cluster that runs already")
    parser.add_argument("--workers", type=int, metavar="N", help="processes to start here")
    arguments = parser.parse_args()
    if arguments.scheduler is not None:
        cluster = {"address": arguments.scheduler}
    else:
        workers = arguments.workers or os.cpu_count()
        cluster = {"n_workers": workers, "threads_per_worker": 1, "dashboard_address": None}
    with Client(**cluster) as client:
        print(count_all(client, os.path.abspath(arguments.archive)))


if __name__ == "__main__":
    main()
