package com.ostrel.zeld.interfaces;

import com.ostrel.zeld.interfaces.MessageIdentifier;
import com.ostrel.zeld.interfaces.ServiceIdentifier;

// A client's reply channel. One-way: the daemon never waits for a client.
oneway interface IZelBinderIPCRequestCallback {
    // sender: the daemon's identifier; kind: 2 (reply); data: a serialised
    // ZelCallbackParamsParcelable.
    void onAsyncReply(in ServiceIdentifier sender, in MessageIdentifier kind, in byte[] data);
}
