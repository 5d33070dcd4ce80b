#pragma once

#include <optional>
#include <string>

#include "ZelTestFiles.h"

// A private device root for one test: a fresh temporary directory exported as
// ZELD_ROOT while the object lives (and inherited by child processes), removed
// with everything under it afterwards.
class ZelTestRoot {
public:
    ZelTestRoot();
    ~ZelTestRoot();
    ZelTestRoot(const ZelTestRoot&) = delete;
    ZelTestRoot& operator=(const ZelTestRoot&) = delete;

    const std::string& path() const { return mPath; }
    // Absolute host path of a device path under this root.
    std::string at(const std::string& devicePath) const;
    // Writes `content` to a device path, creating directories as needed.
    void writeFile(const std::string& devicePath, const std::string& content) const;

private:
    std::string mPath;
    std::optional<std::string> mPreviousRoot;
};
