// zeld's process entry: wires the real parts into the daemon's sequence.

#include <unistd.h>

#include "ZelDaemonParts.h"
#include "ZelDaemonServiceParts.h"

int main() {
    ZelDaemonServiceParts parts;
    const int status = zeld::main(parts);
    // Once the task manager exists its reaper thread cannot be stopped, and
    // leaving main would end the process through that joinable thread; the
    // failure is logged by now, so end without static destructors.
    if (status != 0) _exit(status);
    return status;
}
