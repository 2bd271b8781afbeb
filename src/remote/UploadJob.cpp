// What the parts of an upload share is small: the list of those that are still to do, and the sign-in. Each part reads
// its piece by position and sends it on a connection of its own; the requests for signed URLs take turns on the
// connection to the API.

#include "remote/UploadJob.h"

#include "ground/Log.h"
#include "ground/Pools.h"
#include "ground/ThreadPool.h"
#include "remote/CloudSession.h"
#include "remote/S3Utils.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using std::chrono::milliseconds;

static constexpr milliseconds FIRST_PAUSE{250};
static constexpr milliseconds LONGEST_PAUSE{30000};

static bool isSuccess(int httpStatus) {
    return httpStatus == 200 || httpStatus == 206;
}

// ---- The file

// Not blocking: the path may be a pipe's.
UploadSource::UploadSource(const std::string& path) : handle(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    struct stat status {};
    if (handle != -1 && ::fstat(handle, &status) == 0 && S_ISREG(status.st_mode)) size = status.st_size;
}

UploadSource::~UploadSource() {
    if (handle != -1) ::close(handle);
}

bool UploadSource::read(char* out, int64_t offset, int64_t length) const {
    while (length > 0) {
        const ssize_t count = ::pread(handle, out, static_cast<size_t>(length), offset);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        out += count;
        offset += count;
        length -= count;
    }
    return true;
}

// ---- The job

static std::string bareName(const std::string& path) {
    const size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Name, date and size of a file of this name and size; empty when there is none.
static std::wstring entryIn(const std::wstring& listing, const std::wstring& name, int64_t size) {
    const std::wstring start = L"/" + name + L",";
    const std::wstring behindDate = L"," + std::to_wstring(size) + L",";
    for (size_t at = listing.find(start); at != std::wstring::npos; at = listing.find(start, at + 1)) {
        const size_t dateEnd = listing.find(L',', at + start.size());
        if (dateEnd != std::wstring::npos && listing.compare(dateEnd, behindDate.size(), behindDate) == 0) {
            return listing.substr(at, dateEnd + behindDate.size() - at);
        }
    }
    return {};
}

UploadJob::UploadJob(const std::string& path)
    : source(path), name(bareName(path)),
      replaced(entryIn(CloudSession::instance().knownListing(), toWide(name), source.getSize())) {
    CloudSession::instance().forgetUpload();
    S3Utils::refreshUploadFilename(name);
}

void UploadJob::run() {
    State result = FAILED;
    try {
        result = source.getSize() < PART_SIZE ? uploadWhole() : uploadParts();
    } catch (const std::exception& failure) { // no memory, or no threads
        setLastError(failure.what());
        status = limit.load();
    }
    if (result == DONE) setLastError(""); // those of parts that went well in the end
    if (result == ABORTED) setLastError("the upload was aborted");
    state = result;
}

void UploadJob::requestStop() {
    std::lock_guard lock(mutex);
    if (!completing) stop.request();
}

void UploadJob::sendAbort(const std::string& name, const std::string& uploadID) {
    S3Utils::callLambdaURL("/MultipartAction/?filename=" + name + "&job=abort&uploadID=" + uploadID, true, 3, "", "",
                           nullptr);
}

bool UploadJob::isBeginning() const {
    std::lock_guard lock(mutex);
    return id.empty() && source.getSize() >= PART_SIZE;
}

void UploadJob::sendAbort() {
    if (isBeginning()) return;
    std::string uploadID;
    {
        std::lock_guard lock(mutex);
        uploadID = id;
    }
    sendAbort(name, uploadID);
}

void UploadJob::logLimits() const {
    logText("Storage Limit: " + std::to_string(S3Utils::getDatabaseNumberValue(1)) + "\n");
    logText("Storage Used: " + std::to_string(S3Utils::getDatabaseNumberValue(0)) + "\n");
    logText("Upload Size: " + std::to_string(source.getSize()) + "\n");
}

// One step of the protocol.
std::string UploadJob::ask(const std::string& job, RequestStop* end) {
    return S3Utils::callLambdaURL("/MultipartAction/?filename=" + name + job, true, 3, "", "", nullptr, end);
}

// Sends a piece to its signed URL; the HTTP status, -1 without an answer. onSent learns the bytes sent so far.
int UploadJob::put(const std::string& url, const char* data, int64_t length,
                   const std::function<void(int64_t)>& onSent) {
    const std::optional<HttpsOrigin> store = CloudSession::instance().objectEndpoint();
    const std::string target = store ? store->targetOf(url) : std::string();
    if (target.empty()) {
        setLastError("the service signed a URL that does not lie in the object store");
        return -1;
    }
    if (source.getSize() >= PART_SIZE) logText(store->text + "\n"); // where parts go; one piece goes without a word
    HttpsClient client([&store] {
        auto made = store->makeClient();
        made->set_keep_alive(false);
        made->set_url_encode(false);
        return made;
    });
    httplib::Request request;
    request.method = "PUT";
    request.path = target;
    request.content_length_ = static_cast<size_t>(length);
    request.content_provider_ = [&](size_t offset, size_t left, httplib::DataSink& sink) {
        const size_t block = std::min(left, static_cast<size_t>(BLOCK_SIZE));
        if (stop.requested() || !sink.write(data + offset, block)) return false;
        onSent(static_cast<int64_t>(offset + block));
        return true;
    };
    const HttpsClient::Answer answer = client.exchange(std::move(request), &stop);
    if (answer.status == -1) setLastError("the store does not answer: " + answer.error);
    if (answer.status != -1 && !isSuccess(answer.status)) {
        setLastError("the store answered with status " + std::to_string(answer.status));
    }
    return answer.status;
}

static std::string sizeInMiB(int64_t size) {
    return std::to_string(size / 1048576);
}

// ---- In one piece

UploadJob::State UploadJob::uploadWhole() {
    logLimits();
    const int64_t size = source.getSize();
    limit = size;
    const std::string url = ask("&job=smallupload&fileSize=" + sizeInMiB(size), &stop);
    if (url.empty()) {
        if (!stop.requested() && lastError().empty()) setLastError("the service refused the upload");
        limit = 1;
        status = 1;
        return stop.requested() ? ABORTED : FAILED;
    }
    const auto buffer = std::make_unique_for_overwrite<char[]>(static_cast<size_t>(size));
    int answer = -1;
    if (source.read(buffer.get(), 0, size)) {
        answer = put(url, buffer.get(), size, [this](int64_t sent) { status = sent; });
    } else {
        setLastError("the file got shorter, or can't be read");
    }
    status = size; // whatever came of it: this is how hosts learn of the end
    if (!isSuccess(answer)) return stop.requested() ? ABORTED : FAILED;
    logText(std::to_string(answer) + "\n");
    S3Utils::listFiles(); // which renews the service's own
    return DONE;
}

// ---- In parts

UploadJob::State UploadJob::uploadParts() {
    logLimits();
    const int64_t size = source.getSize();
    limit = size;
    if (!begin()) {
        status = size;
        return stop.requested() ? ABORTED : FAILED;
    }
    sendAllParts((size + PART_SIZE - 1) / PART_SIZE);
    status = size;
    return complete();
}

// Gets the upload's id. False when the service gave none.
bool UploadJob::begin() {
    const std::string given = ask("&job=init&fileSize=" + sizeInMiB(source.getSize()), &beginning);
    if (given.empty()) {
        if (!stop.requested() && lastError().empty()) setLastError("the service refused the upload");
        logText("DENIED\n");
        return false;
    }
    std::lock_guard lock(mutex);
    id = given;
    S3Utils::refreshUploadID(given);
    return true;
}

void UploadJob::sendAllParts(int64_t count) {
    for (int64_t part = 0; part < count; ++part) queue.push_back(part);
    ThreadPool pool(maxCores());
    milliseconds pause = FIRST_PAUSE;
    while (!queue.empty() && !stop.requested() && !sourceFailed) {
        const size_t before = queue.size();
        logText("Outer Loop\n");
        // As many jobs as there are parts in all; in later passes most of them find the queue empty.
        for (int64_t i = 0; i < count; ++i) {
            logText("Inner Loop (Part: " + std::to_string(i) + ")\n");
            pool.AddJob([this] { runPart(); });
        }
        logText("Waiting...\n");
        pool.WaitAll();
        logText("Wait Complete...\n");
        queue.swap(failed); // no job runs now
        if (queue.empty()) break;
        if (queue.size() < before) pause = FIRST_PAUSE;
        stop.pause(pause);
        pause = std::min(2 * pause, LONGEST_PAUSE);
    }
    logText("Joining...\n");
    pool.JoinAll(true);
    logText("Complete...\n");
}

void UploadJob::runPart() {
    int64_t part = 0;
    {
        std::lock_guard lock(mutex);
        if (queue.empty() || stop.requested() || sourceFailed) return;
        part = queue.front();
        queue.pop_front();
    }
    bool sent = false;
    try {
        sent = sendPart(part);
    } catch (const std::exception& failure) { // no memory: perhaps in the next pass
        setLastError(failure.what());
    }
    if (sent) return;
    std::lock_guard lock(mutex);
    failed.push_back(part);
    logText("ERROR : Upload Failing\n");
}

bool UploadJob::sendPart(int64_t part) {
    const int64_t offset = part * PART_SIZE;
    const int64_t length = std::min(PART_SIZE, source.getSize() - offset);
    logText(std::to_string(part) + " " + std::to_string(offset) + " " + std::to_string(length) + " \n");
    const auto buffer = std::make_unique_for_overwrite<char[]>(static_cast<size_t>(length));
    if (!source.read(buffer.get(), offset, length)) {
        setLastError("the file got shorter, or can't be read");
        sourceFailed = true; // no further attempt will change that
        return false;
    }
    const std::string url = ask("&job=upload&uploadID=" + id + "&partNumber=" + std::to_string(part + 1), &stop);
    if (url.empty()) return false;
    const int answer = put(url, buffer.get(), length, [](int64_t) {});
    if (!isSuccess(answer)) return false;
    status += length;
    logText("Part Uploaded " + std::to_string(answer) + "\n");
    return true;
}

UploadJob::State UploadJob::complete() {
    {
        std::lock_guard lock(mutex);
        completing = !stop.requested() && !sourceFailed;
    }
    if (!completing) {
        // The host's thread told the service as well, if there was an id by then.
        const std::string reason = lastError();
        sendAbort();
        setLastError(reason);
        return sourceFailed ? FAILED : ABORTED;
    }
    const std::string answer = ask("&job=complete&uploadID=" + id, nullptr);
    const std::string reason = lastError();
    const std::wstring listing = S3Utils::listFiles(); // which renews the service's own
    // Services may complete without a word, or the word may get lost. Then the listing tells, where the file that was to
    // be replaced has its old date.
    const std::wstring entry = entryIn(listing, toWide(name), source.getSize());
    if (!answer.empty() || (!entry.empty() && entry != replaced)) return DONE;
    setLastError(reason.empty() ? "the service did not put the parts together" : reason);
    return FAILED;
}
