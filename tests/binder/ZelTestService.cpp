#include "ZelTestService.h"

#include <dirent.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include <binder/IPCThreadState.h>

#include "zel/binder/ZelBinderStats.h"

using android::sp;
using android::binder::Status;

namespace {

int64_t countEntries(const char* dir) {
    int64_t n = 0;
    if (DIR* d = opendir(dir)) {
        while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
        closedir(d);
    }
    return n;
}

int64_t residentKiB() {
    std::ifstream statm("/proc/self/statm");
    int64_t size = 0;
    int64_t resident = 0;
    statm >> size >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

Status ZelTestService::echo(const std::vector<uint8_t>& data, std::vector<uint8_t>* out) {
    *out = data;
    return Status::ok();
}

Status ZelTestService::callerIdentity(std::vector<int32_t>* out) {
    const android::IPCThreadState* ipc = android::IPCThreadState::self();
    *out = {static_cast<int32_t>(ipc->getCallingPid()), static_cast<int32_t>(ipc->getCallingUid())};
    return Status::ok();
}

Status ZelTestService::echoBinder(const sp<android::IBinder>& binder, sp<android::IBinder>* out) {
    *out = binder;
    return Status::ok();
}

Status ZelTestService::isStoredCallback(const sp<android::IBinder>& binder, bool* out) {
    std::lock_guard<std::mutex> guard(mLock);
    *out = mCallback != nullptr && binder == com::ostrel::zeld::test::IZelTestCallback::asBinder(mCallback);
    return Status::ok();
}

Status ZelTestService::setCallback(const sp<com::ostrel::zeld::test::IZelTestCallback>& callback) {
    std::lock_guard<std::mutex> guard(mLock);
    mCallback = callback;
    return Status::ok();
}

Status ZelTestService::pingCallback(int32_t value) {
    sp<com::ostrel::zeld::test::IZelTestCallback> callback;
    {
        std::lock_guard<std::mutex> guard(mLock);
        callback = mCallback;
    }
    if (callback == nullptr) return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
    return callback->onValue(value);
}

Status ZelTestService::callBack(const sp<com::ostrel::zeld::test::IZelTestCallback>& callback,
                               int32_t value) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mCallback = callback;
    }
    return callback->onValue(value);
}

Status ZelTestService::record(int32_t sequence) {
    std::lock_guard<std::mutex> guard(mLock);
    mRecorded.push_back(sequence);
    return Status::ok();
}

Status ZelTestService::recorded(std::vector<int32_t>* out) {
    std::lock_guard<std::mutex> guard(mLock);
    *out = mRecorded;
    return Status::ok();
}

Status ZelTestService::stats(std::vector<int64_t>* out) {
    const zel::binder::ZelBinderStats s = zel::binder::zelBinderStats();
    *out = {static_cast<int64_t>(s.exportedObjects), static_cast<int64_t>(s.proxies),
            static_cast<int64_t>(s.peers), static_cast<int64_t>(s.incomingConnections),
            static_cast<int64_t>(s.poolThreads), countEntries("/proc/self/fd"),
            countEntries("/proc/self/task"), residentKiB()};
    return Status::ok();
}

Status ZelTestService::sleepMs(int32_t ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    return Status::ok();
}
