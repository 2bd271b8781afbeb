#pragma once

#include "remote/RequestStop.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

// A file that is open for reading, whatever becomes of its name.
class UploadSource {
public:
    explicit UploadSource(const std::string& path);
    ~UploadSource();
    UploadSource(const UploadSource&) = delete;
    UploadSource& operator=(const UploadSource&) = delete;

    // -1 for what is no regular file, or can't be read.
    [[nodiscard]] int64_t getSize() const { return size; }

    // False unless all of the bytes could be read.
    bool read(char* out, int64_t offset, int64_t length) const;

private:
    int handle = -1;
    int64_t size = -1;
};

// The upload of one file, in one piece or in parts. run() does all of it on the calling thread and a pool of its own;
// everything else may be called from other threads meanwhile.
class UploadJob {
public:
    static constexpr int64_t PART_SIZE = 5242880;  // also where a file begins to be sent in parts
    static constexpr int64_t BLOCK_SIZE = 1048576; // handed to the socket at once

    enum State { NONE = 0, RUNNING = 1, DONE = 2, FAILED = 3, ABORTED = 4 };

    // `path` has been found to be readable.
    explicit UploadJob(const std::string& path);

    void run();

    // Ends the job soon, unless it is beyond that: all parts are there and the service is about to put them together. A
    // request for the upload's id goes on, since the service could not be told to forget the upload without it.
    void requestStop();
    // Ends that request as well, for a process that waits to end.
    void giveUpBeginning() { beginning.request(); }

    // Tells the service to forget about the upload; the job does so itself when it has yet to get the id.
    void sendAbort();
    static void sendAbort(const std::string& name, const std::string& uploadID);

    [[nodiscard]] State getState() const { return state; }
    [[nodiscard]] bool isCompleting() const { return completing; }

    std::atomic<int64_t> status{0};  // bytes finished
    std::atomic<int64_t> limit{100}; // bytes in all; 100 until that is known

private:
    void logLimits() const;
    std::string ask(const std::string& job, RequestStop* end);
    [[nodiscard]] bool isBeginning() const;
    int put(const std::string& url, const char* data, int64_t length, const std::function<void(int64_t)>& onSent);
    [[nodiscard]] State uploadWhole();
    [[nodiscard]] State uploadParts();
    bool begin();
    void sendAllParts(int64_t count);
    void runPart();
    bool sendPart(int64_t part);
    [[nodiscard]] State complete();

    const UploadSource source;
    const std::string name;      // the file's bare name
    const std::wstring replaced; // a file of this name and size as last listed when the upload began; empty for none
    RequestStop stop;
    RequestStop beginning;
    std::atomic<State> state{RUNNING};
    std::atomic<bool> completing{false};
    std::atomic<bool> sourceFailed{false};
    mutable std::mutex mutex; // guards everything below
    std::string id;           // the service's; empty until it gave one
    std::deque<int64_t> queue;
    std::deque<int64_t> failed; // parts for the next pass
};
