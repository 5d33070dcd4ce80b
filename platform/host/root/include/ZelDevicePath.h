#pragma once

#include <string>

// Maps a device path ("/system/etc/zel_policy.json") to where it lives on this
// machine. On the host every device path is resolved under the device root
// named by ZELD_ROOT (unset or empty: "/"), read at each call.
std::string zelDeviceRoot();
std::string zelDevicePath(const std::string& devicePath);
