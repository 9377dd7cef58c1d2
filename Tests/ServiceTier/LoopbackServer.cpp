#include "Tests/ServiceTier/LoopbackServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>

Connection::~Connection() {
    ::close(socket_);
}

std::string Connection::readHead() const {
    std::string head;
    char letter = 0;
    while (!head.ends_with("\r\n\r\n") && ::recv(socket_, &letter, 1, 0) == 1)
        head += letter;
    return head;
}

bool Connection::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const auto count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

void Connection::reset() {
    const linger now { 1, 0 };
    ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

void Connection::awaitClose() const {
    std::array<char, 4096> bytes {};
    while (::recv(socket_, bytes.data(), bytes.size(), 0) > 0) { }
}

LoopbackServer::LoopbackServer(Handler handler)
    : handler_(std::move(handler))
    , listening_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto *const plain = reinterpret_cast<sockaddr *>(&address);
    if (::bind(listening_, plain, length) != 0 || ::listen(listening_, 64) != 0
        || ::getsockname(listening_, plain, &length) != 0)
        throw std::runtime_error("no loopback server");
    port_ = ntohs(address.sin_port);
    accepting_ = std::thread([this] { serve(); });
}

LoopbackServer::~LoopbackServer() {
    ::shutdown(listening_, SHUT_RDWR);
    accepting_.join();
    {
        const std::lock_guard lock(mutex_);
        for (const int socket : open_)
            ::shutdown(socket, SHUT_RDWR);
    }
    for (auto &thread : threads_)
        thread.join();
    ::close(listening_);
}

void LoopbackServer::serve() {
    for (;;) {
        const int socket = ::accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0)
            return;
        const std::lock_guard lock(mutex_);
        ++connectionCount_;
        open_.push_back(socket);
        threads_.emplace_back([this, socket] {
            Connection connection(socket);
            const auto head = connection.readHead();
            {
                const std::lock_guard headsLock(mutex_);
                heads_.push_back(head);
            }
            handler_(connection, head);
            const std::lock_guard openLock(mutex_);
            std::erase(open_, socket);
        });
    }
}

std::string LoopbackServer::url(std::string_view pathAndQuery) const {
    return "http://127.0.0.1:" + std::to_string(port_) + std::string(pathAndQuery);
}

std::vector<std::string> LoopbackServer::heads() const {
    const std::lock_guard lock(mutex_);
    return heads_;
}

LoopbackServer::Handler LoopbackServer::answering(int status, std::string extraHeaders) {
    return [status, extraHeaders = std::move(extraHeaders)](Connection &connection, const std::string &) {
        connection.send("HTTP/1.1 " + std::to_string(status) + " Whatever\r\n" + extraHeaders
            + "Content-Length: 0\r\nConnection: close\r\n\r\n");
    };
}
