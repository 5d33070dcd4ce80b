#include <cutils/properties.h>

#include "ZelDevicePath.h"
#include "ZelPropertyRules.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

constexpr const char* kStoreDir = "/dev/__properties__";

// Creates every missing directory of `path`.
bool makeDirectories(const std::string& path) {
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string prefix = path.substr(0, slash);
        if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) return false;
        if (slash == std::string::npos) return true;
    }
}

std::string storePath() { return zelDevicePath(kStoreDir); }

// Reads a property's value; false when unset.
bool readValue(const char* key, std::string& out) {
    if (key == nullptr || !zelIsLegalPropertyName(key)) return false;
    const std::string path = storePath() + "/" + key;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    char buffer[PROP_VALUE_MAX];
    ssize_t total = 0;
    while (total < static_cast<ssize_t>(sizeof(buffer))) {
        const ssize_t n = read(fd, buffer + total, sizeof(buffer) - static_cast<size_t>(total));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        total += n;
    }
    close(fd);
    // A value never reaches PROP_VALUE_MAX bytes; anything longer was not written by us.
    if (total >= static_cast<ssize_t>(sizeof(buffer))) total = sizeof(buffer) - 1;
    out.assign(buffer, static_cast<size_t>(total));
    return true;
}

bool writeAll(int fd, const char* data, size_t length) {
    while (length > 0) {
        const ssize_t n = write(fd, data, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

extern "C" int property_set(const char* key, const char* value) {
    if (key == nullptr || !zelIsLegalPropertyName(key)) return -1;
    if (value == nullptr) value = "";
    const size_t valueLength = strlen(value);
    if (valueLength >= PROP_VALUE_MAX) return -1;

    const std::string dir = storePath();
    if (!makeDirectories(dir)) return -1;
    const std::string target = dir + "/" + key;
    if (strncmp(key, "ro.", 3) == 0 && access(target.c_str(), F_OK) == 0) return -1;

    static std::atomic<unsigned> sSequence{0};
    char suffix[64];
    snprintf(suffix, sizeof(suffix), "/.tmp.%d.%ld.%u", static_cast<int>(getpid()),
             static_cast<long>(syscall(SYS_gettid)), sSequence.fetch_add(1));
    const std::string temporary = dir + suffix;
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return -1;
    const bool written = writeAll(fd, value, valueLength);
    close(fd);
    if (!written || rename(temporary.c_str(), target.c_str()) != 0) {
        unlink(temporary.c_str());
        return -1;
    }
    return 0;
}

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    std::string stored;
    if (!readValue(key, stored) || stored.empty()) {
        stored = default_value != nullptr ? default_value : "";
        if (stored.size() >= PROP_VALUE_MAX) stored.resize(PROP_VALUE_MAX - 1);
    }
    memcpy(value, stored.c_str(), stored.size() + 1);
    return static_cast<int>(stored.size());
}

extern "C" int8_t property_get_bool(const char* key, int8_t default_value) {
    std::string stored;
    if (!readValue(key, stored)) return default_value;
    return zelPropertyBool(stored, default_value);
}
