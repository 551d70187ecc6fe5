#include "benchmarks/receiver.h"

Receiver::Receiver()
    : peer([this, ok = rig::FastPeer::reply(200)](const rig::FastPeer::Request &request) {
        count(request);
        return ok;
    })
{
}

void Receiver::expect(int requests)
{
    const std::scoped_lock lock(mutex);
    current = {};
    expected = requests;
}

bool Receiver::wait(int requests, std::chrono::seconds timeout)
{
    std::unique_lock lock(mutex);
    awaited = requests;
    return arrived.wait_for(lock, timeout,
                            [this, requests] { return current.requests >= requests; });
}

Receiver::Drain Receiver::drain() const
{
    const std::scoped_lock lock(mutex);
    return current;
}

void Receiver::count(const rig::FastPeer::Request &request)
{
    const std::scoped_lock lock(mutex);
    if (current.requests++ == 0) {
        current.first = request.time;
        current.head = request.head;
    }
    if (current.requests == expected)
        current.last = request.time;
    if (current.requests == awaited)
        arrived.notify_all();
}
