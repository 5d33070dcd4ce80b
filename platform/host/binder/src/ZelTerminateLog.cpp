#include "ZelTerminateLog.h"

#include <errno.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cxxabi.h>
#include <exception>
#include <typeinfo>

#include <log/log.h>

namespace zel::binder {

namespace {

struct Serving {
    const android::String16* descriptor = nullptr;
    uint32_t code = 0;
};
// Set around each incoming transaction and deliberately not reset by a
// destructor: an exception that nothing catches ends the process without
// unwinding the stack, so the record (and the descriptor it points to) is
// still there when the handler runs.
thread_local Serving tServing;

std::terminate_handler gPrevious = nullptr;
std::atomic<bool> gEnding{false};

// "uncaught <type> (<what>)", or what called terminate without an exception.
void describeException(char* out, size_t size) {
    const std::type_info* type = abi::__cxa_current_exception_type();
    if (type == nullptr) {
        snprintf(out, size, "std::terminate without an exception");
        return;
    }
    int status = -1;
    char* demangled = abi::__cxa_demangle(type->name(), nullptr, nullptr, &status);
    const char* name = status == 0 && demangled != nullptr ? demangled : type->name();
    try {
        std::rethrow_exception(std::current_exception());
    } catch (const std::exception& e) {
        snprintf(out, size, "uncaught %s (%s)", name, e.what());
    } catch (...) {
        snprintf(out, size, "uncaught %s", name);
    }
    free(demangled);
}

// "transaction <code> of <descriptor>" (descriptors are ASCII), or that none ran.
void describeServing(char* out, size_t size) {
    if (tServing.descriptor == nullptr) {
        snprintf(out, size, "serving no binder transaction");
        return;
    }
    char name[128];
    const char16_t* text = tServing.descriptor->string();
    size_t length = 0;
    for (; length < tServing.descriptor->size() && length + 1 < sizeof(name); ++length) {
        name[length] = text[length] < 0x80 ? static_cast<char>(text[length]) : '?';
    }
    name[length] = '\0';
    snprintf(out, size, "serving transaction %u of %s", tServing.code, name);
}

[[noreturn]] void onTerminate() {
    // Once: a second thread ending meanwhile, or a failure while logging,
    // goes straight on to the end.
    if (!gEnding.exchange(true)) {
        char exception[384];
        char serving[192];
        describeException(exception, sizeof(exception));
        describeServing(serving, sizeof(serving));
        __android_log_buf_print(LOG_ID_MAIN, ANDROID_LOG_FATAL, program_invocation_short_name,
                                "ZelTerminateLog::%s:%d - %s ends the process; this thread was %s", __func__,
                                __LINE__, exception, serving);
    }
    if (gPrevious != nullptr) gPrevious();
    std::abort();
}

}  // namespace

void zelInstallTerminateLog() {
    static const bool installed = [] {
        gPrevious = std::set_terminate(onTerminate);
        return true;
    }();
    (void)installed;
}

void zelBeginServing(const android::String16& descriptor, uint32_t code) { tServing = Serving{&descriptor, code}; }

void zelEndServing() { tServing = Serving{}; }

}  // namespace zel::binder
