// zelctl dump: the daemon's state, read through the binder dump transaction.

#include <unistd.h>

#include <binder/IBinder.h>
#include <binder/IServiceManager.h>
#include <utils/String16.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "ZelctlClientCommand.h"
#include "ZelctlClientCommands.h"
#include "ZelctlDumpReader.h"

namespace {

using zel::client::ZelClientError;

constexpr const char* kClientService = "com.ostrel.zeld.service.IZelBinderIPC";
constexpr const char* kEventService = "com.ostrel.zeld.service.IZelEventManager";

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err);

const ZelctlCommand kCommand = {
        "dump", "dump [--events] [--json]",
        "print the daemon's state (tasks, memory report, reaper, clients, metrics)",
        "Asks the client service for its dump, as dumpsys does on the device, and prints\n"
        "it unchanged: the policy file and its counts, the last memory report, the\n"
        "reaper, the three task tables and the stopped list, the registered clients,\n"
        "the counters and request timings. docs/dump.md explains every field.\n"
        "\n"
        "  --events   the event service's dump instead: participants and subscriptions\n"
        "  --json     the daemon's one JSON document instead of text\n"
        "\n"
        "Only processes of the daemon's uid may dump (on the device: holders of\n"
        "android.permission.DUMP).\n"
        "Exit status: 0 printed, 1 no daemon or refused, 2 wrong command line.\n",
        true, run};

android::sp<android::IBinder> findService(const char* name, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        const android::sp<android::IServiceManager> manager = android::defaultServiceManager();
        android::sp<android::IBinder> service =
                manager != nullptr ? manager->checkService(android::String16(name)) : nullptr;
        if (service != nullptr || std::chrono::steady_clock::now() >= deadline) return service;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

}  // namespace

android::status_t zelctlReadDump(const android::sp<android::IBinder>& service, bool json,
                                 std::string* text) {
    int ends[2];
    if (pipe(ends) != 0) return android::UNKNOWN_ERROR;
    android::Vector<android::String16> args;
    if (json) args.add(android::String16("--json"));
    android::status_t status = android::OK;
    std::thread call([&] {
        status = service->dump(ends[1], args);
        close(ends[1]);  // the daemon's copy closed when its call ended
    });
    char buffer[4096];
    ssize_t n = 0;
    while ((n = read(ends[0], buffer, sizeof(buffer))) != 0) {
        if (n > 0) text->append(buffer, static_cast<size_t>(n));
        else if (errno != EINTR) break;
    }
    call.join();
    close(ends[0]);
    return status;
}

namespace {

int run(const std::vector<std::string>& words, std::ostream& out, std::ostream& err) {
    ZelctlClientCommand command(kCommand, out, err);
    if (!command.parse(words, {{"--events", false}}, {})) return kZelctlExitUsage;
    const bool events = command.args().has("--events");
    return command.run([&] {
        if (!command.reachDaemon()) return kZelctlExitFailed;
        const android::sp<android::IBinder> service =
                findService(events ? kEventService : kClientService,
                            command.waitingFor("looking up its service"));
        if (service == nullptr) return command.fail(ZelClientError::kNotRunning);
        std::string text;
        command.waitingFor("reading its dump");
        const android::status_t status = zelctlReadDump(service, command.output().json(), &text);
        if (status == android::PERMISSION_DENIED) {
            return command.output().fail("permission_denied",
                                         "the daemon refused the dump: this uid may not dump it");
        }
        if (status != android::OK) {
            return command.output().fail("transport",
                                         "the dump failed (status " + std::to_string(status) + ")");
        }
        command.output().write(text);
        return kZelctlExitOk;
    });
}

}  // namespace

const ZelctlCommand& zelctlDumpCommand() {
    return kCommand;
}
