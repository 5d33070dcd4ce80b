package com.ostrel.zeld.interfaces;

import com.ostrel.zeld.interfaces.IZelBinderIPCRequestCallback;
import com.ostrel.zeld.interfaces.MessageIdentifier;
import com.ostrel.zeld.interfaces.ServiceIdentifier;

// The daemon's client service, "com.ostrel.zeld.service.IZelBinderIPC".
// Transaction codes follow the declaration order; do not reorder.
interface IZelBinderIPC {
    // A null callback is refused with EX_ILLEGAL_ARGUMENT by the service.
    void registerCallback(in ServiceIdentifier client, @nullable IZelBinderIPCRequestCallback callback);
    void unregisterCallback(in ServiceIdentifier client);
    // data: a serialised ZelAsyncParamsBinderParcelable; kind must be 1.
    void sendAsyncMessage(in ServiceIdentifier client, in MessageIdentifier kind, in byte[] data);
}
