#pragma once

#include <string>

// Which policy file the daemon reads: "/system/etc/zel_policy.json", or
// "/data/zeld/zel_policy.json" when the boolean property
// "zeld.config.policy.override" is true, with no fallback from the one to the
// other. The daemon and `zelctl watch` both choose through here.
struct ZelPolicyFile {
    std::string path;       // the device path (on a host, under $ZELD_ROOT)
    bool override = false;  // the override switch was on

    static ZelPolicyFile choose();
};
