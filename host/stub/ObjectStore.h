#pragma once

#include <cstdint>
#include <ctime>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// A file that is being received: under a name of its own until moveTo(), and removed with the object if it never was.
class IncomingFile {
public:
    explicit IncomingFile(std::filesystem::path name); // throws std::system_error
    ~IncomingFile();
    IncomingFile(const IncomingFile&) = delete;
    IncomingFile& operator=(const IncomingFile&) = delete;

    bool write(const char* data, size_t size);
    bool append(const std::filesystem::path& file); // all of another file
    bool moveTo(const std::filesystem::path& target);

private:
    const std::filesystem::path name;
    int descriptor = -1;
    bool moved = false;
};

// Objects by their keys, and multipart uploads, in a folder. A key is stored under its escaped text in a single folder,
// so that none can reach another place. An object is replaced in one step. Any thread.
class ObjectStore {
public:
    static constexpr int MOST_PARTS = 10000;

    struct Object {
        std::string key;
        int64_t size = 0; // in bytes
        std::time_t modified = 0;
    };

    // Takes the objects that are there and drops what is left of uploads. Throws std::filesystem::filesystem_error.
    explicit ObjectStore(const std::filesystem::path& folder);

    // Whether an object may have this name within its account's folder: no slashes, quotes, commas or control
    // characters, and not too long for a file.
    static bool isName(const std::string& name);

    [[nodiscard]] std::vector<Object> list(const std::string& prefix) const; // in order of the keys
    [[nodiscard]] int64_t used(const std::string& prefix) const;             // bytes, unfinished uploads included
    [[nodiscard]] std::filesystem::path fileOf(const std::string& key) const;
    void remove(const std::string& key);

    // Where a body goes while it comes in.
    [[nodiscard]] std::filesystem::path incomingName() const;

    // The upload's id; empty while too many are open.
    std::string beginUpload(const std::string& key);
    [[nodiscard]] std::optional<std::string> keyOfUpload(const std::string& id) const;
    // False when the upload ended meanwhile.
    bool takePart(const std::string& id, int number, IncomingFile& part);
    // Puts the parts together; false, and the upload goes on, unless there are parts 1 to n without a gap.
    bool completeUpload(const std::string& id);
    // Whether that was done lately, so that a client whose answer got lost may ask again.
    [[nodiscard]] bool isCompleted(const std::string& id, const std::string& key) const;
    void abortUpload(const std::string& id);
    [[nodiscard]] size_t openUploads() const;

private:
    [[nodiscard]] std::filesystem::path folderOfUpload(const std::string& id) const { return uploads / id; }

    const std::filesystem::path objects, uploads, incoming;
    mutable std::mutex mutex;                                  // guards everything below and the folders in `uploads`
    std::map<std::string, std::string> open;                   // from an upload's id to its key
    std::deque<std::pair<std::string, std::string>> completed; // the same of those that came to a good end lately
};
