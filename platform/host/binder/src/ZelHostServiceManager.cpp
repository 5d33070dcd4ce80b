#include "ZelHostServiceManager.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include "ZelBinderLog.h"
#include "ZelBinderRuntime.h"
#include "ZelProcess.h"

namespace zel::binder {

using android::BAD_VALUE;
using android::IBinder;
using android::OK;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;

namespace {

constexpr size_t kMaxServiceName = 127;
// getService waits this long for a name to appear, polling.
constexpr auto kGetServiceTimeout = std::chrono::seconds(5);
constexpr auto kGetServicePoll = std::chrono::milliseconds(100);

// File names: '/' and a leading '.' are escaped ('%' is not a name character).
std::string encodeName(const std::string& name) {
    std::string out;
    for (size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '/') {
            out += "%2F";
        } else if (name[i] == '.' && i == 0) {
            out += "%2E";
        } else {
            out += name[i];
        }
    }
    return out;
}

std::string decodeName(const std::string& file) {
    std::string out;
    for (size_t i = 0; i < file.size(); ++i) {
        if (file.compare(i, 3, "%2F") == 0) {
            out += '/';
            i += 2;
        } else if (file.compare(i, 3, "%2E") == 0) {
            out += '.';
            i += 2;
        } else {
            out += file[i];
        }
    }
    return out;
}

std::string toUtf8(const String16& s) {
    const String8 utf8(s);
    return std::string(utf8.string(), utf8.size());
}

}  // namespace

ZelHostServiceManager::ZelHostServiceManager(ZelBinderRuntime& runtime) : mRuntime(runtime) {}

bool ZelHostServiceManager::isValidServiceName(const std::string& name) {
    if (name.empty() || name.size() > kMaxServiceName || name == "." || name == "..") return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
               c == '_' || c == '/' || c == '-';
    });
}

std::string ZelHostServiceManager::fileFor(const std::string& name) const {
    return mRuntime.servicesDir() + "/" + encodeName(name);
}

std::optional<ZelHostServiceManager::Registration> ZelHostServiceManager::read(
        const std::string& name) const {
    std::ifstream in(fileFor(name));
    Registration reg;
    std::string handle;
    if (!(in >> reg.endpoint >> handle) || !isValidZelEndpoint(reg.endpoint) || handle.empty() ||
        handle.size() > 10 || !std::all_of(handle.begin(), handle.end(), ::isdigit)) {
        return std::nullopt;
    }
    const unsigned long value = std::stoul(handle);
    if (value == 0 || value > UINT32_MAX) return std::nullopt;
    reg.handle = static_cast<uint32_t>(value);
    return reg;
}

sp<IBinder> ZelHostServiceManager::checkService(const String16& name16) const {
    const std::string name = toUtf8(name16);
    if (!isValidServiceName(name)) return nullptr;
    const std::optional<Registration> reg = read(name);
    if (!reg) return nullptr;
    if (reg->endpoint == mRuntime.endpoint()) return mRuntime.localObject(reg->handle);
    // Making the proxy connects to the owner: an owner that has exited gives
    // a dead proxy.
    sp<IBinder> proxy = mRuntime.proxyFor(reg->endpoint, reg->handle);
    if (!proxy->isBinderAlive()) return nullptr;
    return proxy;
}

sp<IBinder> ZelHostServiceManager::getService(const String16& name) const {
    sp<IBinder> service = checkService(name);
    if (service != nullptr || !isValidServiceName(toUtf8(name))) return service;
    ZEL_BINDER_LOGI("Waiting for service '%s'...", toUtf8(name).c_str());
    const auto deadline = std::chrono::steady_clock::now() + kGetServiceTimeout;
    while (std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(kGetServicePoll);
        service = checkService(name);
        if (service != nullptr) return service;
    }
    ZEL_BINDER_LOGW("Service %s didn't start. Returning NULL", toUtf8(name).c_str());
    return nullptr;
}

status_t ZelHostServiceManager::addService(const String16& name16, const sp<IBinder>& service,
                                           bool /*allowIsolated*/, int /*dumpsysFlags*/) {
    const std::string name = toUtf8(name16);
    if (!isValidServiceName(name) || service == nullptr) return BAD_VALUE;
    Registration reg;
    if (android::BBinder* local = service->localBinder()) {
        reg.endpoint = mRuntime.endpoint();
        reg.handle = mRuntime.pinService(sp<android::BBinder>(local));
    } else if (android::BpBinder* remote = service->remoteBinder()) {
        // The owner keeps the object only while this process holds its proxy.
        reg.endpoint = remote->endpoint();
        reg.handle = remote->handle();
    } else {
        return BAD_VALUE;
    }
    static std::atomic<unsigned> sCounter{0};
    const std::string temp = mRuntime.servicesDir() + "/.tmp-" + mRuntime.endpoint() + "-" +
                             std::to_string(sCounter++);
    {
        std::ofstream out(temp, std::ios::trunc);
        out << reg.endpoint << ' ' << reg.handle << '\n';
        if (!out.flush()) {
            unlink(temp.c_str());
            return android::UNKNOWN_ERROR;
        }
    }
    if (rename(temp.c_str(), fileFor(name).c_str()) != 0) {
        unlink(temp.c_str());
        return android::UNKNOWN_ERROR;
    }
    return OK;
}

android::Vector<String16> ZelHostServiceManager::listServices(int /*dumpsysFlags*/) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(mRuntime.servicesDir().c_str())) {
        while (dirent* entry = readdir(dir)) {
            const std::string file = entry->d_name;
            if (file.empty() || file[0] == '.') continue;
            const std::string name = decodeName(file);
            const std::optional<Registration> reg = read(name);
            if (!reg) continue;
            if (reg->endpoint == mRuntime.endpoint() || !zelProcessGone(zelEndpointPid(reg->endpoint))) {
                names.push_back(name);
            }
        }
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    android::Vector<String16> result;
    for (const std::string& name : names) result.push(String16(name.c_str()));
    return result;
}

}  // namespace zel::binder

namespace android {

sp<IServiceManager> defaultServiceManager() {
    zel::binder::ZelBinderRuntime& runtime = zel::binder::ZelBinderRuntime::instance();
    if (runtime.ensureOnline() != OK) return nullptr;
    // One per runtime: a child of fork() gets its own with its fresh runtime.
    // Never destroyed, as the runtime is not.
    static std::mutex* lock = new std::mutex();
    static auto* manager = new sp<IServiceManager>();
    static const zel::binder::ZelBinderRuntime* owner = nullptr;
    std::lock_guard<std::mutex> guard(*lock);
    if (owner != &runtime) {
        *manager = new zel::binder::ZelHostServiceManager(runtime);
        owner = &runtime;
    }
    return *manager;
}

}  // namespace android
