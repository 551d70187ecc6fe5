#pragma once

#include "rig/fastpeer.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

/// Answers 200 to every request. Records when the first and the last request of each drain arrived.
/// Thread: one; one drain at a time.
class Receiver
{
public:
    using Clock = rig::FastPeer::Clock;

    struct Drain
    {
        int requests = 0;
        Clock::time_point first;
        /// When the last of the expected requests arrived.
        Clock::time_point last;
        /// Request line and headers of the first request.
        std::string head;
    };

    /// Listens on a free port of 127.0.0.1. Throws std::system_error.
    Receiver();

    int port() const { return peer.port(); }
    /// From now on each answer is sent `delay` after its request.
    void setDelay(std::chrono::milliseconds delay) { peer.setDelay(delay); }

    /// Starts a new drain of `requests` requests; more may arrive.
    void expect(int requests);
    /// Waits until `requests` have arrived; false after `timeout`.
    bool wait(int requests, std::chrono::seconds timeout);
    Drain drain() const;

private:
    void count(const rig::FastPeer::Request &request);

    mutable std::mutex mutex;
    std::condition_variable arrived;
    int expected = 0;
    int awaited = 0;
    Drain current;
    /// Declared last, because its thread uses the other members.
    rig::FastPeer peer;
};
