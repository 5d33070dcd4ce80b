#!/usr/bin/env python3
"""The client guide's C++ and CMake samples are taken from the example
client, which the tree compiles (and CI builds against the installed
package): every line of a ```cpp block occurs, in order, in
examples/client/ZelExampleClient.cpp, and of a ```cmake block in
examples/client/CMakeLists.txt. Indentation is not compared; a line
"// ..." stands for what the sample leaves out.

    check_guide_samples.py TOP
"""

import os
import sys


def lines_of(text):
    return [line.strip() for line in text.splitlines() if line.strip()]


def main():
    top = sys.argv[1]
    sources = {
        "cpp": "examples/client/ZelExampleClient.cpp",
        "cmake": "examples/client/CMakeLists.txt",
    }
    guide = open(os.path.join(top, "docs/client-guide.md"), encoding="utf-8").read()
    failures = 0
    blocks = guide.split("```")
    for fenced in blocks[1::2]:
        language, _, body = fenced.partition("\n")
        if language.strip() not in sources:
            continue
        path = sources[language.strip()]
        source = lines_of(open(os.path.join(top, path), encoding="utf-8").read())
        at = 0
        for line in lines_of(body):
            if line.startswith("// ..."):
                continue
            try:
                at = source.index(line, at) + 1
            except ValueError:
                print(f"docs/client-guide.md: not in {path} (or out of order): {line}")
                failures += 1
                break
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
