#!/usr/bin/env python3
"""Checks the policy schema against the daemon's own loader.

Every *.json file under the given folders is loaded by `zelctl policy check`
(the daemon's loader) and validated against the schema. The two must agree:
a file the loader accepts must validate, and a file it refuses must not,
unless the loader refused it for something no schema can check (a name of
an unknown task, event group or event). Exit status 0 when they agree, 1
when not, 77 (skipped) without python3-jsonschema.
"""
import argparse
import json
import math
import os
import subprocess
import sys

try:
    import jsonschema
except ImportError:
    print("skipped: python3-jsonschema is not installed (apt-get install python3-jsonschema)")
    sys.exit(77)

# Refusals that name something the document does not define.
UNCHECKABLE = (
    "definition includes invalid component:",
    "invalid allowList component/task(",
    "invalid denyList component/task(",
    "definition includes invalid event group '",
    "definition includes invalid event '",
)


def first_wins(pairs):
    """A JSON object as the loader reads it: a repeated member keeps its first value."""
    result = {}
    for key, value in pairs:
        result.setdefault(key, value)
    return result


def finite(text):
    value = float(text)
    if math.isinf(value):
        raise ValueError("number out of range: " + text)
    return value


def reject_constant(name):
    raise ValueError("not JSON: " + name)


def parse(path):
    """The document as the loader parses it (it ends at the first NUL byte), or None."""
    with open(path, "rb") as stream:
        text = stream.read().split(b"\0", 1)[0].decode("utf-8", "surrogateescape")
    try:
        return json.loads(text, object_pairs_hook=first_wins, parse_float=finite,
                          parse_constant=reject_constant)
    except ValueError:
        return None


def loader_verdict(zelctl, path):
    """(accepted, the loader's last warning or error line)."""
    run = subprocess.run([zelctl, "policy", "check", "--quiet", path], capture_output=True,
                         text=True, errors="replace")
    lines = [line for line in run.stdout.splitlines() if line.startswith(("W/", "E/"))]
    return run.returncode == 0, lines[-1] if lines else "(no message)"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--zelctl", required=True)
    parser.add_argument("--schema", required=True)
    parser.add_argument("folders", nargs="+")
    args = parser.parse_args()

    with open(args.schema) as stream:
        schema = json.load(stream)
    jsonschema.Draft4Validator.check_schema(schema)
    validator = jsonschema.Draft4Validator(schema)

    files = sorted(os.path.join(folder, name)
                   for top in args.folders for folder, _, names in os.walk(top)
                   for name in names if name.endswith(".json"))
    problems = []
    for path in files:
        accepted, message = loader_verdict(args.zelctl, path)
        document = parse(path)
        errors = [] if document is None else list(validator.iter_errors(document))
        valid = document is not None and not errors
        if accepted and not valid:
            reason = errors[0].message if errors else "not JSON as the loader reads it"
            problems.append(f"{path}: the loader accepts it, the schema refuses it: {reason}")
        elif not accepted and valid and not any(text in message for text in UNCHECKABLE):
            problems.append(f"{path}: the loader refuses it ({message}), the schema accepts it")
    for problem in problems:
        print(problem)
    print(f"{len(files)} policy files, {len(problems)} disagreements")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
