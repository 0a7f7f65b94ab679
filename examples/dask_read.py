#!/usr/bin/env python3
"""Counts the lines of one large archive's original by many processes or machines, with Dask.

    dask_read.py ARCHIVE                      one process a processor, here
    dask_read.py ARCHIVE --scheduler ADDRESS  the workers of that scheduler,
                                              which see ARCHIVE by the same path or URL

The archive's index tells where its blocks are. A task reads and restores a few in a row, and
nothing else of the archive, but for the line that goes on in the block behind them.
"""

import argparse
import os

import dask
from distributed import Client
from velk.codecs import from_archive


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
    with Client(**cluster):
        counts = [part.count(b"\n") for part in from_archive(arguments.archive)]
        print(sum(dask.compute(*counts)))


if __name__ == "__main__":
    main()
