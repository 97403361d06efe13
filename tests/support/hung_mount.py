#!/usr/bin/env python3
"""Mounts a file system that hangs like a network disk that is lost. Its file "file" of four megabytes answers reads of
its first megabyte and never those behind it; every other name is a file of five bytes. Nothing is answered any more
after a line on standard input. Prints "mounted". Ends with its standard input; pending requests fail then.

Usage: hung_mount.py FOLDER   (as root)"""
import ctypes
import os
import select
import struct
import sys

INIT, LOOKUP, FORGET, GETATTR, OPEN, READ = 26, 1, 2, 3, 14, 15
OPENDIR, READDIR, RELEASE, RELEASEDIR, FLUSH, INTERRUPT, BATCH_FORGET = 27, 28, 18, 29, 25, 36, 42
SIZE, ANSWERED, SMALL = 4 << 20, 1 << 20, 5
ROOT, FILE, OTHER = 1, 2, 3

folder = sys.argv[1]
device = os.open("/dev/fuse", os.O_RDWR)
libc = ctypes.CDLL(None, use_errno=True)
options = f"fd={device},rootmode=40000,user_id=0,group_id=0".encode()
if libc.mount(b"hung", folder.encode(), b"fuse", 0, options) != 0:
    sys.exit(os.strerror(ctypes.get_errno()))
print("mounted", flush=True)


def attributes(node):
    mode, size = (0o40755, 0) if node == ROOT else (0o100644, SIZE if node == FILE else SMALL)
    return struct.pack("<QQQQQQIIIIIIIIII", node, size, size >> 9, 1, 1, 1, 0, 0, 0, mode, 1, 0, 0, 0, 4096, 0)


def answer(operation, node, body):
    """The body of the reply, or an error number; None for a reply that never comes."""
    if operation == INIT:
        return struct.pack("<IIIIHHIIHHI28x", 7, 31, 0, 0, 1, 1, 1 << 17, 1, 0, 0, 0)
    if operation == LOOKUP:
        found = FILE if body.rstrip(b"\0") == b"file" else OTHER
        return struct.pack("<QQQQII", found, 0, 0, 0, 0, 0) + attributes(found)
    if operation == GETATTR:
        return struct.pack("<QII", 0, 0, 0) + attributes(node)
    if operation in (OPEN, OPENDIR):
        return struct.pack("<QII", 1, 1, 0)  # every read comes here
    if operation == READ:
        offset, size = struct.unpack_from("<QI", body, 8)
        if node == OTHER:
            return b"x" * max(SMALL - offset, 0)
        return b"x" * size if offset + size <= ANSWERED else None
    if operation in (READDIR, RELEASE, RELEASEDIR, FLUSH):
        return b""
    return None if operation in (FORGET, INTERRUPT, BATCH_FORGET) else -38


silent = False
try:
    while True:
        ready, _, _ = select.select([device, sys.stdin], [], [])
        if sys.stdin in ready:
            if not sys.stdin.readline():
                break
            silent = True
            continue
        request = os.read(device, 1 << 18)
        _, operation, number, node = struct.unpack_from("<IIQQ", request)
        reply = None if silent else answer(operation, node, request[40:])
        if isinstance(reply, int):
            os.write(device, struct.pack("<IiQ", 16, reply, number))
        elif reply is not None:
            os.write(device, struct.pack("<IiQ", 16 + len(reply), 0, number) + reply)
finally:
    libc.umount2(folder.encode(), 2)  # MNT_DETACH
