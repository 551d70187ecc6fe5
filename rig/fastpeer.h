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
/// Thread: any; the answers are asked for in the receiver's own thread.
class FastPeer
{
public:
    using Clock = std::chrono::steady_clock;

    /// The texts are the receiver's own and live for as long as the answer is being made.
    struct Request
    {
        /// Request line and header lines, without the empty line behind them.
        std::string_view head;
        std::string_view verb;
        std::string_view target;
        std::string_view body;
        /// When its last byte had been read.
        Clock::time_point time;
    };

    /// The bytes of the answer to a request. Empty: none is given, and the connection stays open.
    using Answer = std::function<std::string(const Request &)>;

    /// Listens on a free port of 127.0.0.1. Throws std::system_error.
    explicit FastPeer(Answer answer);
    ~FastPeer();
    FastPeer(const FastPeer &) = delete;
    FastPeer &operator=(const FastPeer &) = delete;

    int port() const { return portNumber; }
    /// Answers from now on go out `delay` after their request.
    void setDelay(std::chrono::milliseconds delay) { answerDelay = delay; }

    /// Once the peers are gone: returns when everything that they had sent was answered.
    void settle();

    /// The bytes of a whole answer.
    static std::string reply(int status, std::string_view body = {});

private:
    void run();
    void accept();
    /// False when the connection is over.
    bool read(int connection);
    /// Sends what is due.
    void sendLate();
    void forget(int connection);
    void setTimer();

    const Answer answer;
    int listener = -1;
    int poller = -1;
    int wakeUp = -1;
    int portNumber = 0;
    /// What has arrived of a request that is not whole yet. Touched by the receiver's thread alone.
    std::map<int, std::string> connections;
    std::atomic<int> openConnections = 0;
    std::atomic<std::chrono::milliseconds> answerDelay{};
    /// Answers that are not due yet, in the order of their times. Touched by the receiver's thread
    /// alone.
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
