// Logs one line at each level; used to check the ZELD_LOG_LEVEL start value.
#include "ZelLog.h"

int main() {
    ZEL_LOGD("probe-debug");
    ZEL_LOGI("probe-info");
    ZEL_LOGW("probe-warn");
    ZEL_LOGE("probe-error");
    return 0;
}
