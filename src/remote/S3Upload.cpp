// Uploads of the process: which one the host sees, and their threads.

#include "ground/Log.h"
#include "remote/CloudSession.h"
#include "remote/S3Utils.h"
#include "remote/UploadJob.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

namespace {

// Hosts see the upload begun last; those before it go on beside it.
class Uploads {
public:
    static Uploads& instance() {
        static Uploads uploads;
        return uploads;
    }

    void start(std::shared_ptr<UploadJob> job) {
        std::lock_guard lock(mutex);
        const auto isOver = [](Entry& entry) {
            if (entry.job->getState() == UploadJob::RUNNING) return false;
            entry.thread.join();
            return true;
        };
        entries.erase(std::remove_if(entries.begin(), entries.end(), isOver), entries.end());
        latest = job;
        std::thread thread([job] { job->run(); });
        entries.push_back({std::move(job), std::move(thread)});
    }

    // Null before the first upload.
    [[nodiscard]] std::shared_ptr<UploadJob> getLatest() {
        std::lock_guard lock(mutex);
        return latest;
    }

    // Stops what runs, and tells the service; whether anything did. Uploads that are being put together are let be.
    bool abort() {
        std::vector<std::shared_ptr<UploadJob>> running;
        {
            std::lock_guard lock(mutex);
            for (const Entry& entry : entries) {
                if (entry.job->getState() == UploadJob::RUNNING && !entry.job->isCompleting())
                    running.push_back(entry.job);
            }
        }
        for (const auto& job : running) job->requestStop();
        for (const auto& job : running) job->sendAbort();
        return !running.empty();
    }

    // At the end of the process. Asks again, since a request can be between its first step and its socket.
    void abortAndWait() {
        constexpr std::chrono::seconds PATIENCE{5};
        const auto end = std::chrono::steady_clock::now() + PATIENCE;
        abort();
        std::lock_guard lock(mutex);
        for (Entry& entry : entries) {
            while (entry.job->getState() == UploadJob::RUNNING) {
                entry.job->requestStop();
                if (std::chrono::steady_clock::now() > end) entry.job->giveUpBeginning();
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
            entry.thread.join();
        }
        entries.clear();
    }

private:
    struct Entry {
        std::shared_ptr<UploadJob> job;
        std::thread thread;
    };
    std::mutex mutex; // guards everything below
    std::vector<Entry> entries;
    std::shared_ptr<UploadJob> latest;
};

// Made when the first upload begins, by when the HTTP library has made what it keeps for the process: uploads end
// before that is torn down.
struct UploadsEndFirst {
    ~UploadsEndFirst() { Uploads::instance().abortAndWait(); }
};

} // namespace

bool S3Utils::uploadFile(const std::wstring& path) {
    try {
        setLastError("");
        const std::string name = toUtf8(path);
        if (UploadSource(name).getSize() < 0) {
            setLastError("the file can't be read, or is no regular file");
            return false;
        }
        if (!CloudSession::instance().isSignedIn()) {
            const auto latest = Uploads::instance().getLatest();
            if (latest && latest->getState() != UploadJob::RUNNING) latest->status = 0;
            setLastError("nobody is signed in to the cloud service");
            return false;
        }
        Uploads& uploads = Uploads::instance();
        static const UploadsEndFirst UPLOADS_END_FIRST;
        uploads.start(std::make_shared<UploadJob>(name));
    } catch (const std::exception& failure) {
        setLastError(failure.what());
        return false;
    }
    logText("Upload Started\n");
    return true;
}

void S3Utils::abortUpload() {
    if (!Uploads::instance().abort()) UploadJob::sendAbort(refreshUploadFilename(""), refreshUploadID(""));
}

void S3Utils::abortRunningUpload() {
    Uploads::instance().abort();
}

float S3Utils::getUploadProgress() {
    const auto job = Uploads::instance().getLatest();
    const int64_t limit = job ? job->limit.load() : 100;
    const int64_t status = job ? job->status.load() : 0;
    const double progress = limit == 0 ? 1.0 : static_cast<double>(status) / static_cast<double>(limit);
    char line[80];
    std::snprintf(line, sizeof(line), "%lld %lld %g\n", static_cast<long long>(limit), static_cast<long long>(status),
                  progress);
    logText(line);
    return static_cast<float>(progress);
}

int S3Utils::getUploadState() {
    const auto job = Uploads::instance().getLatest();
    return job ? job->getState() : UploadJob::NONE;
}
