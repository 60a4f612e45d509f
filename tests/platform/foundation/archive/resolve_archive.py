"""Reads a keyed archive from standard input with another implementation of property lists, and
prints its root object: a check that what we write is what others read."""

import json
import plistlib
import sys


def resolve(objects, uid):
    element = objects[uid.data]
    if uid.data == 0:
        return None
    if isinstance(element, bytes):
        return {"data": element.hex()}
    if not isinstance(element, dict):
        return element
    record = objects[element["$class"].data]
    name = record["$classname"]
    assert record["$classes"][0] == name and record["$classes"][-1] == "NSObject", record

    def members(key):
        return [resolve(objects, member) for member in element[key]]

    def member(key):
        return resolve(objects, element[key])

    return {
        "NSArray": lambda: members("NS.objects"),
        "NSSet": lambda: {"set": members("NS.objects")},
        "NSDictionary": lambda: dict(zip(members("NS.keys"), members("NS.objects"), strict=True)),
        "NSDate": lambda: {"date": element["NS.time"]},
        "NSNull": lambda: {"null": True},
        "NSURL": lambda: {"url": member("NS.relative"), "base": member("NS.base")},
        "NSMutableString": lambda: element["NS.string"],
        "NSError": lambda: {
            "domain": member("NSDomain"),
            "code": element["NSCode"],
            "info": member("NSUserInfo"),
        },
    }[name]()


archive = plistlib.loads(sys.stdin.buffer.read(), fmt=plistlib.FMT_BINARY)
assert list(archive) == ["$version", "$objects", "$archiver", "$top"], list(archive)
assert archive["$version"] == 100000 and archive["$archiver"] == "NSKeyedArchiver"
assert archive["$objects"][0] == "$null"
print(json.dumps(resolve(archive["$objects"], archive["$top"]["root"])))
