#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// One connection that the server has accepted. Closed when it goes.
class Connection {
public:
    explicit Connection(int socket)
        : socket_(socket) { }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
    ~Connection();

    /// What came up to the end of the request's headers, byte for byte.
    std::string readHead() const;
    /// @return false once the other side has closed
    bool send(std::string_view bytes) const;
    /// Has the other side see a reset instead of an end.
    void reset();
    /// Blocks until the other side closes.
    void awaitClose() const;

private:
    friend class LoopbackServer;
    int socket_;
};

/// An HTTP server on a free port of 127.0.0.1, as good or bad as its handler. Every connection has a thread
/// of its own. It ends all of them when it goes.
class LoopbackServer {
public:
    using Handler = std::function<void(Connection &, const std::string &head)>;

    /// @param handler  called with the request's head already read
    explicit LoopbackServer(Handler handler);
    ~LoopbackServer();

    std::string url(std::string_view pathAndQuery) const;
    std::uint16_t port() const { return port_; }
    /// The heads of the requests so far, in order of their arrival.
    std::vector<std::string> heads() const;
    std::size_t connectionCount() const { return connectionCount_; }

    /// Answers every request with this status and an empty body.
    static Handler answering(int status, std::string extraHeaders = {});

private:
    void serve();

    Handler handler_;
    int listening_;
    std::uint16_t port_ = 0;
    std::atomic<std::size_t> connectionCount_ { 0 };
    mutable std::mutex mutex_;
    std::vector<std::string> heads_;
    std::vector<int> open_;
    std::vector<std::thread> threads_;
    std::thread accepting_;
};
