#include "remote/CloudTest.h"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <tuple>

namespace {

constexpr size_t PART = 5242880;

class CloudUpload : public CloudTest {
protected:
    CloudUpload() { EXPECT_EQ(0, signIn()); }

    // The state once the upload is over.
    static int finish() {
        while (nimbrelGlimmetUploadState() == 1) std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return nimbrelGlimmetUploadState();
    }
    [[nodiscard]] Bytes stored(const std::string& name) const {
        return dir.read(service->objectFile(PREFIX + name).lexically_relative(dir.path(".")).string());
    }
    // The jobs asked for, in order, each once.
    [[nodiscard]] std::string jobs(const std::string& name) const {
        std::string text;
        for (const StubRequest& request : requestsTo("/MultipartAction/?filename=" + name + "&job=")) {
            const std::string rest = request.target.substr(request.target.rfind("&job=") + 5);
            const std::string job = rest.substr(0, rest.find('&')) + " ";
            if (!text.ends_with(job)) text += job;
        }
        return text;
    }
};

} // namespace

TEST_F(CloudUpload, ArrivesByteForByte) {
    EXPECT_EQ(0.0F, getGlimmetUploadProgress());
    const char* big = std::getenv("NIMBREL_BIG_UPLOAD"); // bytes, for a larger one
    const std::tuple<size_t, double, const char*> cases[] = {
        {0, 0, "smallupload "},
        {PART - 1, 0, "smallupload "},
        {PART, 0, "init upload complete "},
        {PART + 1, 0, "init upload complete "},
        {4 * PART - 7, 0.5, "init upload complete "},
        {big ? std::strtoull(big, nullptr, 10) : 2 * PART, 0.2, "init upload complete "},
    };
    for (const auto& [size, failing, expectedJobs] : cases) {
        const Bytes bytes = noise(size);
        const std::string name = "up\\s " + std::to_string(size); // the bare name begins behind either kind of slash
        service->setFaults(CloudStub::failingUploads(failing, 5));
        service->forgetRequests();
        ASSERT_TRUE(uploadGlimmetFile(dir.writeWide(name, bytes).c_str()));
        EXPECT_EQ(2, finish()) << nimbrelLastError();
        EXPECT_EQ(1.0F, getGlimmetUploadProgress());
        EXPECT_STREQ("", nimbrelLastError());
        const std::string bare = name.substr(3);
        EXPECT_TRUE(bytes == stored(bare)) << size;
        EXPECT_EQ(expectedJobs, jobs("s%20" + std::to_string(size)));
        const StubRequest first = requestsTo("/MultipartAction/").at(0);
        EXPECT_TRUE(first.target.ends_with("&fileSize=" + std::to_string(size / 1048576))) << first.target;
        EXPECT_EQ("/ListFiles/", service->requests().back().target);
    }
    EXPECT_EQ(0U, service->openUploads());
    EXPECT_FALSE(requestsTo("/uploads/").empty());
    for (const StubRequest& put : requestsTo("/uploads/")) EXPECT_EQ("", put.contentType);
}

TEST_F(CloudUpload, AbortEndsItAtOnce) {
    const std::wstring path = dir.writeWide("big", noise(3 * PART));
    waitForever();
    const StubFault silent{.delay = std::chrono::seconds(600)};
    const StubFault slow{.bytesPerSecond = 2000};
    const StubFault failing{.status = 500};
    // What goes wrong with the PUTs, or with the signing of parts.
    const std::tuple<const char*, StubFault, const char*> cases[] = {
        {"slow", slow, "/uploads/"},
        {"silent", silent, "/uploads/"},
        {"failing", failing, "/uploads/"},
        {"unsigned", silent, "/MultipartAction/?filename=big&job=upload&"}};
    for (const auto& [name, fault, where] : cases) {
        const auto hits = counterFrom(0);
        service->setFaults([fault = fault, where = std::string(where), hits](const StubRequest& request) {
            if (!request.target.starts_with(where)) return StubFault();
            ++*hits;
            return fault;
        });
        service->forgetRequests();
        ASSERT_TRUE(uploadGlimmetFile(path.c_str()));
        while (*hits == 0) std::this_thread::yield();
        const auto start = std::chrono::steady_clock::now();
        abortGlimmetUpload();
        EXPECT_EQ(4, finish()) << name;
        EXPECT_GT(std::chrono::seconds(60), std::chrono::steady_clock::now() - start) << name;
        EXPECT_EQ(1.0F, getGlimmetUploadProgress());
        EXPECT_TRUE(jobs("big").ends_with("abort ")) << jobs("big");
        EXPECT_EQ(0U, service->openUploads()) << name;
        EXPECT_TRUE(service->keys().empty());
    }
    // A part that fails for good is not asked for without a pause in between.
    service->setFaults([&](const StubRequest& request) { return request.isStore ? failing : StubFault(); });
    service->forgetRequests();
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(uploadGlimmetFile(path.c_str()));
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    reset(); // ends it as well
    EXPECT_EQ(4, finish());
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    const double passes = 1 + std::log2(time.count() / 0.25 + 1); // pauses double, from a quarter of a second on
    EXPECT_GE(3 * passes, static_cast<double>(requestsTo("/uploads/").size()));
    service->forgetRequests();
    reset();
    EXPECT_EQ(0U, service->requests().size());
    abortGlimmetUpload();
    EXPECT_EQ(1U, requestsTo("/MultipartAction/?filename=big&job=abort&uploadID=").size());
}

TEST_F(CloudUpload, TellsWhatDidNotArrive) {
    EXPECT_FALSE(uploadGlimmetFile(dir.widePath("missing").c_str()));
    EXPECT_FALSE(uploadGlimmetFile(dir.widePath(".").c_str()));
    const std::wstring small = dir.writeWide("small", noise(1000));
    const std::wstring large = dir.writeWide("large", noise(2 * PART));
    const std::tuple<const std::wstring&, int, const char*, const char*> cases[] = {
        {small, 200, R"({"value":null})", "smallupload"},
        {small, 200, R"({"value":"https://elsewhere.example/x?y"})", "smallupload"},
        {small, 403, "", "/objects/"},
        {large, 200, R"({"value":null})", "init"},
        {large, 500, "", "init"},
        {large, 200, R"({"value":null})", "complete"},
    };
    for (const auto& [path, status, body, job] : cases) {
        service->setFaults([status = status, body = body, job = job](const StubRequest& request) {
            const bool hits = request.target.find(job) != std::string::npos;
            return hits ? StubFault{.status = status, .body = body} : StubFault();
        });
        ASSERT_TRUE(uploadGlimmetFile(path.c_str()));
        EXPECT_EQ(3, finish()) << job;
        EXPECT_STRNE("", nimbrelLastError()) << job;
        EXPECT_EQ(1.0F, getGlimmetUploadProgress()) << job;
        EXPECT_TRUE(service->keys().empty()) << job;
    }
    // Without a word at the end the listing tells. A file of the same name and size is not the new one.
    const std::string key = PREFIX + std::string("large");
    for (const bool arrives : {false, true}) {
        service->addObject(key, dir.write("old", noise(2 * PART, 9)));
        const auto then = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
        std::filesystem::last_write_time(service->objectFile(key), then);
        EXPECT_EQ(0, signIn()); // forgets that the account was empty
        EXPECT_STRNE(L"", listGlimmetFiles());
        service->setFaults([=, this](const StubRequest& request) {
            if (request.target.find("&job=complete&") == std::string::npos) return StubFault();
            if (arrives) service->addObject(key, dir.path("large"));
            return StubFault{.status = 200, .body = R"({"value":null})"};
        });
        ASSERT_TRUE(uploadGlimmetFile(large.c_str()));
        EXPECT_EQ(arrives ? 2 : 3, finish());
    }
    EXPECT_TRUE(deleteGlimmetFile(L"large"));
    // A file that gets shorter is given up, rather than filled with zeros.
    service->setFaults([&](const StubRequest& request) {
        if (request.target.find("init") != std::string::npos) std::filesystem::resize_file(dir.path("large"), PART + 5);
        return StubFault();
    });
    ASSERT_TRUE(uploadGlimmetFile(large.c_str()));
    EXPECT_EQ(3, finish());
    EXPECT_EQ("the file got shorter, or can't be read", std::string(nimbrelLastError()));
    EXPECT_TRUE(service->keys().empty());
}

// In a process of its own, which ends in the middle of an upload and of reading a cloud.
TEST_F(CloudUpload, TheEndOfTheProcessAbortsAndWaits) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    static CloudStub* watched = nullptr;
    static const TempDir* folder = &dir;
    const auto endInTheMiddle = [this] {
        std::atexit([] {
            const bool isClean = watched->openUploads() == 0 && watched->keys().size() == 1;
            folder->remove();
            std::_Exit(isClean ? 0 : 3);
        });
        watched = service.release();
        watched->addObject(PREFIX + std::string("cloud"), dir.write("cloud", smallCloud().make()));
        if (loadPointCloudGlimmet(L"cloud") != 0) std::_Exit(4);
        watched->setFaults([](const StubRequest& request) {
            return StubFault{.delay = std::chrono::seconds(!request.isStore ? 0 : request.method == "PUT" ? 60 : 1)};
        });
        const double view[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -4, -2, -9, 1};
        const double projection[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1.001, -1, 0, 0, -0.2, 0};
        const double eye[3] = {4, 2, 9};
        setCamera(1, view, projection, eye, 90, 100000, false);
        uploadGlimmetFile(dir.writeWide("big", noise(2 * PART)).c_str());
        while (watched->openUploads() == 0) std::this_thread::yield();
        std::exit(1);
    };
    EXPECT_EXIT(endInTheMiddle(), testing::ExitedWithCode(0), "");
}
