#!/usr/bin/env python3
"""Writes folder.archive as another system's archiver would: its own order of slots, numbers as objects, a
class that nobody here knows, and a folder and its child that refer to one another."""
import os
import plistlib

UID = plistlib.UID


def cls(name, *bases):
    return {"$classname": name, "$classes": [name, *bases, "NSObject"]}


objects = [
    "$null",
    {"$class": UID(2), "name": UID(3), "children": UID(4), "parent": UID(0), "count": 20240305140709250,
     "isOpen": True, "ratio": 0.5, "info": UID(7), "colour": UID(17), "unknown": -1},
    cls("TestFolder"),
    "\u4e2d folder",
    {"$class": UID(5), "NS.objects": [UID(6), UID(17), UID(6), UID(0)]},
    cls("NSMutableArray", "NSArray"),
    {"$class": UID(19), "name": UID(3), "children": UID(0), "parent": UID(1), "isOpen": 1, "count": -7},
    {"$class": UID(8), "NS.keys": [UID(9), UID(10), UID(11), UID(12), UID(21)],
     "NS.objects": [UID(13), UID(14), UID(16), UID(20), UID(22)]},
    cls("NSDictionary"),
    "when", "numbers", "nothing", "bytes",
    {"$class": UID(15), "NS.time": 731340429.25},
    {"$class": UID(5), "NS.objects": [UID(23), UID(24), UID(25), UID(3)]},
    cls("NSDate"),
    {"$class": UID(26)},
    {"$class": UID(18), "NSRed": 0.25},
    cls("NSColor"),
    cls("SpecialFolder", "TestFolder"),
    b"\x00\xff",
    "mutable",
    {"$class": UID(27), "NS.string": "text"},
    7, False, 2.5,
    cls("NSNull"),
    cls("NSMutableString", "NSString"),
]
archive = {"$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": UID(1)}, "$objects": objects}
with open(os.path.join(os.path.dirname(__file__), "folder.archive"), "wb") as file:
    plistlib.dump(archive, file, fmt=plistlib.FMT_BINARY, sort_keys=False)
