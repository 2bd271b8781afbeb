#include "stub/CloudStub.h"
#include "TestFiles.h"

#define PICOJSON_USE_INT64
#include <picojson.h>

#include <httplib.h>
#include <optional>

// The stand-in service, asked over the wire by a plain HTTP client.

using namespace std::chrono_literals;

// Bytes of which no stretch looks like another.
static std::string someBytes(size_t size) {
    std::string bytes(size, '\0');
    uint32_t state = 1;
    for (char& byte : bytes) byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
    return bytes;
}

class CloudStubTest : public testing::Test {
protected:
    CloudStubTest() {
        StubOptions options;
        options.folder = folder.path / "cloud";
        options.users = {{"anna", "se&cret", 2, 4 << 20}, {"bert", "other"}};
        stub.emplace(options);
        token = signIn("anna", "se&cret");
    }

    std::unique_ptr<httplib::Client> client(const std::string& endpoint) const {
        auto made = std::make_unique<httplib::Client>(endpoint);
        made->set_ca_cert_path(stub->caFile().c_str());
        made->enable_server_certificate_verification(true);
        made->set_url_encode(false);
        made->set_read_timeout(60);
        return made;
    }

    // The status and the "value" of the answer; empty when that is null.
    std::pair<int, std::string> api(const std::string& target, const std::string& bearer, const char* post = nullptr) {
        const auto caller = client(stub->apiEndpoint());
        const httplib::Headers headers{{"Authorization", "Bearer " + bearer}};
        const auto answer =
            post ? caller->Post(target, headers, post, "application/x-www-form-urlencoded; charset=UTF-8")
                 : caller->Get(target, headers);
        if (!answer) return {-1, ""};
        picojson::value json;
        EXPECT_EQ("", picojson::parse(json, answer->body)) << answer->body;
        const picojson::value value = json.get("value");
        return {answer->status, value.is<picojson::null>() ? "" : value.to_str()};
    }
    std::string call(const std::string& target) { return api(target, token).second; }

    std::string signIn(const std::string& name, const std::string& password) {
        const std::string answer = api("/Login/?product=1", "username=" + name + "&password=" + password).second;
        return answer.substr(0, answer.find(','));
    }

    httplib::Result get(const std::string& url) {
        return client(stub->storeEndpoint())->Get(url.substr(stub->storeEndpoint().size()));
    }
    // The status, or -1 without an answer.
    int put(const std::string& url, const std::string& body) {
        if (!url.starts_with(stub->storeEndpoint())) return -2;
        const auto answer = client(stub->storeEndpoint())->Put(url.substr(stub->storeEndpoint().size()), body, "");
        return answer ? answer->status : -1;
    }

    const TemporaryFolder folder;
    std::optional<CloudStub> stub;
    std::string token;
};

TEST_F(CloudStubTest, LetsNobodyBeyondTheirAccount) {
    EXPECT_EQ(400, api("/Login/?product=1", "username=anna&password=secret").first);
    EXPECT_EQ(401, api("/ListFiles/", "").first);
    EXPECT_EQ(401, api("/DeleteFiles/", "", R"([{"Key":"eu/anna/a"}])").first);

    const std::string small = "/MultipartAction/?filename=a.opc&job=smallupload&fileSize=";
    EXPECT_EQ("", call(small + "5")) << "above the limit of 4 MiB";
    const std::string url = call(small + "0");
    EXPECT_EQ(507, put(url, someBytes((4 << 20) + 1))) << "more than was announced";
    EXPECT_EQ(200, put(url, "tiny"));
    EXPECT_EQ(R"({"storage_limit":4194304,"storage_used":4,"tier":2})", call("/GetGlimmetData/"));
    for (const char* name : {"", ".%00", "..%2F..%2Fx", "a/b", "a%2Cb", "a%22b"}) {
        EXPECT_EQ("", call("/MultipartAction/?filename=" + std::string(name) + "&job=init&fileSize=0")) << name;
    }
    ASSERT_EQ(200,
              put(call("/MultipartAction/?filename=..&job=smallupload&fileSize=0"), "dots are a name as any other"));

    const std::string id = call("/MultipartAction/?filename=c.opc&job=init&fileSize=0");
    const std::string part = call("/MultipartAction/?filename=c.opc&job=upload&uploadID=" + id + "&partNumber=1");
    EXPECT_EQ("", call("/MultipartAction/?filename=c.opc&job=upload&uploadID=" + id + "&partNumber=10001"));
    const std::string anna = std::exchange(token, signIn("bert", "other"));
    EXPECT_EQ("", call("/GetSignedURL/?file=eu/anna/a.opc"));
    EXPECT_EQ("", call("/MultipartAction/?filename=c.opc&job=abort&uploadID=" + id));
    EXPECT_EQ(400, api("/DeleteFiles/", token, R"([{"Key":"eu/anna/a.opc"}])").first);
    EXPECT_EQ(R"({"Contents":[]})", call("/ListFiles/"));
    EXPECT_EQ(1U, stub->openUploads());
    token = anna;
    call("/MultipartAction/?filename=c.opc&job=abort&uploadID=" + id);
    EXPECT_EQ(0U, stub->openUploads());
    EXPECT_EQ(404, put(part, "late"));

    EXPECT_EQ(400, api("/DeleteFiles/", token, R"([{"Key":"eu/anna/a"b"}])").first);
    EXPECT_EQ(200, api("/DeleteFiles/", token, R"([{"Key":"eu/anna/a.opc"},{"Key":"eu/anna/.."}])").first);
    EXPECT_TRUE(stub->keys().empty());
}

TEST_F(CloudStubTest, ChecksSignaturesAndExpiry) {
    ASSERT_EQ(200, put(call("/MultipartAction/?filename=a.opc&job=smallupload&fileSize=0"), "content"));
    const std::string url = call("/GetSignedURL/?duration=2&file=eu/anna/a.opc");
    EXPECT_EQ("content", get(url)->body);
    std::string later = url;
    later.replace(later.find("expires=") + 8, 1, "9");
    std::string elsewhere = url;
    elsewhere.replace(elsewhere.find("a.opc"), 5, "b.opc");
    for (const std::string& forged : {later, elsewhere, url + "0", url.substr(0, url.find('?'))}) {
        EXPECT_EQ(403, get(forged)->status) << forged;
    }
    EXPECT_EQ(403, put(url, "a URL to read")) << "is none to write";
    EXPECT_EQ(404, get(stub->signedUrl("eu/anna/b.opc", 1h))->status);
    stub->setClockAhead(48h - 60s);
    EXPECT_EQ(200, get(url)->status);
    stub->setClockAhead(48h + 1s);
    EXPECT_EQ(403, get(url)->status);

    // A mail carries only what the service signed itself.
    const std::string link = R"([")" + url + R"("])";
    EXPECT_EQ(200, api("/SendEmail/?email=c@example.org&time=2", token, link.c_str()).first);
    EXPECT_EQ(400, api("/SendEmail/?email=c@example.org&time=2", token, R"(["https://example.org/"])").first);
    ASSERT_EQ(1U, stub->mails().size());
    EXPECT_EQ(url, stub->mails().front().link);
    EXPECT_EQ("2", stub->mails().front().days);
}
