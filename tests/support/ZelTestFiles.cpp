#include "ZelTestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

bool gZelRegenerateGolden = false;

std::string readZelTestFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> listZelTestCases(const std::string& dir, const std::string& suffix) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        const std::string name = entry.path().filename().string();
        if (suffix.empty() ? entry.is_directory()
                           : name.size() > suffix.size() &&
                                     name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
            names.push_back(suffix.empty() ? name : name.substr(0, name.size() - suffix.size()));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string zelTestName(std::string caseName) {
    std::replace_if(caseName.begin(), caseName.end(), [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
    return caseName;
}

void expectZelGolden(const std::string& goldenPath, const std::string& actual) {
    if (gZelRegenerateGolden) {
        std::ofstream(goldenPath, std::ios::binary | std::ios::trunc) << actual;
        return;
    }
    EXPECT_EQ(readZelTestFile(goldenPath), actual) << "golden file " << goldenPath;
}
