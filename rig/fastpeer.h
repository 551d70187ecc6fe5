#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <thread>

namespace rig {

/// A local HTTP peer for many thousand deliveries: plain sockets, one thread, kept-alive
/// connections.
/// Thread: any; the peer calls `Answer` in its own thread.
class FastPeer
{
public:
    using Clock = std::chrono::steady_clock;

    /// The views refer to the peer's buffers and are valid during the call of `Answer`.
    struct Request
    {
        /// Request line and header lines, without the empty line after them.
        std::string_view head;
        std::string_view verb;
        std::string_view target;
        std::string_view body;
        /// When the last byte was read.
        Clock::time_point time;
    };

    /// Returns the bytes of the answer to a request. Empty: no answer, and the connection stays
    /// open.
    using Answer = std::function<std::string(const Request &)>;

    /// Listens on a free port of 127.0.0.1. Throws std::system_error.
    explicit FastPeer(Answer answer);
    ~FastPeer();
    FastPeer(const FastPeer &) = delete;
    FastPeer &operator=(const FastPeer &) = delete;

    int port() const { return portNumber; }
    /// From now on each answer is sent `delay` after its request.
    void setDelay(std::chrono::milliseconds delay) { answerDelay = delay; }

    /// Call when all clients have ended: returns when every request that they sent is answered.
    void settle();

    /// The bytes of a complete answer.
    static std::string reply(int status, std::string_view body = {});

private:
    void run();
    void accept();
    /// False at the end of the connection.
    bool read(int connection);
    /// Sends the answers that are due.
    void sendLate();
    void forget(int connection);
    void setTimer();

    const Answer answer;
    int listener = -1;
    int poller = -1;
    int wakeUp = -1;
    int portNumber = 0;
    /// Incomplete requests by connection. Used only by the peer's thread.
    std::map<int, std::string> connections;
    std::atomic<int> openConnections = 0;
    std::atomic<std::chrono::milliseconds> answerDelay{};
    /// Answers that are not due yet, sorted by time. Used only by the peer's thread.
    struct Late
    {
        Clock::time_point due;
        int connection = -1;
        std::string bytes;
    };
    std::deque<Late> late;
    int timer = -1;
    std::thread thread;
};

} // namespace rig
