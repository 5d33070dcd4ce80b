#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "ZelEventDispatcherInterface.h"

// A dispatcher stand-in that records what the daemon publishes and
// subscribes to, answers publications with a result the test sets, and
// delivers events to the subscribed in-process functions as the real
// dispatcher does (lookup under its lock, call outside it).
class ZelRecordingEventDispatcher : public ZelEventDispatcherInterface {
public:
    using Event = std::pair<uint8_t, int32_t>;
    struct Publication {
        std::vector<PolicyEvent> events;
        int32_t first;
        int32_t second;
    };

    bool publishEvents(const std::vector<PolicyEvent>& events, int32_t first, int32_t second) override {
        std::lock_guard<std::mutex> guard(mLock);
        mPublications.push_back({events, first, second});
        return publishResult;
    }
    bool subscribeEvent(uint8_t groupId, int32_t eventId, EventCallback callback) override {
        std::lock_guard<std::mutex> guard(mLock);
        mSubscriptions.emplace_back(groupId, eventId);
        mCallbacks.emplace(Event(groupId, eventId), std::move(callback));
        return subscribeResult;
    }
    // Leaves the functions in place, as a delivery already under way still
    // holds its function: a subscriber must not rely on being forgotten.
    bool unsubscribeEvents(const std::vector<Event>& events) override {
        std::lock_guard<std::mutex> guard(mLock);
        for (const Event& event : events) {
            mSubscriptions.erase(std::remove(mSubscriptions.begin(), mSubscriptions.end(), event), mSubscriptions.end());
        }
        return true;
    }
    void stop() override {}
    void invokeEventCallback(uint8_t groupId, int32_t eventId, const void* data) override {
        EventCallback callback;
        {
            std::lock_guard<std::mutex> guard(mLock);
            auto it = mCallbacks.find({groupId, eventId});
            if (it == mCallbacks.end()) return;
            callback = it->second;
        }
        callback(data);
    }

    // Delivers a resource monitor memory report to the (1, 1) subscriber.
    void deliverMemoryReport(uint8_t resourceType, uint8_t status, uint64_t value, uint64_t criticalThreshold) {
        const ResourceStatusRecord record{resourceType, status, value, criticalThreshold};
        ZelEventDispatcherInterface::deliverMemoryReport(record);
    }
    std::vector<Publication> publications() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mPublications;
    }
    // The events subscribed and not unsubscribed.
    std::vector<Event> subscriptions() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mSubscriptions;
    }

    // Set while no other thread uses the dispatcher; subscribeResult before
    // the subscriber is constructed.
    std::atomic<bool> publishResult{true};
    std::atomic<bool> subscribeResult{true};

private:
    mutable std::mutex mLock;  // guards everything below
    std::vector<Publication> mPublications;
    std::vector<Event> mSubscriptions;
    std::map<Event, EventCallback> mCallbacks;
};
