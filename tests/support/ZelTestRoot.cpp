#include "ZelTestRoot.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

ZelTestRoot::ZelTestRoot() {
    mPath = zelTestTempDir() + "/zeld-root-XXXXXX";
    if (mkdtemp(mPath.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    if (const char* previous = std::getenv("ZELD_ROOT")) mPreviousRoot = previous;
    setenv("ZELD_ROOT", mPath.c_str(), 1);
}

ZelTestRoot::~ZelTestRoot() {
    if (mPreviousRoot) {
        setenv("ZELD_ROOT", mPreviousRoot->c_str(), 1);
    } else {
        unsetenv("ZELD_ROOT");
    }
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

std::string ZelTestRoot::at(const std::string& devicePath) const {
    return devicePath.empty() || devicePath[0] != '/' ? mPath + "/" + devicePath
                                                      : mPath + devicePath;
}

void ZelTestRoot::writeFile(const std::string& devicePath, const std::string& content) const {
    const std::filesystem::path file = at(devicePath);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << content;
}

