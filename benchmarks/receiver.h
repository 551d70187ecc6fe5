#pragma once

#include "rig/fastpeer.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

/// Answers 200 to every request and notes the time at which each drain's first and last request had
/// arrived.
/// Thread: one, and one drain at a time.
class Receiver
{
public:
    using Clock = rig::FastPeer::Clock;

    struct Drain
    {
        int requests = 0;
        Clock::time_point first;
        /// When the last of the expected ones came.
        Clock::time_point last;
        /// Request line and headers of the first request.
        std::string head;
    };

    /// Listens on a free port of 127.0.0.1. Throws std::system_error.
    Receiver();

    int port() const { return peer.port(); }
    /// Answers from now on are given `delay` after their request.
    void setDelay(std::chrono::milliseconds delay) { peer.setDelay(delay); }

    /// Forgets what came before. A drain has `requests` of them; more may come.
    void expect(int requests);
    /// Waits until so many have arrived; false when `timeout` passed first.
    bool wait(int requests, std::chrono::seconds timeout);
    Drain drain() const;

private:
    void count(const rig::FastPeer::Request &request);

    mutable std::mutex mutex;
    std::condition_variable arrived;
    int expected = 0;
    int awaited = 0;
    Drain current;
    /// Calls from a thread of its own, so it ends before the rest.
    rig::FastPeer peer;
};
