#include "ZelDevicePath.h"

#include <cstdlib>

std::string zelDeviceRoot() {
    const char* root = std::getenv("ZELD_ROOT");
    if (root == nullptr || root[0] == '\0') return "/";
    return root;
}

std::string zelDevicePath(const std::string& devicePath) {
    std::string root = zelDeviceRoot();
    if (root == "/") return devicePath;
    while (root.size() > 1 && root.back() == '/') root.pop_back();
    if (devicePath.empty() || devicePath.front() != '/') return root + "/" + devicePath;
    return root + devicePath;
}
