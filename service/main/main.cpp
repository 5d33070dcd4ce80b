#include "ZelLog.h"

// The serving daemon is assembled from the task manager, the listener and the
// binder server; until they are all present this entry only announces itself.
int main() {
    ZEL_LOGI("ZEL daemon is starting");
    ZEL_LOGE("%s:%d ZEL daemon is not built yet: the serving parts are missing", __func__,
             __LINE__);
    return 1;
}
