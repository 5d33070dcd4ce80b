#include "ZelRuntimeLimits.h"

#include <cstdlib>

namespace zel::binder {

namespace {
void readKnob(const char* name, std::chrono::milliseconds* value) {
    const char* text = std::getenv(name);
    if (text == nullptr) return;
    char* end = nullptr;
    const long ms = std::strtol(text, &end, 10);
    if (end != text && *end == '\0' && ms > 0) *value = std::chrono::milliseconds(ms);
}
}  // namespace

ZelRuntimeDeadlines ZelRuntimeDeadlines::fromEnvironment() {
    ZelRuntimeDeadlines deadlines;
    readKnob("ZELD_BINDER_HELLO_TIMEOUT_MS", &deadlines.hello);
    readKnob("ZELD_BINDER_FRAME_TIMEOUT_MS", &deadlines.frame);
    readKnob("ZELD_BINDER_SEND_TIMEOUT_MS", &deadlines.send);
    return deadlines;
}

}  // namespace zel::binder
