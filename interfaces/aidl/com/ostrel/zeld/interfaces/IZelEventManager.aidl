package com.ostrel.zeld.interfaces;

import com.ostrel.zeld.interfaces.IZelEventCallbackService;
import com.ostrel.zeld.interfaces.ServiceIdentifier;

// The daemon's publish/subscribe broker, "com.ostrel.zeld.service.IZelEventManager".
// An event is (publisher, groupId, eventId). Transaction codes follow the
// declaration order; do not reorder.
interface IZelEventManager {
    // A null callback is refused with EX_ILLEGAL_ARGUMENT by the service.
    void registerEventCallback(in ServiceIdentifier id, @nullable IZelEventCallbackService callback);
    void unregisterEventCallback(in ServiceIdentifier id);
    void subscribe(in ServiceIdentifier subscriber, in ServiceIdentifier publisher, int groupId, int eventId);
    void unsubscribe(in ServiceIdentifier subscriber, in ServiceIdentifier publisher, int groupId, int eventId);
    void publish(in ServiceIdentifier publisher, int groupId, int eventId, in byte[] payload);
}
