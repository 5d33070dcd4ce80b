// A participant of the event service made only of the generated proxies.
//   zeld_event_peer subscribe FILE ID PUBLISHER GROUP EVENT  register and subscribe
//   zeld_event_peer register FILE ID                         register only
//   zeld_event_peer memory TYPE STATUS VALUE THRESHOLD       publish a memory report as 5
// The first two write "ready" to FILE, then one line per delivery
// ("P G E <payload bytes in hex>"), and run until killed. Exit status: 0 done,
// 1 service not found, 2 a call failed.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>

#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <com/ostrel/zeld/interfaces/BnZelEventCallbackService.h>
#include <com/ostrel/zeld/interfaces/IZelEventManager.h>
#include <com/ostrel/zeld/utils/ZelParcelableHelperUtils.h>
#include <tallyd/TallyEventHelper.h>

using namespace com::ostrel::zeld::interfaces;
using android::sp;
using android::binder::Status;

namespace {

class Writer : public BnZelEventCallbackService {
public:
    explicit Writer(const std::string& path) : mOut(path, std::ios::app) {}
    Status onEvent(const ServiceIdentifier& publisher, int32_t groupId, int32_t eventId,
                   const std::vector<uint8_t>& payload) override {
        std::lock_guard<std::mutex> guard(mLock);
        mOut << publisher.value << ' ' << groupId << ' ' << eventId << ' ';
        for (uint8_t byte : payload) {
            char hex[3];
            std::snprintf(hex, sizeof(hex), "%02x", byte);
            mOut << hex;
        }
        mOut << std::endl;
        return Status::ok();
    }
    void line(const char* text) {
        std::lock_guard<std::mutex> guard(mLock);
        mOut << text << std::endl;
    }

private:
    std::mutex mLock;
    std::ofstream mOut;
};

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    android::ProcessState::self()->startThreadPool();
    sp<IZelEventManager> service;
    if (android::getService(android::String16("com.ostrel.zeld.service.IZelEventManager"),
                            &service) != android::OK) {
        return 1;
    }
    auto arg = [&](int i) { return argc > i ? std::atoll(argv[i]) : 0; };
    if (mode == "memory") {
        const tallyd::TallyEventHelper report({static_cast<uint8_t>(arg(2)), static_cast<uint8_t>(arg(3)),
                                               static_cast<uint64_t>(arg(4)), static_cast<uint64_t>(arg(5))});
        std::vector<uint8_t> bytes;
        com::ostrel::zeld::utils::ZelParcelableHelperUtils::convertParcelableToBytes(&report, bytes);
        return service->publish(ServiceIdentifier(5), 1, 1, bytes).isOk() ? 0 : 2;
    }
    if (argc < 4) return 2;
    sp<Writer> writer = new Writer(argv[2]);
    const ServiceIdentifier self(static_cast<int32_t>(arg(3)));
    if (!service->registerEventCallback(self, writer).isOk()) return 2;
    if (mode == "subscribe" &&
        !service->subscribe(self, ServiceIdentifier(static_cast<int32_t>(arg(4))),
                            static_cast<int32_t>(arg(5)), static_cast<int32_t>(arg(6)))
                 .isOk()) {
        return 2;
    }
    writer->line("ready");
    for (;;) std::this_thread::sleep_for(std::chrono::seconds(60));
}
