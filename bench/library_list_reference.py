#!/usr/bin/env python3
"""Loads and saves a list of 10,000 libraries with plistlib; see library_list.cpp."""
import os, plistlib, tempfile, time

rows = [{
    "dbname": f"{i:08X}-0000-4000-8000-000000000000", "name": f"Library {i}", "desc": "Rushes of one production",
    "packagefolder": f"/media/disk/productions/Library {i}", "mountpath": "/media/disk", "type": 0,
    "address": "127.0.0.1", "port": 8080, "shared": False, "projecthash": "", "version": "1.1", "hasreffile": False,
    "uploadable": True, "editable": True, "livefolderhash": "", "bonjourname": "", "fcpxlibraryhash": "",
} for i in range(10_000)]


def best(work):
    times = []
    for _ in range(5):
        start = time.perf_counter()
        work()
        times.append(time.perf_counter() - start)
    return f"{min(times) * 1000:.0f} ms"


with tempfile.TemporaryDirectory() as folder:
    path = os.path.join(folder, "localLibrary.plist")

    def save():
        with open(path + ".new", "wb") as file:
            plistlib.dump({"library": rows}, file)
            file.flush()
            os.fsync(file.fileno())
        os.rename(path + ".new", path)

    def load():
        with open(path, "rb") as file:
            plistlib.load(file)

    print("save", best(save))
    print("load", best(load))
