#include "ProgramRunner.h"
#include "TestFiles.h"
#include "cloud/CloudService.h"
#include "stub/CloudStub.h"

#include <atomic>
#include <csignal>
#include <memory>
#include <optional>

// The program against the stand-in service, as a user runs it.

using namespace std::chrono_literals;

static const char* const PASSWORD = "se&cret";

class CloudCommandTest : public testing::Test {
protected:
    CloudCommandTest() {
        stub.emplace(settings("cloud"));
        setenv("SSL_CERT_FILE", stub->caFile().c_str(), 1);
        setenv("XDG_CONFIG_HOME", folder.file("config").c_str(), 1);
        use(*stub);
        setenv("NIMBREL_CLOUD_USER", "anna", 1);
        setenv("NIMBREL_CLOUD_PASSWORD", PASSWORD, 1);
        EXPECT_EQ(0, runNimbrel({"sample", folder.file("town.las"), "--points", "400000"}).status);
        EXPECT_EQ(0, runNimbrel({"build", folder.file("town.las"), "-o", cloud, "-q"}).status);
    }

    ~CloudCommandTest() override {
        for (const char* name : {"SSL_CERT_FILE", "XDG_CONFIG_HOME", "NIMBREL_CLOUD_API", "NIMBREL_CLOUD_STORE",
                                 "NIMBREL_CLOUD_USER", "NIMBREL_CLOUD_PASSWORD"}) {
            unsetenv(name);
        }
    }

    [[nodiscard]] StubOptions settings(const char* name) const {
        StubOptions options;
        options.folder = folder.path / name;
        options.users = {{"anna", PASSWORD, 3, 16 << 20}};
        options.authority = authority;
        return options;
    }
    static void use(const CloudStub& service) {
        setenv("NIMBREL_CLOUD_API", service.apiEndpoint().c_str(), 1);
        setenv("NIMBREL_CLOUD_STORE", service.storeEndpoint().c_str(), 1);
    }

    // Standard output. With the engine's log, which must hold no secret either.
    std::string run(std::vector<std::string> arguments, int status = 0, const char* problem = "") {
        arguments.emplace_back("-v");
        const RunResult result = runNimbrel(arguments);
        EXPECT_EQ(status, result.status) << arguments[0] << " " << arguments[1] << ": " << result.err;
        EXPECT_NE(std::string::npos, result.err.find(problem)) << problem << " is not in " << result.err;
        for (const char* secret : {PASSWORD, "signature=", "Bearer"}) {
            EXPECT_EQ(std::string::npos, (result.out + result.err).find(secret)) << result.out << result.err;
        }
        return result.out;
    }

    const TemporaryFolder folder;
    const std::string cloud = folder.file("town.opc");
    const std::shared_ptr<const StubAuthority> authority = std::make_shared<const StubAuthority>();
    std::optional<CloudStub> stub;
};

TEST_F(CloudCommandTest, KeepsFilesAndGivesThemBackUnchanged) {
    const std::string password = folder.write("password", std::string(PASSWORD) + "\n");
    unsetenv("NIMBREL_CLOUD_PASSWORD");
    const std::vector<std::string> login{"cloud", "login", "--password-stdin"};
    RunSetting input;
    input.input = cloud;
    EXPECT_EQ(1, runNimbrel(login, input).status) << "not the password";
    input.input = password;
    ASSERT_EQ(0, runNimbrel(login, input).status);
    const std::string kept = folder.file("config/nimbrel/cloud.json");
    EXPECT_EQ(std::filesystem::perms(0600), std::filesystem::status(kept).permissions());
    for (const char* name : {"NIMBREL_CLOUD_API", "NIMBREL_CLOUD_STORE", "NIMBREL_CLOUD_USER"}) unsetenv(name);

    EXPECT_EQ("", run({"cloud", "ls"}));
    EXPECT_EQ("cloud:town.opc: 5.3 MiB\n", run({"cloud", "put", cloud}));
    run({"cloud", "put", cloud}, 1, "--force");
    EXPECT_EQ("cloud:town.opc: 5.3 MiB\n", run({"cloud", "put", cloud, "--force"}));
    EXPECT_TRUE(bytesOf(cloud) == bytesOf(stub->objectFile("eu/anna/town.opc")));
    EXPECT_TRUE(run({"cloud", "ls"}).ends_with("Z  town.opc\n"));
    EXPECT_TRUE(run({"cloud", "usage"}).ends_with("tier            3\n"));

    // The account's file and a signed URL, for which nobody signs in, are the local one.
    const std::string url = stub->signedUrl("eu/anna/town.opc", 1h);
    const std::string local = run({"info", cloud}).substr(cloud.size());
    EXPECT_EQ("cloud:town.opc" + local, run({"info", "cloud:town.opc"}));
    run({"points", cloud, "-o", folder.file("local.las")});
    run({"render", cloud, "-o", folder.file("local.ppm"), "--size", "200x150"});
    for (const std::string& source : {std::string("cloud:town.opc"), url}) {
        run({"points", source, "-o", folder.file("remote.las"), "-f"});
        EXPECT_TRUE(bytesOf(folder.file("local.las")) == bytesOf(folder.file("remote.las")));
        run({"render", source, "-fo", folder.file("remote.ppm"), "--size", "200x150"});
        EXPECT_TRUE(bytesOf(folder.file("local.ppm")) == bytesOf(folder.file("remote.ppm")));
        std::filesystem::remove(kept); // the URL needs none of it
    }
    EXPECT_NE(std::string::npos, run({"info", url}).find("400,000"));
    use(*stub);
    setenv("NIMBREL_CLOUD_USER", "anna", 1);
    setenv("NIMBREL_CLOUD_PASSWORD", PASSWORD, 1);

    // One attempt that fails is no failure.
    stub->setFaults([isFirst = std::make_shared<std::atomic<bool>>(true)](const StubRequest& request) {
        const bool fails = request.path == "/GetSignedURL/" && isFirst->exchange(false);
        return StubFault{.status = fails ? 503 : 0};
    });
    run({"cloud", "share", "town.opc", "--to", "bert@example.org", "--days", "3"});
    ASSERT_EQ(1U, stub->mails().size());
    EXPECT_EQ("bert@example.org", stub->mails()[0].email);
    run({"info", stub->mails()[0].link});
    stub->setClockAhead(72h + 1s);
    run({"info", stub->mails()[0].link}, 1, "403");
    run({"cloud", "rm", "town.opc", "missing"}, 1, "missing: there is no such file");
    run({"cloud", "rm", "town.opc"});
    EXPECT_TRUE(stub->keys().empty());
}

TEST_F(CloudCommandTest, RefusesWhatWouldGoWrong) {
    const std::string large = folder.write("large.opc", "");
    std::filesystem::resize_file(large, 17 << 20);
    run({"cloud", "put", large}, 1, "the account has room for 16.0 MiB");
    run({"cloud", "put", folder.write("a,b.opc", "x")}, 1, "a name in the cloud cannot hold");
    run({"cloud", "put", folder.file("none.opc")}, 1, "none.opc");
    run({"cloud", "share", "x", "--to", "anna"}, 2, "e-mail");
    run({"cloud", "ls", "--api", "http://127.0.0.1"}, 1, "this is no endpoint");

    // A password that can't be kept is not left behind either.
    const std::string kept = folder.file("config/nimbrel/cloud.json");
    std::filesystem::create_directories(kept);
    run({"cloud", "login"}, 1, "cloud.json: Is a directory");
    EXPECT_FALSE(std::filesystem::exists(kept + ".part"));
    std::filesystem::remove(kept);

    // A kept password is sent only where it belongs, and not taken from where others may have been.
    run({"cloud", "login"});
    unsetenv("NIMBREL_CLOUD_PASSWORD");
    run({"cloud", "usage"});
    const CloudStub other(settings("other"));
    use(other);
    run({"cloud", "usage"}, 1, "there is no password");
    EXPECT_TRUE(other.requests().empty());
    use(*stub);
    std::filesystem::permissions(kept, std::filesystem::perms(0640));
    run({"cloud", "usage"}, 1, "others can read");
    setenv("NIMBREL_CLOUD_PASSWORD", PASSWORD, 1);

    // Points that do not arrive are missed, never made up.
    stub->addObject("eu/anna/town.opc", cloud);
    const StubFault faults[] = {{.status = 403}, {.shortBy = 1}, {.status = 302, .location = "http://127.0.0.1:1/"}};
    for (const StubFault& fault : faults) {
        stub->setFaults([&fault](const StubRequest& request) {
            const bool isLeading = request.range.starts_with("bytes=0-"); // header and tree
            return request.isStore && !isLeading ? fault : StubFault();
        });
        run({"points", "cloud:town.opc", "-o", folder.file("out.las")}, 1, "cloud:town.opc: ");
        EXPECT_FALSE(std::filesystem::exists(folder.file("out.las")));
    }
    stub->setFaults({});
    setenv("SSL_CERT_FILE", cloud.c_str(), 1);
    run({"cloud", "usage"}, 1, "certificate");
}

TEST_F(CloudCommandTest, AbortsAnUploadInTheServiceWhenInterrupted) {
    // Parts crawl, and the first of them brings the signal.
    stub->setFaults([this](const StubRequest& request) {
        StubFault fault;
        if (request.method == "PUT") {
            std::ofstream(folder.file("uploading"));
            fault.bytesPerSecond = 100000;
        }
        return fault;
    });
    RunSetting setting;
    setting.awaited = folder.file("uploading");
    setting.action = [](int process) { kill(process, SIGINT); };
    const RunResult result = runNimbrel({"cloud", "put", cloud}, setting);
    EXPECT_EQ(130, result.status) << result.err;
    EXPECT_TRUE(result.err.ends_with("nimbrel: interrupted\n")) << result.err;
    const auto requests = stub->requests();
    EXPECT_TRUE(std::ranges::any_of(requests, [](const StubRequest& request) {
        return request.target.starts_with("/MultipartAction/?filename=town.opc&job=abort&uploadID=");
    }));
    EXPECT_EQ(0U, stub->openUploads());
    EXPECT_TRUE(stub->keys().empty());
}

TEST(CloudListing, TakesNamesWithCommasAndMissingOnesApart) {
    const std::vector<CloudFile> files = parseCloudListing(
        "/a.opc,2026-01-02T03:04:05.000Z,12,/b,7,c.opc,2026-01-02T03:04:05.000Z,0,2026-01-02T03:04:05Z,5,");
    ASSERT_EQ(3U, files.size());
    EXPECT_EQ("a.opc", files[0].name);
    EXPECT_EQ(12U, files[0].size);
    EXPECT_EQ("b,7,c.opc", files[1].name);
    EXPECT_EQ("", files[2].name);
    EXPECT_EQ(5U, files[2].size);
    for (const char* broken : {"", ",", ",,,", "/a,b", "/a,2026-01-02T03:04:05Z,", "12,13,"}) {
        EXPECT_TRUE(parseCloudListing(broken).empty()) << broken;
    }
}
