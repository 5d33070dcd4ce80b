#pragma once

// What a running process holds, read from /proc: for tests that check that
// descriptors, threads or memory come back to their idle figures. Each gives
// -1 when the figure cannot be read (the process is gone, or is itself out of
// descriptors when it reads its own).

#include <dirent.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>

// Entries of /proc/<pid>/<dir>, without "." and "..".
inline int64_t zelProcEntries(pid_t pid, const char* dir) {
    DIR* d = opendir(("/proc/" + std::to_string(pid) + "/" + dir).c_str());
    if (d == nullptr) return -1;
    int64_t n = 0;
    while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
    closedir(d);
    return n;
}

// Open descriptors (counting the one that reads them when pid is the caller).
inline int64_t zelOpenDescriptors(pid_t pid) { return zelProcEntries(pid, "fd"); }
inline int64_t zelThreads(pid_t pid) { return zelProcEntries(pid, "task"); }

inline int64_t zelResidentKiB(pid_t pid) {
    std::ifstream statm("/proc/" + std::to_string(pid) + "/statm");
    int64_t size = 0;
    int64_t resident = -1;
    if (!(statm >> size >> resident)) return -1;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}
