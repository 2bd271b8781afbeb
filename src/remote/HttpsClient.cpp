// The library's own way to end a request from another thread waits while the connection is being made, which can take
// minutes. interrupt() works on the socket instead, through a handle of its own that shares it.

#include "remote/HttpsClient.h"

#include "remote/ConnectionPool.h"
#include "remote/Secret.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

HttpsClient::HttpsClient(const HttpsOrigin& origin, bool keepAlive)
    : http(std::make_unique<httplib::SSLClient>(origin.host, origin.port)) {
    if (http->ssl_context()) origin.expectIn(http->ssl_context());
    http->set_keep_alive(keepAlive);
    http->set_tcp_nodelay(true);
    http->set_socket_options([this](socket_t handle) { watchSocket(handle); });
}

HttpsClient::~HttpsClient() {
    const BrokenPipeGuard noSignal; // a client says goodbye when it goes
    http.reset();
    if (socketHandle != -1) ::close(socketHandle);
}

void HttpsClient::watchSocket(int handle) {
    std::lock_guard lock(handleMutex);
    if (socketHandle != -1) ::close(socketHandle);
    socketHandle = ::fcntl(handle, F_DUPFD_CLOEXEC, 0);
}

void HttpsClient::interrupt() {
    std::lock_guard lock(handleMutex);
    if (socketHandle != -1) ::shutdown(socketHandle, SHUT_RDWR);
}

HttpsClient::Answer HttpsClient::exchange(httplib::Request request, RequestStop* stop) {
    Answer answer;
    auto accept = std::move(request.response_handler);
    request.response_handler = [&](const httplib::Response& response) {
        answer.statusSeen = response.status;
        return !accept || accept(response);
    };
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + MOST_TIME;
    if (!request.content_receiver) {
        request.content_receiver = [&](const char* data, size_t size, uint64_t, uint64_t) {
            if (size > MOST_BODY - answer.body.size() || Clock::now() > end) return false;
            answer.body.append(data, size);
            return true;
        };
    }
    std::lock_guard lock(turn);
    const RequestStop::Watch watch(stop, [this] { interrupt(); });
    if (stop && stop->requested()) {
        answer.error = "stopped";
        return answer;
    }
    const BrokenPipeGuard noSignal;
    httplib::Response response;
    httplib::Error error = httplib::Error::Success;
    if (http->send(request, response, error)) {
        answer.status = response.status;
    } else {
        answer.isRefused = error == httplib::Error::Canceled;
        answer.error = httplib::to_string(error);
    }
    for (auto& [name, value] : request.headers) {
        if (name == "Authorization") wipe(value);
    }
    return answer;
}
