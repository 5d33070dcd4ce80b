#pragma once

#include <limits.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

// Reading test data, and golden files: expected outputs kept beside the cases.
// A test run only compares; a golden file is rewritten only when the test
// program runs with --regenerate-golden (target zeld_regenerate_golden).

std::string readZelTestFile(const std::string& path);

// A data file or folder whose path the build gives the test program: the
// host's build gives absolute paths into the source tree; a device module
// gives paths relative to the program's own folder, where Soong installs the
// module's data files beside it.
inline std::string zelTestDataPath(const std::string& path) {
    if (!path.empty() && path[0] == '/') return path;
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length <= 0) return path;
    std::string dir(self, static_cast<size_t>(length));
    return dir.substr(0, dir.rfind('/') + 1) + path;
}

// The system's folder for temporary files: $TMPDIR or /tmp, or Android's
// /data/local/tmp where there is no /tmp.
inline std::string zelTestTempDir() {
    const char* dir = getenv("TMPDIR");
    if (dir != nullptr && dir[0] != '\0') return dir;
    return access("/tmp", W_OK) == 0 ? "/tmp" : "/data/local/tmp";
}

// Names of the entries of `dir` (folders or files ending in `suffix`), sorted.
std::vector<std::string> listZelTestCases(const std::string& dir, const std::string& suffix = "");

// Bytes written as text in a case file: words of hex digit pairs or "text"
// (its ASCII bytes, no spaces), each repeated n times when followed by *n.
// Throws std::invalid_argument for anything else.
std::vector<uint8_t> zelHexBytes(const std::string& text);
// The reverse, in hex pairs, for failure messages.
std::string zelHexText(const std::vector<uint8_t>& bytes);

// A case's name as a test name: letters and digits kept, the rest '_'.
std::string zelTestName(std::string caseName);

// Compares `actual` with the golden file, or rewrites it when regenerating.
void expectZelGolden(const std::string& goldenPath, const std::string& actual);

// Set by the test program's main for --regenerate-golden.
extern bool gZelRegenerateGolden;
