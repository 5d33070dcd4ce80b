#pragma once

#include <chrono>
#include <string>

#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/Vector.h>

// Writing a dump to the descriptor a dump caller passed. The caller's reader
// may stop reading: the write gives up once the reader has not taken any
// bytes for `patience`, so a stuck reader costs one binder thread for that
// long and never a lock. A reader that went away (EPIPE) ends the write
// without a SIGPIPE.
namespace ZelDumpOutput {

inline constexpr std::chrono::milliseconds kPatience{5000};

android::status_t write(int fd, const std::string& text,
                        std::chrono::milliseconds patience = kPatience);

// True when the arguments ask for the JSON form ("--json").
bool wantsJson(const android::Vector<android::String16>& args);

}  // namespace ZelDumpOutput
