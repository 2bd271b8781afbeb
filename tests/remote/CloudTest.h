#pragma once

#include "engine/EngineTest.h"
#include "stub/CloudStub.h"

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

// A stand-in service on loopback whose authority this process trusts, and the engine's endpoints set to it. A broken
// connection ends the process here as it would end a host, unless the library sees to that.
class CloudTest : public EngineTest {
protected:
    CloudTest() { startService({}); }
    ~CloudTest() override;

    // In place of the one before. Its folder is "service".
    void startService(StubOptions options);

    // So patient that only what a test asks for ends a request; for connections that are made from here on.
    static void waitForever();

    static int signIn() { return loginGlimmet(L"ada", L"pass word", 7); }
    [[nodiscard]] static Bytes noise(size_t size, uint32_t seed = 1);

    // Requests to the API whose target begins so.
    [[nodiscard]] std::vector<StubRequest> requestsTo(std::string_view target) const;

    // For a fault hook, which any thread of the service may call.
    static std::shared_ptr<std::atomic<int>> counterFrom(int value) {
        return std::make_shared<std::atomic<int>>(value);
    }

    static constexpr const char* PREFIX = "eu/ada/";
    std::unique_ptr<CloudStub> service;
};
