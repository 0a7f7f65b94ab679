"""Serves a compressed disk image read-only, as an nbdkit plug-in.

    nbdkit python nbdkit_velk.py file=disk.img.velk
    nbdkit --filter=cow python nbdkit_velk.py file=disk.img.velk   clients may write, to a scratch

Nothing is unpacked: a request restores the blocks that it lies in. Images compressed with small
blocks (velkz -b 128K) answer scattered requests sooner.
"""

import os

import nbdkit

import velk

API_VERSION = 2
path = None


def config(key, value):
    global path
    if key != "file":
        raise ValueError(f"unknown parameter {key}")
    path = os.path.abspath(value)  # nbdkit goes to another directory


def config_complete():
    if path is None:
        raise ValueError("file=ARCHIVE is missing")


def thread_model():
    # A connection has a file of its own, with one position.
    return nbdkit.THREAD_MODEL_SERIALIZE_REQUESTS


def open(_readonly):
    return velk.open(path)


def close(file):
    file.close()


def get_size(file):
    return file.seek(0, 2)


def can_write(_file):
    return False


def can_multi_conn(_file):
    return True


def pread(file, buffer, offset, _flags):
    file.seek(offset)
    if file.readinto(buffer) != len(buffer):
        raise velk.VelkError(f"{path} ends early")
