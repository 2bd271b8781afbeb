#include "stub/WebApi.h"
#include "stub/UrlText.h"

#define PICOJSON_USE_INT64
#include <picojson.h>

#include <algorithm>
#include <charconv>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <openssl/crypto.h>

// Each answer is a JSON object with the payload, always a text, in "value"; "null" stands for a refusal. Queries are
// read by what stands around a file's name, since names travel without escaping.

static constexpr int64_t MEBIBYTE = int64_t{1} << 20;
static constexpr size_t MOST_MAILS = 1000;

WebApi::WebApi(const StubOptions& optionsToUse, const std::string& storeEndpointToUse, ObjectStore& storeToUse)
    : options(optionsToUse), storeEndpoint(storeEndpointToUse), store(storeToUse) {}

void WebApi::addTo(StubServer& server, const StoreService& serviceToUse) {
    service = &serviceToUse;
    server.onGet([this](const StubServer::Exchange& exchange) { get(exchange); });
    server.onPost([this](const StubServer::Exchange& exchange) { post(exchange); });
}

static void answer(httplib::Response& response, const std::optional<std::string>& value) {
    picojson::object json;
    json["value"] = value ? picojson::value(*value) : picojson::value();
    response.status = 200;
    response.set_content(picojson::value(json).serialize(), "application/json");
}

static void refuse(httplib::Response& response, int status, const char* message) {
    response.status = status;
    response.set_content(std::string("{\"message\":\"") + message + "\"}", "application/json");
}

static int64_t numberIn(const std::string& text) {
    int64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

static bool isSame(const std::string& given, const std::string& expected) {
    return given.size() == expected.size() && CRYPTO_memcmp(given.data(), expected.data(), given.size()) == 0;
}

std::string WebApi::prefixOf(const StubUser& user) const {
    return options.country + "/" + user.name + "/";
}

int64_t WebApi::roomFor(const std::string& key) const {
    for (const StubUser& user : options.users) {
        const std::string prefix = prefixOf(user);
        if (key.starts_with(prefix)) return user.storageLimit - store.used(prefix);
    }
    return 0;
}

std::vector<StubMail> WebApi::mails() const {
    const std::scoped_lock lock(mutex);
    return sentMails;
}

const StubUser* WebApi::userOf(const httplib::Request& request) const {
    const std::string given = request.get_header_value("Authorization");
    const std::scoped_lock lock(mutex);
    for (const Session& session : sessions) {
        if (isSame(given, "Bearer " + session.token)) return session.user;
    }
    return nullptr;
}

// Name and password come unescaped and may hold anything, so the whole text is compared with that of each account.
void WebApi::signIn(const StubServer::Exchange& exchange) {
    const std::string given = exchange.request.get_header_value("Authorization");
    const auto matches = [&given](const StubUser& user) {
        return isSame(given, "Bearer username=" + user.name + "&password=" + user.password);
    };
    const auto user = std::ranges::find_if(options.users, matches);
    if (user == options.users.end()) return refuse(exchange.response, 400, "wrong name or password");
    Session session{randomHex(16), &*user};
    answer(exchange.response, session.token + "," + user->name);
    const std::scoped_lock lock(mutex);
    if (sessions.size() >= MOST_SESSIONS) sessions.pop_front();
    sessions.push_back(std::move(session));
}

void WebApi::get(const StubServer::Exchange& exchange) {
    const std::string& target = exchange.request.target;
    httplib::Response& response = exchange.response;
    if (target.starts_with("/Login/")) return signIn(exchange);
    const StubUser* user = userOf(exchange.request);
    if (user == nullptr) return refuse(response, 401, "not signed in");
    if (target.starts_with("/GetGlimmetData/?storage=storage_location")) return answer(response, options.country);
    if (target.starts_with("/GetGlimmetData/")) return answer(response, figures(*user));
    if (target.starts_with("/ListFiles/")) return answer(response, listing(*user));
    if (target.starts_with("/GetSignedURL/?")) return answer(response, signedUrl(*user, target));
    if (target.starts_with("/MultipartAction/?")) return multipart(*user, exchange);
    refuse(response, 404, "there is no such operation");
}

void WebApi::post(const StubServer::Exchange& exchange) {
    const httplib::Request& request = exchange.request;
    const StubUser* user = userOf(request);
    if (user == nullptr) return refuse(exchange.response, 401, "not signed in");
    bool isDone = false;
    if (request.target.starts_with("/DeleteFiles/")) {
        isDone = removeAll(*user, request.body);
    } else if (request.target.starts_with("/SendEmail/?email=")) {
        isDone = sendMail(request.target, request.body);
    } else {
        return refuse(exchange.response, 404, "there is no such operation");
    }
    if (!isDone) return refuse(exchange.response, 400, "the request makes no sense");
    answer(exchange.response, "OK");
}

std::string WebApi::figures(const StubUser& user) const {
    picojson::object json;
    json["storage_used"] = picojson::value(store.used(prefixOf(user)));
    json["storage_limit"] = picojson::value(user.storageLimit);
    json["tier"] = picojson::value(user.tier);
    return picojson::value(json).serialize();
}

std::string WebApi::listing(const StubUser& user) const {
    picojson::array contents;
    for (const ObjectStore::Object& object : store.list(prefixOf(user))) {
        picojson::object entry;
        entry["Key"] = picojson::value(object.key);
        entry["LastModified"] = picojson::value(fmt::format("{:%Y-%m-%dT%H:%M:%S}.000Z", fmt::gmtime(object.modified)));
        entry["Size"] = picojson::value(object.size);
        contents.emplace_back(entry);
    }
    picojson::object json;
    json["Contents"] = picojson::value(contents);
    return picojson::value(json).serialize();
}

// Signed whether the object exists or not, as object stores do; without a duration for as long as a session may last.
WebApi::Answer WebApi::signedUrl(const StubUser& user, const std::string& target) const {
    const std::string key = between(target, "file=", {});
    if (!key.starts_with(prefixOf(user)) || !ObjectStore::isName(key.substr(prefixOf(user).size()))) return {};
    std::chrono::seconds validity = options.validity;
    if (target.find("?duration=") != std::string::npos) {
        constexpr int64_t MOST_DAYS = 36500;
        validity = std::chrono::hours(
            24 * std::clamp<int64_t>(numberIn(between(target, "?duration=", "&file=")), 0, MOST_DAYS));
    }
    return storeEndpoint + service->urlToGet(key, validity);
}

WebApi::Answer WebApi::beginUpload(const StubUser& user, const std::string& name, const std::string& target) {
    const std::string key = prefixOf(user) + name;
    const int64_t size = numberIn(between(target, "&fileSize=", {}));
    if (!ObjectStore::isName(name) || size < 0 || size > roomFor(key) / MEBIBYTE) return {};
    if (target.find("&job=smallupload&") != std::string::npos) {
        return storeEndpoint + service->urlToPut(key, options.validity);
    }
    std::string id = store.beginUpload(key);
    return id.empty() ? Answer() : Answer(std::move(id));
}

bool WebApi::ownsUpload(const StubUser& user, const std::string& name, const std::string& id) const {
    return store.keyOfUpload(id) == prefixOf(user) + name;
}

// A status tells that an upload cannot be completed, since clients do not look at the value then.
void WebApi::complete(const StubUser& user, const std::string& name, const std::string& id,
                      httplib::Response& response) {
    const bool isDone =
        store.isCompleted(id, prefixOf(user) + name) || (ownsUpload(user, name, id) && store.completeUpload(id));
    isDone ? answer(response, "OK") : refuse(response, 409, "there is no such upload, or not all of its parts");
}

void WebApi::multipart(const StubUser& user, const StubServer::Exchange& exchange) {
    const std::string& target = exchange.request.target;
    httplib::Response& response = exchange.response;
    const size_t job = std::min(target.rfind("&job="), target.size());
    const std::string name = between(target, "filename=", "&job=");
    const std::string query = target.substr(job);
    if (query.starts_with("&job=init&") || query.starts_with("&job=smallupload&")) {
        return answer(response, beginUpload(user, name, query));
    }
    const bool isPart = query.starts_with("&job=upload&");
    const std::string id = between(query, "&uploadID=", isPart ? "&partNumber=" : "");
    if (query.starts_with("&job=complete&")) return complete(user, name, id, response);
    if (!ownsUpload(user, name, id)) return answer(response, {});
    if (isPart) {
        const int64_t number = numberIn(between(query, "&partNumber=", {}));
        if (number < 1 || number > ObjectStore::MOST_PARTS) return answer(response, {});
        return answer(response, storeEndpoint + service->urlToPutPart(id, static_cast<int>(number), options.validity));
    }
    if (!query.starts_with("&job=abort&")) return answer(response, {});
    store.abortUpload(id);
    answer(response, "OK");
}

// All or none. Removing what is not there is no failure.
bool WebApi::removeAll(const StubUser& user, const std::string& body) {
    picojson::value json;
    if (!picojson::parse(json, body).empty() || !json.is<picojson::array>()) return false;
    std::vector<std::string> keys;
    for (const picojson::value& entry : json.get<picojson::array>()) {
        if (!entry.is<picojson::object>() || !entry.get("Key").is<std::string>()) return false;
        keys.push_back(entry.get("Key").get<std::string>());
        if (!keys.back().starts_with(prefixOf(user))) return false;
    }
    for (const std::string& key : keys) store.remove(key);
    return !keys.empty();
}

// No mail goes anywhere: it is kept for whoever looks.
bool WebApi::sendMail(const std::string& target, const std::string& body) {
    picojson::value json;
    if (!picojson::parse(json, body).empty() || !json.is<picojson::array>()) return false;
    const picojson::array& links = json.get<picojson::array>();
    if (links.size() != 1 || !links.front().is<std::string>()) return false;
    StubMail mail{between(target, "?email=", "&time="), between(target, "&time=", {}),
                  links.front().get<std::string>()};
    if (mail.email.find('@') == std::string::npos || !mail.link.starts_with(storeEndpoint + "/")) return false;
    const std::scoped_lock lock(mutex);
    if (sentMails.size() < MOST_MAILS) sentMails.push_back(std::move(mail));
    return true;
}
