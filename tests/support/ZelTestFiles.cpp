#include "ZelTestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

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

std::vector<uint8_t> zelHexBytes(const std::string& text) {
    std::vector<uint8_t> bytes;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const size_t star = word.find('*');
        const std::string part = word.substr(0, star);
        const bool quoted = part.size() > 1 && part.front() == '"' && part.back() == '"';
        const bool hex = part.size() % 2 == 0 && part.find_first_not_of("0123456789ABCDEFabcdef") == std::string::npos;
        if (!quoted && (part.empty() || !hex)) throw std::invalid_argument("not hex bytes: " + word);
        std::vector<uint8_t> chunk(quoted ? part.begin() + 1 : part.end(), quoted ? part.end() - 1 : part.end());
        for (size_t i = 0; !quoted && i < part.size(); i += 2) chunk.push_back(std::stoi(part.substr(i, 2), nullptr, 16));
        for (size_t n = star == std::string::npos ? 1 : std::stoul(word.substr(star + 1)); n > 0; --n) {
            bytes.insert(bytes.end(), chunk.begin(), chunk.end());
        }
    }
    return bytes;
}

std::string zelHexText(const std::vector<uint8_t>& bytes) {
    std::string text;
    const char* digits = "0123456789ABCDEF";
    for (const uint8_t byte : bytes) text += {digits[byte >> 4], digits[byte & 15]};
    return text.empty() ? "(none)" : text;
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
