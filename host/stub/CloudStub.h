#pragma once

#include "stub/StubAuthority.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct StubUser {
    std::string name;
    std::string password;
    int64_t tier = 1;
    int64_t storageLimit = int64_t{10} << 30; // in bytes
};

struct StubOptions {
    std::string host = "127.0.0.1"; // what to listen on
    int apiPort = 0;                // 0 for any that is free
    int storePort = 0;
    std::filesystem::path folder; // where objects, unfinished uploads and the authority's ca.pem lie; made if missing
    std::vector<StubUser> users;  // each has the folder of its own name
    std::string country = "eu";   // the storage region that accounts are in
    std::chrono::seconds validity = std::chrono::hours(12); // of signed URLs that are not asked for by duration
    std::vector<std::string> certificateHosts{"127.0.0.1", "localhost"}; // whom the servers' certificates are for
    std::shared_ptr<const StubAuthority> authority; // who signs them; null for one of this service's own
};

// One request as it came in.
struct StubRequest {
    bool isStore = false; // to the object store rather than the web API
    int64_t number = 0;   // 0 for the first one to that server
    std::string method;
    std::string target; // path and query, byte for byte
    std::string path;   // without the query
    std::string authorization;
    std::string forwardedFor;
    std::string contentType;
    std::string origin;
    std::string range;
    std::string body; // of the web API only
};

// What goes wrong with one request. The parts may be combined; what stands first here wins.
struct StubFault {
    std::chrono::milliseconds delay{0}; // before anything else
    bool reset = false;                 // the connection is reset and nothing answered
    int status = 0;                     // answered instead of the work, with `body`
    std::string body = "<Error/>";      // goes with `status`
    std::string location = {};          // header Location, goes with `status`

    // Bodies of the object store.
    int64_t cutAfter = -1;      // the connection ends after so many bytes of an object or of a part that comes in
    int64_t shortBy = 0;        // an answer that is whole by its headers, and so many bytes less than was asked for
    bool ignoreRange = false;   // 200 and the whole object
    int64_t bytesPerSecond = 0; // 0 for as fast as it goes
};

struct StubMail {
    std::string email;
    std::string days;
    std::string link;
};

// The cloud service as its clients see it: the web API and the object store, each on a port and over TLS, with the data
// in a folder. docs/cloud.md tells what they answer. Several may run in one process. Any thread.
//
// Runs from construction to destruction, which ends open connections and takes milliseconds. Objects stay in the
// folder, unfinished uploads do not. Made for loopback: passwords are held as they are.
class CloudStub {
public:
    using FaultHook = std::function<StubFault(const StubRequest&)>;

    // Throws std::runtime_error.
    explicit CloudStub(StubOptions options);
    ~CloudStub();
    CloudStub(const CloudStub&) = delete;
    CloudStub& operator=(const CloudStub&) = delete;

    [[nodiscard]] std::string apiEndpoint() const;      // "https://127.0.0.1:PORT"
    [[nodiscard]] std::string storeEndpoint() const;    // the same for the object store
    [[nodiscard]] std::filesystem::path caFile() const; // what SSL_CERT_FILE should name

    // Asks `hook` before each request, on the thread that serves it. Empty for no faults.
    void setFaults(FaultHook hook);
    // A hook that lets `share`, 0 to 1, of the PUTs to the store fail, in ways that differ, always the same for a seed
    // and an order of requests.
    static FaultHook failingUploads(double share, uint32_t seed);

    // What came in so far, in order of arrival; the first hundred thousand.
    [[nodiscard]] std::vector<StubRequest> requests() const;
    // How many of those go to a path that begins so.
    [[nodiscard]] int64_t countRequests(const std::string& pathPrefix) const;
    void forgetRequests();

    // Lets the service believe that it is later by this much in all, so that signed URLs expire without a wait.
    void setClockAhead(std::chrono::seconds ahead);

    // The objects. A key is COUNTRY/USER/NAME.
    [[nodiscard]] std::vector<std::string> keys() const;
    [[nodiscard]] std::filesystem::path objectFile(const std::string& key) const; // where the bytes lie; may not exist
    void addObject(const std::string& key, const std::filesystem::path& source);  // a copy of it
    [[nodiscard]] size_t openUploads() const; // multipart uploads neither complete nor aborted
    // A URL to GET the object, whether that exists or not, as the web API signs it.
    [[nodiscard]] std::string signedUrl(const std::string& key, std::chrono::seconds validity) const;
    [[nodiscard]] std::vector<StubMail> mails() const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts;
};
