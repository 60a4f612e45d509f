"""Prints what a reply frame says, read with Python's own property list module."""

import plistlib
import struct
import sys

frame = open(sys.argv[1], "rb").read()
magic, version, kind, flags, sequence, length, reserved = struct.unpack_from("<4sBBHQII", frame)
assert (magic, version, flags, reserved) == (b"QVCW", 1, 0, 0)
assert length == len(frame) - 24
print("kind", kind, "sequence", sequence)

archive = plistlib.loads(plistlib.loads(frame[24:], fmt=plistlib.FMT_BINARY)["replyData"])
assert archive["$version"] == 100000 and archive["$archiver"] == "NSKeyedArchiver"
objects = archive["$objects"]


def value(reference):
    element = objects[reference.data]
    if element == "$null":
        return None
    if not isinstance(element, dict):
        return element
    name = objects[element["$class"].data]["$classname"]
    if name == "NSDictionary":
        return {value(k): value(v) for k, v in zip(element["NS.keys"], element["NS.objects"])}
    assert name == "NSError"
    return {
        "NSDomain": value(element["NSDomain"]),
        "NSCode": element["NSCode"],
        "NSUserInfo": value(element["NSUserInfo"]),
    }


print(value(archive["$top"]["root"]))
