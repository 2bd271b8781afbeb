#include "remote/CloudTest.h"
#include "remote/HttpsOrigin.h"
#include "remote/S3Utils.h"

#include <atomic>
#include <ctime>
#include <httplib.h>
#include <thread>
#include <tuple>
#include <unistd.h>

// A fault that answers 200 with a body of ours.
static StubFault says(std::string body) {
    return {.status = 200, .body = std::move(body)};
}

TEST(HttpsOrigin, TakesNothingButHttpsAndAHost) {
    const std::tuple<const char*, const char*, int> sound[] = {
        {"https://a.example", "a.example", 443}, {"https://a-b:8443/", "a-b", 8443}, {"https://[::1]:5", "::1", 5}};
    for (const auto& [text, host, port] : sound) {
        const auto origin = HttpsOrigin::parse(text);
        ASSERT_TRUE(origin) << text;
        EXPECT_EQ(std::tuple(std::string(host), port), std::tuple(origin->host, origin->port));
    }
    for (const char* text : {"", "https://", "http://a", "HTTPS://a", "a", "https://a/b", "https://u@a", "https://a:0",
                             "https://a:65536", "https://a:1x", "https://[::1", "https://a\r\nb", "https://:1"}) {
        EXPECT_FALSE(HttpsOrigin::parse(text)) << text;
    }
    EXPECT_FALSE(HttpsOrigin::parse("https://" + std::string(1 << 20, 'a')));
    const HttpsOrigin origin = *HttpsOrigin::parse("https://a:1");
    EXPECT_EQ("/b%2F?c=%20", origin.targetOf("https://a:1/b%2F?c=%20"));
    for (const char* url : {"https://a:1", "https://a:12/b", "https://a.b/", "http://a:1/b", "https://a:1/b c",
                            "https://a:1/b\r\nX: y", "xhttps://a:1/"}) {
        EXPECT_EQ("", origin.targetOf(url)) << url;
    }
}

using CloudApi = CloudTest;

TEST_F(CloudApi, SignsInWithoutTellingTheLog) {
    char host[80] = {};
    ::gethostname(host, sizeof(host) - 1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, signIn());
    EXPECT_EQ(L"", std::wstring(listGlimmetFiles()));
    resetGlimmetNetwork();
    const std::string log = testing::internal::GetCapturedStdout();
    const std::vector<StubRequest> requests = service->requests();
    ASSERT_LE(3U, requests.size());
    EXPECT_EQ("/Login/?product=7", requests[0].target);
    EXPECT_EQ("Bearer username=ada&password=pass word", requests[0].authorization);
    EXPECT_EQ(host, requests[0].forwardedFor);
    EXPECT_EQ("/GetGlimmetData/?storage=storage_location", requests[1].target);
    const std::string token = requests[1].authorization.substr(std::string("Bearer ").size());
    EXPECT_EQ(log, std::string(host) + "\nLogin Result: 0\nLogin Info: ***,ada\n" + host + "\n");
    EXPECT_EQ(token, S3Utils::refreshIDToken(""));
    EXPECT_EQ(PREFIX, S3Utils::refreshPrefix(""));

    // What is asked several times within two seconds is sent once, failures are not kept, and the next sign-in begins
    // anew. A machine that was busy with something else for so long gets another try.
    std::time_t begin;
    do {
        begin = std::time(nullptr);
        service->forgetRequests();
        EXPECT_EQ(0, getGlimmetStorage());
        EXPECT_EQ(int64_t{10} << 30, getGlimmetStorageLimit());
        EXPECT_EQ(1, getGlimmetTier());
    } while (std::time(nullptr) - begin >= 2);
    EXPECT_GE(1U, requestsTo("/").size());
    EXPECT_EQ(0, signIn());
    service->setFaults([](const StubRequest&) { return says(R"({"value":[1]})"); });
    EXPECT_EQ(0, getGlimmetTier());
    service->setFaults([](const StubRequest&) { return says(R"({"value":"{\"tier\":3}"})"); });
    EXPECT_EQ(3, getGlimmetTier());
    service->setFaults({});
    EXPECT_EQ(3, getGlimmetTier());

    // Another endpoint signs out, and then nothing is sent.
    EXPECT_EQ(0, signIn());
    setGlimmetEndpoints((service->apiEndpoint() + "/").c_str(), nullptr, nullptr);
    EXPECT_NE(0, getGlimmetStorageLimit());
    setGlimmetEndpoints("https://127.0.0.1:1", nullptr, nullptr);
    setGlimmetEndpoints(service->apiEndpoint().c_str(), nullptr, nullptr);
    service->forgetRequests();
    EXPECT_EQ(0, getGlimmetStorageLimit());
    EXPECT_EQ(L"", std::wstring(listGlimmetFiles()));
    EXPECT_FALSE(deleteGlimmetFile(L"a"));
    emailGlimmetLink(L"b@c", L"a", 1);
    EXPECT_FALSE(uploadGlimmetFile(dir.writeWide("up", {1}).c_str()));
    EXPECT_EQ(-1, loadPointCloudGlimmet(L"a"));
    EXPECT_EQ(0U, service->requests().size());
    EXPECT_EQ("", S3Utils::refreshIDToken(""));
}

TEST_F(CloudApi, TellsRefusedSignInsApart) {
    const StubFault reset{.reset = true};
    const std::tuple<const char*, StubFault, int> cases[] = {
        {"400", {.status = 400}, 1},
        {"500", {.status = 500}, 2},
        {"403", {.status = 403}, -1},
        {"null", says(R"({"value":null})"), -1},
        {"no value", says("{}"), -1},
        {"no object", says("[3]"), -1},
        {"no JSON", says("<html>"), -1},
        {"deep JSON", says(std::string(100000, '[')), -1},
        {"a header's end in the token", says(R"({"value":"a\r\nb,c"})"), -1},
        {"reset", reset, -1},
    };
    for (const auto& [name, fault, expected] : cases) {
        service->setFaults([fault = fault](const StubRequest&) { return fault; });
        EXPECT_EQ(expected, signIn()) << name;
        EXPECT_EQ(0, getGlimmetStorageLimit()) << name;
    }
    service->setFaults({});
    EXPECT_EQ(-1, loginGlimmet(L"ada\r\nX: y", L"pass word", 7));
    EXPECT_EQ(1, loginGlimmet(L"ada", L"pass", 7));
    // Both parts are the whole of an answer without a comma.
    service->setFaults([](const StubRequest&) { return says(R"({"value":"eu"})"); });
    EXPECT_EQ(0, signIn());
    EXPECT_EQ("eu/eu/", S3Utils::refreshPrefix(""));
    // Every attempt is one request.
    service->setFaults([&](const StubRequest&) { return reset; });
    service->forgetRequests();
    EXPECT_EQ("", S3Utils::callLambdaURL("/x/", false, 3, "", "", nullptr));
    EXPECT_EQ("", S3Utils::callLambdaURL("/y/", false, 0, "", "", nullptr));
    EXPECT_EQ(3U, service->requests().size());
}

TEST_F(CloudApi, ManagesFiles) {
    ASSERT_EQ(0, signIn());
    const std::string source = dir.write("source", noise(1000));
    for (const char* name : {"one file.opc", "two.opc"}) service->addObject(PREFIX + std::string(name), source);
    const std::wstring listing = listGlimmetFiles();
    EXPECT_EQ(L"/one file.opc,", listing.substr(0, 14));
    EXPECT_NE(std::wstring::npos, listing.find(L"Z,1000,/two.opc,"));
    EXPECT_EQ(L",1000,", listing.substr(listing.size() - 6));
    EXPECT_TRUE(deleteGlimmetFile(L"two.opc"));
    EXPECT_FALSE(deleteGlimmetFile(L"a\"quote"));
    EXPECT_EQ(1U, service->keys().size());
    emailGlimmetLink(L"b@c.example", L"one file.opc", 3);
    ASSERT_EQ(1U, service->mails().size());
    EXPECT_EQ("3", service->mails()[0].days);
    const StubRequest post = requestsTo("/SendEmail/?email=b@c.example&time=3").at(0);
    EXPECT_EQ("application/x-www-form-urlencoded; charset=UTF-8", post.contentType);
    EXPECT_EQ("[\"" + service->mails()[0].link + "\"]", post.body);
    emailGlimmetLink(L"b@c.example", L"../outside", 3); // can't be signed
    EXPECT_EQ(1U, service->mails().size());

    // In use, but nothing to show: it asks again. Nothing in use: it does not ask.
    const auto listed = [this](const char* used) {
        service->setFaults([used](const StubRequest& request) {
            return says(request.target.starts_with("/ListFiles/") ? R"({"value":"{\"Contents\":[]}"})" : used);
        });
        service->forgetRequests();
        signIn();
        EXPECT_EQ(L"", std::wstring(listGlimmetFiles()));
        return requestsTo("/ListFiles/").size();
    };
    EXPECT_EQ(10U, listed(R"({"value":"{\"storage_used\":5}"})"));
    EXPECT_EQ(0U, listed(R"({"value":"{\"storage_used\":0}"})"));

    const std::tuple<const char*, const wchar_t*> shapes[] = {
        {R"({"Contents":[{"Key":"e/a/b,c","LastModified":"d","Size":9007199254740993}]})", L"/b,c,d,9007199254740993,"},
        {R"({"Contents":[{"Key":"/b","LastModified":"d","Size":1},{"Key":7}, 8]})", L"d,1,null,null,null,null,"},
        {R"({"Contents":{"Key":"a"}})", L""},
        {R"(["Contents"])", L""},
        {R"({"Contents":[1e999]})", L""},
        {"", L""}};
    for (const auto& [json, text] : shapes) EXPECT_EQ(text, S3Utils::listingText(json)) << json;
}

TEST_F(CloudApi, TrustsNobodyElse) {
    httplib::Server plain;
    std::atomic<int> plainRequests{0};
    plain.set_pre_routing_handler([&](const httplib::Request&, httplib::Response& response) {
        ++plainRequests;
        response.set_content(R"({"value":"token,ada"})", "application/json");
        return httplib::Server::HandlerResponse::Handled;
    });
    const int port = plain.bind_to_any_port("127.0.0.1");
    std::thread thread([&] { plain.listen_after_bind(); });
    const std::string plainUrl = "http://127.0.0.1:" + std::to_string(port);
    char byte = 0;
    const auto isRefused = [&](const char* name) {
        const std::string url = service->signedUrl(PREFIX + std::string("file"), std::chrono::hours(1));
        EXPECT_EQ(-1, signIn()) << name;
        EXPECT_FALSE(S3Utils::readData(url, &byte, 0, 1, false)) << name;
        return service->requests().empty() && S3Utils::simpleGet(service->apiEndpoint(), "/").empty();
    };
    StubOptions elsewhere;
    elsewhere.certificateHosts = {"elsewhere.example", "localhost"};
    startService(elsewhere);
    EXPECT_TRUE(isRefused("a certificate for another host"));
    startService({});
    StubAuthority().write(dir.path("other.pem"));
    ::setenv("SSL_CERT_FILE", dir.path("other.pem").c_str(), 1);
    EXPECT_TRUE(isRefused("an unknown authority"));

    startService({});
    service->addObject(PREFIX + std::string("file"), dir.write("source", {1}));
    service->setFaults(
        [&](const StubRequest& request) { return StubFault{.status = 302, .location = plainUrl + request.target}; });
    EXPECT_FALSE(isRefused("a redirect to plain HTTP"));
    setGlimmetEndpoints(plainUrl.c_str(), plainUrl.c_str(), nullptr);
    EXPECT_EQ(-1, signIn());
    EXPECT_FALSE(S3Utils::readData(plainUrl + "/file", &byte, 0, 1, false));
    EXPECT_EQ(0, plainRequests);

    // Any URL is the one way out in plain text, and bounded.
    std::string body(S3Utils::MOST_URL_DATA, '\0');
    EXPECT_EQ(21, getURLData(plainUrl.c_str(), "/", body.data()));
    EXPECT_EQ(R"({"value":"token,ada"})", body.substr(0, 21));
    plain.stop();
    thread.join();
    EXPECT_EQ(0, getURLData(plainUrl.c_str(), "/", body.data()));
    EXPECT_EQ(0, getURLData("ftp://127.0.0.1", "/", body.data()));
    EXPECT_EQ(0, getURLData(("http://" + std::string(1 << 20, 'a')).c_str(), "/", body.data()));
    const std::string letters = "https://[::ffff:127.0.0.1]:1"; // in an address
    setGlimmetEndpoints(letters.c_str(), letters.c_str(), nullptr);
    EXPECT_EQ(-1, signIn());
    EXPECT_FALSE(S3Utils::readData(letters + "/file", &byte, 0, 1, false));
}
