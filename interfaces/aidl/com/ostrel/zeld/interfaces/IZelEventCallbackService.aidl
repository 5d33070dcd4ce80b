package com.ostrel.zeld.interfaces;

import com.ostrel.zeld.interfaces.ServiceIdentifier;

// A participant's event delivery channel. One-way: a publication never waits
// for a subscriber.
oneway interface IZelEventCallbackService {
    void onEvent(in ServiceIdentifier publisher, int groupId, int eventId, in byte[] payload);
}
