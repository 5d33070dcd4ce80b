// Arbitrary parcels as calls of the event service's five operations, in
// process: the first byte picks the operation, the rest is its parcel.
// Participant 9 has an in-process callback and participant 1 (the daemon) its
// local function, so publications reach both delivery paths.
//
// The one expected end: a publication with two actual deliveries. The walk's
// second release of the service lock throws std::system_error (operation not
// permitted), which ends the daemon as nothing catches it there. Subscriptions
// can list 1 and 9 any number of times, so inputs reach it easily; here it is
// caught around publish only, and only as that error after exactly one
// delivery of that publication. Anything else escaping, or that error with
// another count, is a finding. The lock is released when it throws and the
// tables are whole, so the next input runs on a consistent service.
//
// The seed corpus (corpus/events) holds one valid call of each operation.
#include <cstdint>
#include <cstdlib>
#include <system_error>

#include <binder/Parcel.h>
#include <com/ostrel/zeld/interfaces/BnZelEventCallbackService.h>
#include <com/ostrel/zeld/interfaces/IZelEventManager.h>

#include "ZelServerIZelEventManagerImpl.h"

using namespace com::ostrel::zeld::interfaces;
using android::binder::Status;

namespace {

constexpr uint32_t kOperations = 5;
constexpr uint32_t kPublish = 4;
int gDeliveries = 0;

class ZelDeliveryCounter : public BnZelEventCallbackService {
public:
    Status onEvent(const ServiceIdentifier&, int32_t, int32_t, const std::vector<uint8_t>&) override {
        ++gDeliveries;
        return Status::ok();
    }
};

// A fresh service every 4096 inputs: subscriptions only grow, and a
// long run would otherwise spend its time walking them.
android::sp<ZelServerIZelEventManagerImpl> service() {
    static android::sp<ZelServerIZelEventManagerImpl> instance;
    static unsigned calls = 0;
    if (calls++ % 4096 == 0) {
        instance = new ZelServerIZelEventManagerImpl();
        instance->setLocalEventCallback([](const ServiceIdentifier&, int32_t, int32_t,
                                           const std::vector<uint8_t>&) { ++gDeliveries; });
        if (!instance->registerEventCallback(ServiceIdentifier(9), new ZelDeliveryCounter()).isOk()) {
            abort();
        }
    }
    return instance;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint32_t operation = data[0] % kOperations;
    android::Parcel in;
    in.setData(data + 1, size - 1);
    android::Parcel reply;
    const uint32_t code = android::IBinder::FIRST_CALL_TRANSACTION + operation;
    gDeliveries = 0;
    if (operation != kPublish) {
        service()->transact(code, in, &reply, 0);
        return 0;
    }
    try {
        service()->transact(code, in, &reply, 0);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::operation_not_permitted || gDeliveries != 1) abort();
    }
    return 0;
}
