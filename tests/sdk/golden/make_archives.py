#!/usr/bin/env python3
"""Writes connection.archive as another system's archiver would."""
import os
import plistlib

UID = plistlib.UID


def cls(name, *bases):
    return {"$classname": name, "$classes": [name, *bases, "NSObject"]}


objects = [
    "$null",
    {"address": UID(2), "port": 38317, "user": UID(3), "$class": UID(12)},
    "192.168.0.7",
    {"id": UID(4), "userType": 1, "name": UID(5), "password": UID(6), "libraries": UID(7), "$class": UID(11)},
    "rev", "Ada", "900150983CD24FB0D6963F7D28E17F72",
    {"NS.keys": [UID(8)], "NS.objects": [UID(9)], "$class": UID(10)},
    "db1", "Films",
    cls("NSMutableDictionary", "NSDictionary"),
    cls("TQUser"),
    cls("TQConnection"),
]
archive = {"$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": UID(1)}, "$objects": objects}
with open(os.path.join(os.path.dirname(__file__), "connection.archive"), "wb") as file:
    plistlib.dump(archive, file, fmt=plistlib.FMT_BINARY, sort_keys=False)
