package com.ostrel.zeld.test;

import com.ostrel.zeld.test.IZelTestCallback;

// A service for exercising the binder runtime across processes.
interface IZelTestService {
    byte[] echo(in byte[] data);
    // `size` bytes: a large reply to a small call.
    byte[] filled(int size);
    IBinder echoBinder(IBinder binder);
    // True when `binder` is the very object given to setCallback.
    boolean isStoredCallback(IBinder binder);
    void setCallback(IZelTestCallback callback);
    // Calls the stored callback's onValue(value) and returns at once.
    void pingCallback(int value);
    // setCallback(callback) and pingCallback(value) in one step.
    void callBack(IZelTestCallback callback, int value);
    oneway void record(int sequence);
    int[] recorded();
    // The service process's runtime figures: exported objects, proxies,
    // peers, incoming connections, pool threads, open fds, threads, RSS in KiB,
    // lines logged since it started serving.
    long[] stats();
    void sleepMs(int ms);
    // Unlocks a mutex twice through one scoped lock, as the event service
    // does on a second delivery: what that throws ends the service.
    void unlockTwice();
}
