#pragma once

#include <QByteArray>

#include <atomic>
#include <mutex>
#include <thread>

namespace fuzz {

/// A TCP peer on a free port of 127.0.0.1, in a thread of its own: it greets every caller with the same
/// bytes and reads what the caller says to its end.
class PlayedPeer
{
public:
    PlayedPeer();
    ~PlayedPeer();
    PlayedPeer(const PlayedPeer &) = delete;

    int port() const { return portNumber; }
    /// What the next caller is greeted with.
    void play(const QByteArray &bytes);

private:
    void serve();

    std::mutex mutex;
    QByteArray greeting;
    int listener = -1;
    int portNumber = 0;
    std::atomic<bool> isEnding{false};
    std::thread thread;
};

} // namespace fuzz
