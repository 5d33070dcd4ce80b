#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Reading test data, and golden files: expected outputs kept beside the cases.
// A test run only compares; a golden file is rewritten only when the test
// program runs with --regenerate-golden (target zeld_regenerate_golden).

std::string readZelTestFile(const std::string& path);

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
