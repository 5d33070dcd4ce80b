#pragma once

#include <sys/types.h>

#include <cstdint>

#include <utils/Errors.h>

namespace android {

// Per-thread binder state: who is calling during an incoming transaction.
class IPCThreadState {
public:
    static IPCThreadState* self();
    static IPCThreadState* selfOrNull();

    // Pid and uid of the process that sent the transaction being served on
    // this thread (from the socket's peer credentials); outside a
    // transaction, this process's own.
    pid_t getCallingPid() const;
    uid_t getCallingUid() const;

    // Makes the calling identity this process's own until restored.
    int64_t clearCallingIdentity();
    void restoreCallingIdentity(int64_t token);

    // Serves incoming transactions on this thread. With isMain the thread
    // never leaves on idle; it returns only after stopProcess().
    void joinThreadPool(bool isMain = true);
    // Ends the thread pool: pool threads finish their current transaction
    // and leave, joinThreadPool returns. Outgoing calls keep working.
    void stopProcess(bool immediate = true);

    // Transactions are written at once on the host; nothing to flush.
    void flushCommands() {}

    // Used by the runtime around each incoming transaction.
    struct CallingIdentity {
        pid_t pid;
        uid_t uid;
    };
    CallingIdentity swapCallingIdentity(CallingIdentity identity);

private:
    IPCThreadState();

    pid_t mCallingPid;
    uid_t mCallingUid;
};

}  // namespace android
