// zeld's process entry. The daemon takes no options: --help and --version
// answer and exit 0, any other argument is refused with the usage line and
// exit status 2; without arguments the real parts run the daemon's sequence.

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "ZelDaemon.h"
#include "ZelDaemonServiceParts.h"

namespace {

constexpr const char* kUsage = "usage: zeld [--help | --version]\n";
constexpr const char* kHelp =
        "\n"
        "Decides when the background work of other processes may run. Started by\n"
        "init without arguments: reads its policy (/system/etc/zel_policy.json, or\n"
        "/data/zeld/zel_policy.json when zeld.config.policy.override is true), serves\n"
        "com.ostrel.zeld.service.IZelBinderIPC and com.ostrel.zeld.service.IZelEventManager,\n"
        "and does not return.\n"
        "\n"
        "  --help     this text\n"
        "  --version  the version\n";

// 0 or 2 when the arguments were an option, -1 when there were none.
int answerOptions(int argc, char** argv) {
    if (argc < 2) return -1;
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("zeld %s\n", ZELD_VERSION);
        return 0;
    }
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::printf("%s%s", kUsage, kHelp);
        return 0;
    }
    std::fputs(kUsage, stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (const int answered = answerOptions(argc, argv); answered >= 0) return answered;
    ZelDaemonServiceParts parts;
    const int status = ZelDaemon::run(parts);
    // Once the task manager exists its reaper thread cannot be stopped, and
    // leaving main would end the process through that joinable thread; the
    // failure is logged by now, so end without static destructors.
    if (status != 0) _exit(status);
    return status;
}
