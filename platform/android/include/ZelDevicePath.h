#pragma once

#include <string>

// On the device a device path is itself.
inline std::string zelDeviceRoot() { return "/"; }
inline std::string zelDevicePath(const std::string& devicePath) { return devicePath; }
