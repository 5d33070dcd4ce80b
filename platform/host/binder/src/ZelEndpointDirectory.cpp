#include "ZelEndpointDirectory.h"

#include <dirent.h>
#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

#include "ZelProcess.h"
#include "zel/binder/ZelWireFrame.h"

namespace zel::binder {

namespace {

bool makeDirectory(const std::string& path, mode_t mode) {
    return mkdir(path.c_str(), mode) == 0 || errno == EEXIST;
}

// Endpoint sockets to unlink at exit, with the pid that made each: a child
// of fork() must not remove its parent's.
std::mutex gExitLock;
std::vector<std::pair<pid_t, std::string>>* gExitSockets = nullptr;

void unlinkSocketsAtExit() {
    std::lock_guard<std::mutex> guard(gExitLock);
    for (const auto& [pid, path] : *gExitSockets) {
        if (pid == getpid()) unlink(path.c_str());
    }
}

}  // namespace

bool zelMakeEndpointDirectory(const std::string& dir) {
    for (size_t slash = dir.find('/', 1); slash != std::string::npos; slash = dir.find('/', slash + 1)) {
        if (!makeDirectory(dir.substr(0, slash), 0755)) return false;
    }
    if (!makeDirectory(dir, 0700)) return false;
    struct stat st;
    return stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && makeDirectory(dir + "/services", 0700);
}

void zelSweepStaleEndpoints(const std::string& dir) {
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return;
    while (dirent* entry = readdir(d)) {
        const std::string name = entry->d_name;
        const pid_t pid = zelEndpointPid(name);
        if (pid != 0 && isValidZelEndpoint(name) && zelProcessGone(pid)) {
            unlink((dir + "/" + name).c_str());
        }
    }
    closedir(d);
}

void zelUnlinkAtExit(const std::string& path) {
    std::lock_guard<std::mutex> guard(gExitLock);
    if (gExitSockets == nullptr) {
        gExitSockets = new std::vector<std::pair<pid_t, std::string>>();
        atexit(unlinkSocketsAtExit);
    }
    gExitSockets->emplace_back(getpid(), path);
}

}  // namespace zel::binder
