#!/usr/bin/env python3
"""Compares Android.bp with the CMake targets it mirrors.

    check_source_lists.py TOP DEVICE_SOURCES VERSION

DEVICE_SOURCES holds "<module> <source>" lines written by CMake
(zeld_device_module). Fails when a module's srcs differ from its targets'
sources (a device-only platform/android/ file aside), when a srcs entry is a
glob, when a .cpp under service/,
interfaces/src or client/src is listed by no module, or when the zeld
module's ZELD_VERSION is not VERSION.
"""
import json
import os
import re
import sys

STRING = r'"(?:[^"\\]|\\.)*"'


def modules_of(text):
    """{name: {"srcs": [...], "cflags": [...]}} of the top-level modules."""
    text = re.sub(r"//[^\n]*|/\*.*?\*/", "", text, flags=re.S)
    modules, depth, start = {}, 0, None
    for at, ch in enumerate(text):
        if ch == "{":
            depth += 1
            start = at if depth == 1 else start
        elif ch == "}":
            depth -= 1
            if depth == 0:
                body = text[start + 1:at]
                top = re.sub(r"\{[^{}]*\}", "", body)  # nested blocks (aidl: {...}) out
                name = re.search(r"\bname:\s*(" + STRING + ")", top)
                if name:
                    lists = {key: [json.loads(s) for s in re.findall(STRING, m.group(1))]
                             for key in ("srcs", "cflags")
                             for m in [re.search(r"\b" + key + r":\s*\[(.*?)\]", top, re.S)] if m}
                    modules[json.loads(name.group(1))] = lists
    return modules


def main(top, device_sources, version):
    problems = []
    wanted = {}
    for line in open(device_sources):
        module, source = line.split()
        wanted.setdefault(module, set()).add(source)
    modules = modules_of(open(os.path.join(top, "Android.bp")).read())
    listed = set()
    built = set().union(*wanted.values())
    for module, sources in sorted(wanted.items()):
        srcs = modules.get(module, {}).get("srcs")
        if srcs is None:
            problems.append(f"Android.bp has no module {module} with srcs")
            continue
        listed |= set(srcs)
        for glob in (s for s in srcs if any(c in s for c in "*?[")):
            problems.append(f"{module}: srcs entry {glob} is a glob")
        for missing in sorted(sources - set(srcs)):
            problems.append(f"{module}: {missing} is built by CMake, not listed in Android.bp")
        # platform/android/ holds the device's side of a platform seam; the
        # host's side is under platform/host/, outside these targets.
        device_side = {s for s in srcs if s.startswith("platform/android/")}
        for extra in sorted(set(srcs) - sources - device_side):
            problems.append(f"{module}: {extra} is listed in Android.bp, not built by CMake")
    for tree in ("service", "interfaces/src", "client/src"):
        for folder, _, files in os.walk(os.path.join(top, tree)):
            for name in files:
                path = os.path.relpath(os.path.join(folder, name), top)
                if name.endswith(".cpp") and path not in listed | built:
                    problems.append(f"{path} is built by neither build")
    defined = [f for f in modules.get("zeld", {}).get("cflags", []) if f.startswith("-DZELD_VERSION=")]
    if defined != [f'-DZELD_VERSION="{version}"']:
        problems.append(f"zeld's ZELD_VERSION in Android.bp is {defined}, CMake's project version {version}")
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
