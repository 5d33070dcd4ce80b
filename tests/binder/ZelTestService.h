#pragma once

#include <mutex>
#include <vector>

#include <com/ostrel/zeld/test/BnZelTestService.h>

// The service behind IZelTestService, run by zeld_binder_test_peer.
class ZelTestService : public com::ostrel::zeld::test::BnZelTestService {
public:
    using Status = android::binder::Status;

    Status echo(const std::vector<uint8_t>& data, std::vector<uint8_t>* out) override;
    Status callerIdentity(std::vector<int32_t>* out) override;
    Status echoBinder(const android::sp<android::IBinder>& binder,
                      android::sp<android::IBinder>* out) override;
    Status isStoredCallback(const android::sp<android::IBinder>& binder, bool* out) override;
    Status setCallback(const android::sp<com::ostrel::zeld::test::IZelTestCallback>& callback) override;
    Status pingCallback(int32_t value) override;
    Status callBack(const android::sp<com::ostrel::zeld::test::IZelTestCallback>& callback,
                    int32_t value) override;
    Status record(int32_t sequence) override;
    Status recorded(std::vector<int32_t>* out) override;
    Status stats(std::vector<int64_t>* out) override;
    Status sleepMs(int32_t ms) override;

private:
    std::mutex mLock;  // guards the fields below
    android::sp<com::ostrel::zeld::test::IZelTestCallback> mCallback;
    std::vector<int32_t> mRecorded;
};
