// zelctl props: the host's system property store.

#include <cutils/properties.h>
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>

#include "ZelDevicePath.h"
#include "ZelctlClientCommand.h"
#include "ZelctlClientCommands.h"

namespace {

constexpr const char* kStoreDir = "/dev/__properties__";

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err);

const ZelctlCommand kCommand = {
        "props", "props [--json]",
        "list the host's system properties (what zeld has written)",
        "Lists the properties of the host property store under\n"
        "$ZELD_ROOT/dev/__properties__, one \"name=value\" line each in name order:\n"
        "the start and stop properties zeld has written, the policy override switch.\n"
        "The store keeps the last value of each name. It needs no daemon.\n"
        "\n"
        "  --json   one JSON object mapping each name to its value\n"
        "\n"
        "Exit status: 0, 1 when the device root does not exist, 2 wrong command line.\n",
        false, run};

std::vector<std::string> propertyNames() {
    std::vector<std::string> names;
    DIR* directory = opendir(zelDevicePath(kStoreDir).c_str());
    if (directory == nullptr) return names;
    while (const dirent* entry = readdir(directory)) {
        if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);  // not a write in progress
    }
    closedir(directory);
    std::sort(names.begin(), names.end());
    return names;
}

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err) {
    ZelctlClientCommand command(kCommand, out, err);
    if (!command.parse(words, {}, {})) return kZelctlExitUsage;
    struct stat root {};
    if (stat(zelDeviceRoot().c_str(), &root) != 0 || !S_ISDIR(root.st_mode)) {
        return command.output().fail("no_root", "the device root " + zelDeviceRoot() +
                                                        " does not exist (check ZELD_ROOT)");
    }
    ZelctlJsonObject object;
    std::string lines;
    for (const std::string& name : propertyNames()) {
        char value[PROPERTY_VALUE_MAX];
        property_get(name.c_str(), value, "");
        object.addString(name, value);
        lines += (lines.empty() ? "" : "\n") + name + "=" + value;
    }
    if (command.output().json() || !lines.empty()) command.output().print(object, lines);
    return kZelctlExitOk;
}

}  // namespace

const ZelctlCommand& zelctlPropsCommand() {
    return kCommand;
}
