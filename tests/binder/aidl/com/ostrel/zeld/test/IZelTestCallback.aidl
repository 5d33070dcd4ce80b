package com.ostrel.zeld.test;

// A client-side object the test service calls back, one-way.
oneway interface IZelTestCallback {
    void onValue(int value);
}
