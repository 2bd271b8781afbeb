// The web API. Every call is one GET through callLambdaURL, apart from two POSTs. The bearer is a header of each
// request rather than a setting of the client, so that calls from several threads do not meet each other's, and no
// client keeps a password.

#include "remote/S3Utils.h"

#include "ground/Log.h"
#include "remote/ApiAnswer.h"
#include "remote/CloudSession.h"
#include "remote/ConnectionPool.h"
#include "remote/Secret.h"

#include <algorithm>
#include <cstdio>
#include <httplib.h>
#include <unistd.h>

static constexpr int OK = 200;

static CloudSession& session() {
    return CloudSession::instance();
}

// ---- Calls

static std::string hostName() {
    char name[80] = {};
    ::gethostname(name, sizeof(name) - 1);
    return name;
}

static httplib::Headers apiHeaders(bool authorised, const std::string& token) {
    httplib::Headers headers;
    if (!authorised) {
        const std::string name = hostName();
        logText(name + "\n");
        headers.emplace("x-forwarded-for", name);
    }
    const Secret bearer(!token.empty() ? token : authorised ? session().idToken("") : std::string());
    if (!bearer.text.empty()) headers.emplace("Authorization", "Bearer " + bearer.text);
    return headers;
}

// A line end in a header would begin another one.
static bool fitsHeader(std::string_view text) {
    return std::none_of(text.begin(), text.end(), [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; });
}

namespace {

// One call of the API and what came of its attempts so far.
struct LambdaCall {
    std::string url;
    bool authorised;
    const std::string& token;
    int* status;
    RequestStop* stop;
    std::string result;

    // True when this was the last attempt.
    bool attempt(HttpsClient& client);
    void refused(int httpStatus);
};

bool LambdaCall::attempt(HttpsClient& client) {
    httplib::Request request;
    request.method = "GET";
    request.path = url;
    request.headers = apiHeaders(authorised, token);
    const HttpsClient::Answer answer = client.exchange(std::move(request), stop);
    if (answer.status == -1) {
        logText("Unable to call Glimmet API...\n");
        setLastError("the service does not answer: " + answer.error);
        return stop && stop->requested();
    }
    if (answer.status != OK) {
        refused(answer.status);
        return false;
    }
    const std::optional<std::string> payload = payloadOf(answer.body);
    if (!payload) {
        setLastError("the service's answer can't be understood");
        return false;
    }
    if (status) *status = 0;
    result = *payload;
    return true;
}

void LambdaCall::refused(int httpStatus) {
    setLastError("the service answered with status " + std::to_string(httpStatus));
    if (url.find("/Login/") == std::string::npos) return;
    result = "LoginFail";
    logText("LOGIN FAIL " + std::to_string(httpStatus) + "\n");
    if (!status) return;
    if (httpStatus == 500) *status = 2;
    if (httpStatus == 400) *status = 1;
}

} // namespace

// The client of a call, or a reason for nimbrelLastError why nothing is to be sent.
static std::shared_ptr<HttpsClient> clientFor(bool authorised) {
    if (authorised && !session().isSignedIn()) {
        setLastError("nobody is signed in to the cloud service");
        return nullptr;
    }
    auto client = session().apiClient(authorised);
    if (!client) setLastError("no cloud service is set");
    return client;
}

static void reportException(const std::exception& failure) {
    std::fprintf(stderr, "Request failed, error: %s\n", failure.what());
}

std::string S3Utils::callLambdaURL(std::string url, bool authorised, int retries, const std::string& token,
                                   const std::string& query, int* status, RequestStop* stop) {
    if (retries <= 0 || !fitsHeader(token)) return {};
    LambdaCall call{std::move(url), authorised, token, status, stop, {}};
    try {
        const auto client = clientFor(authorised);
        if (!client) return {};
        for (int i = 0; i < retries; ++i) {
            // Onto what the attempt before sent: deliberate, services know it.
            if (!query.empty()) call.url += "?" + query;
            if (call.attempt(*client)) break;
        }
    } catch (const std::exception& failure) {
        reportException(failure);
    }
    return std::move(call.result);
}

int S3Utils::postToAPI(const std::string& url, const std::string& body) {
    try {
        const auto client = clientFor(true);
        if (!client) return -1;
        httplib::Request request;
        request.method = "POST";
        request.path = url;
        request.headers = apiHeaders(true, {});
        request.headers.emplace("Content-Type", "application/x-www-form-urlencoded; charset=UTF-8");
        request.body = body;
        const HttpsClient::Answer answer = client->exchange(std::move(request));
        if (answer.status == -1) {
            setLastError("the service does not answer: " + answer.error);
        } else if (answer.status >= 300) {
            setLastError("the service answered with status " + std::to_string(answer.status));
        }
        return answer.status;
    } catch (const std::exception& failure) {
        reportException(failure);
        return -1;
    }
}

std::string S3Utils::simpleGet(const std::string& host, const std::string& path) {
    const BrokenPipeGuard noSignal;
    try {
        ConnectionPool connection(
            [&host] {
                auto client = makeClientOf(host);
                client->set_keep_alive(false);
                client->set_read_timeout(2, 0);
                return client;
            },
            1);
        const ConnectionPool::Lease lease = connection.take();
        std::string body;
        bool isFull = false;
        const auto end = std::chrono::steady_clock::now() + HttpsClient::MOST_TIME; // bodies may come in drops
        httplib::Request request;
        request.method = "GET";
        request.path = path;
        request.content_receiver = [&](const char* data, size_t size, uint64_t, uint64_t) {
            isFull = size > MOST_URL_DATA - body.size();
            body.append(data, std::min(size, MOST_URL_DATA - body.size()));
            return !isFull && std::chrono::steady_clock::now() < end && lease.allowFor(size);
        };
        httplib::Response response;
        httplib::Error error = httplib::Error::Success;
        const bool answered = lease.client().send(request, response, error);
        return answered || isFull ? body : std::string();
    } catch (const std::exception& failure) {
        reportException(failure);
        return {};
    }
}

// ---- The sign-in

std::string S3Utils::refreshIDToken(const std::string& newValue) {
    return session().idToken(newValue);
}

std::string S3Utils::refreshPrefix(const std::string& newValue) {
    return session().prefixFolder(newValue) + "/";
}

std::string S3Utils::refreshUploadFilename(const std::string& newValue) {
    return session().uploadFilename(newValue);
}

std::string S3Utils::refreshUploadID(const std::string& newValue) {
    return session().uploadID(newValue);
}

std::string S3Utils::getCountry() {
    const std::string region = callLambdaURL("/GetGlimmetData/?storage=storage_location", true, 3, "", "", nullptr);
    return region.empty() ? "eu" : region;
}

// Without reallocation, which would leave copies of the password behind.
static std::string signInForm(std::string_view username, std::string_view password) {
    constexpr std::string_view NAME = "username=";
    constexpr std::string_view WORD = "&password=";
    std::string form;
    form.reserve(NAME.size() + username.size() + WORD.size() + password.size());
    return form.append(NAME).append(username).append(WORD).append(password);
}

int S3Utils::login(std::wstring_view username, std::wstring_view password, int product) {
    session().signOut();
    int status = -1;
    const Secret name(toUtf8(username));
    const Secret word(toUtf8(password));
    const Secret form(signInForm(name.text, word.text));
    if (!fitsHeader(form.text)) {
        setLastError("a name or password can't hold control characters");
    }
    const Secret answer(callLambdaURL("/Login/", false, 1, form.text, "product=" + std::to_string(product), &status));
    if (status == 0 && answer.text.empty()) status = -1;
    logText("Login Result: " + std::to_string(status) + "\n");

    // Without a comma both parts are the whole answer.
    const size_t comma = answer.text.find(',');
    const std::string folder = answer.text.substr(comma == std::string::npos ? 0 : comma + 1);
    if (status != 0) {
        logText("Login Info: " + answer.text + "\n");
        return status;
    }
    logText("Login Info: ***" + (comma == std::string::npos ? std::string() : "," + folder) + "\n");
    const Secret token(answer.text.substr(0, comma));
    if (!fitsHeader(token.text)) {
        setLastError("the service's answer can't be understood");
        return -1;
    }
    session().signIn(token.text);
    refreshPrefix(getCountry() + "/" + folder);
    return status;
}

// ---- The account

int64_t S3Utils::getDatabaseNumberValue(int which) {
    return accountFigure(which == 0 ? "storage_used" : which == 1 ? "storage_limit" : "tier").value_or(0);
}

std::optional<int64_t> S3Utils::accountFigure(const char* name) {
    constexpr std::time_t GOOD_FOR = 2;
    CloudSession::AccountRecord record = session().accountRecord();
    const std::time_t now = std::time(nullptr);
    if (record.text.empty() || now - record.timeOfLastCall >= GOOD_FOR) {
        record.text = callLambdaURL("/GetGlimmetData/", true, 3, "", "", nullptr);
        if (!parseJSON(record.text)) record.text.clear();
    }
    // Every call counts, fetched or not: steady polling keeps what was fetched first.
    record.timeOfLastCall = now;
    session().keepAccountRecord(record);
    return figureIn(record.text, name);
}

int S3Utils::getTier() {
    const int known = session().knownTier();
    if (known != CloudSession::TIER_NOT_KNOWN) return known;
    const uint64_t signIn = session().accountRecord().signIn;
    const std::optional<int64_t> tier = accountFigure("tier");
    if (tier) session().keepTier(static_cast<int>(*tier), signIn);
    return static_cast<int>(tier.value_or(0));
}

void S3Utils::resetNetwork() {
    session().dropClients();
    logText(hostName() + "\n"); // as whenever the client for calls before a sign-in is set up
}
