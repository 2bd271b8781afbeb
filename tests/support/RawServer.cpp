#include "support/RawServer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

bool RawServer::Peer::send(std::string_view bytes) const {
    while (!bytes.empty() && !ending) {
        const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return !ending;
}

void RawServer::Peer::repeat(std::string_view piece, int pauseMs) const {
    while (send(piece)) ::poll(nullptr, 0, pauseMs);
}

void RawServer::Peer::keepSilent() const {
    char byte = 0;
    while (!ending && ::recv(socket, &byte, 1, 0) > 0) {
    }
}

RawServer::RawServer(Handler handlerIn) : handler(std::move(handlerIn)), listening(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listening, generic, length) != 0 || ::listen(listening, 64) != 0 ||
        ::getsockname(listening, generic, &length) != 0) {
        throw std::runtime_error("no port on loopback");
    }
    listeningPort = ntohs(address.sin_port);
    acceptor = std::thread([this] { accept(); });
}

RawServer::~RawServer() {
    ending = true;
    ::shutdown(listening, SHUT_RDWR);
    acceptor.join();
    ::close(listening);
    for (auto& [socket, thread] : peers) {
        ::shutdown(socket, SHUT_RDWR);
        thread.join();
        ::close(socket);
    }
}

void RawServer::accept() {
    for (int socket; (socket = ::accept(listening, nullptr, nullptr)) >= 0;) {
        ++accepted;
        std::lock_guard lock(mutex);
        peers.emplace_back(socket, std::thread([this, socket] { serve(socket); }));
    }
}

void RawServer::serve(int socket) {
    std::string received;
    char block[4096];
    for (ssize_t count; !ending && (count = ::recv(socket, block, sizeof(block), 0)) > 0;) {
        received.append(block, static_cast<size_t>(count));
        if (!received.ends_with("\r\n\r\n")) continue;
        const std::string line = received.substr(0, received.find('\r'));
        received.clear();
        {
            std::lock_guard lock(mutex);
            lines.push_back(line);
        }
        const size_t start = line.find(' ') + 1;
        if (!handler(line.substr(start, line.rfind(' ') - start), Peer(socket, ending))) break;
    }
    ::shutdown(socket, SHUT_RDWR);
}

std::wstring RawServer::url(const std::wstring& path) const {
    return L"http://127.0.0.1:" + std::to_wstring(listeningPort) + path;
}

std::vector<std::string> RawServer::requests() const {
    std::lock_guard lock(mutex);
    return lines;
}

std::string RawServer::answer(std::string_view body, const char* status) {
    std::string text = std::string("HTTP/1.1 ") + status + "\r\nContent-Length: " + std::to_string(body.size());
    return text.append("\r\n\r\n").append(body);
}
