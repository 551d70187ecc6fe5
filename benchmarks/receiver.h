#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>

/// A local HTTP peer that costs as little as can be: one thread, kept-alive connections, the answer 200
/// to every request, and the time at which each drain's first and last request had arrived.
/// Thread: one, and one drain at a time.
class Receiver
{
public:
    using Clock = std::chrono::steady_clock;

    struct Drain
    {
        int requests = 0;
        int connections = 0;
        Clock::time_point first;
        /// When the last of the expected ones came.
        Clock::time_point last;
        /// Request line and headers of the first request.
        std::string head;
    };

    /// Listens on a free port of 127.0.0.1. Throws std::system_error.
    Receiver();
    ~Receiver();
    Receiver(const Receiver &) = delete;
    Receiver &operator=(const Receiver &) = delete;

    int port() const { return portNumber; }

    /// Forgets what came before. A drain has `requests` of them; more may come.
    void expect(int requests);
    /// Waits until so many have arrived; false when `timeout` passed first.
    bool wait(int requests, std::chrono::seconds timeout);
    Drain drain() const;

private:
    void run();
    void accept();
    /// False when the connection is over.
    bool read(int connection);
    void count(const std::string &head);

    int listener = -1;
    int poller = -1;
    int wakeUp = -1;
    int portNumber = 0;
    /// What has arrived of a request that is not whole yet. Touched by the receiver's thread alone.
    std::map<int, std::string> connections;

    mutable std::mutex mutex;
    std::condition_variable arrived;
    int expected = 0;
    int awaited = 0;
    Drain current;
    std::thread thread;
};
