#include "remote/HttpsClient.h"

#include "remote/Secret.h"

HttpsClient::Answer HttpsClient::exchange(httplib::Request request, RequestStop* stop) {
    Answer answer;
    const ConnectionPool::Lease lease = connection.take();
    const RequestStop::Watch watch(stop, [&lease] { lease.interrupt(); });
    if (stop && stop->requested()) {
        answer.error = "stopped";
        return answer;
    }
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + MOST_TIME;
    request.content_receiver = [&](const char* data, size_t size, uint64_t, uint64_t) {
        if (size > MOST_BODY - answer.body.size() || Clock::now() > end) return false;
        answer.body.append(data, size);
        return lease.allowFor(size);
    };
    lease.allowFor(request.content_length_);
    const BrokenPipeGuard noSignal;
    httplib::Response response;
    httplib::Error error = httplib::Error::Success;
    if (lease.client().send(request, response, error)) {
        answer.status = response.status;
    } else {
        answer.error = reasonOf(error);
    }
    for (auto& [name, value] : request.headers) {
        if (name == "Authorization") wipe(value);
    }
    return answer;
}
