#include "stub/ObjectStore.h"
#include "stub/UrlText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

static constexpr size_t MOST_OPEN_UPLOADS = 1000;
static constexpr size_t LONGEST_NAME = 200; // escaped, in bytes; leaves room for country and account in a file's name

IncomingFile::IncomingFile(fs::path nameToUse)
    : name(std::move(nameToUse)), descriptor(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {
    if (descriptor < 0) throw std::system_error(errno, std::generic_category(), name.string());
}

IncomingFile::~IncomingFile() {
    close(descriptor);
    if (!moved) unlink(name.c_str());
}

bool IncomingFile::write(const char* data, size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(descriptor, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

bool IncomingFile::append(const fs::path& file) {
    const int source = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (source < 0) return false;
    std::vector<char> block(size_t{1} << 20);
    ssize_t count = 0;
    bool isFine = true;
    while (isFine && (count = read(source, block.data(), block.size())) > 0) {
        isFine = write(block.data(), static_cast<size_t>(count));
    }
    close(source);
    return isFine && count == 0;
}

bool IncomingFile::moveTo(const fs::path& target) {
    moved = std::rename(name.c_str(), target.c_str()) == 0;
    return moved;
}

ObjectStore::ObjectStore(const fs::path& folder)
    : objects(folder / "objects"), uploads(folder / "uploads"), incoming(folder / "incoming") {
    fs::remove_all(uploads);
    fs::remove_all(incoming);
    for (const fs::path& each : {objects, uploads, incoming}) fs::create_directories(each);
}

bool ObjectStore::isName(const std::string& name) {
    const auto isUnusable = [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == 0x7F ||
               std::string_view("/\\\",").find(c) != std::string_view::npos;
    };
    return !name.empty() && percentEncode(name).size() <= LONGEST_NAME && std::ranges::none_of(name, isUnusable);
}

// A dot is escaped too where it comes first, so that no key is "." or "..".
fs::path ObjectStore::fileOf(const std::string& key) const {
    std::string name = percentEncode(key);
    if (!name.empty() && name.front() == '.') name.replace(0, 1, "%2E");
    return objects / name;
}

std::vector<ObjectStore::Object> ObjectStore::list(const std::string& prefix) const {
    std::vector<Object> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(objects)) {
        Object object{percentDecode(entry.path().filename().string()), 0, 0};
        struct stat status {};
        if (!object.key.starts_with(prefix) || stat(entry.path().c_str(), &status) != 0) continue;
        object.size = status.st_size;
        object.modified = status.st_mtime;
        found.push_back(std::move(object));
    }
    std::ranges::sort(found, {}, &Object::key);
    return found;
}

int64_t ObjectStore::used(const std::string& prefix) const {
    int64_t bytes = 0;
    for (const Object& object : list(prefix)) bytes += object.size;
    const std::scoped_lock lock(mutex);
    for (const auto& [id, key] : open) {
        if (!key.starts_with(prefix)) continue;
        for (const fs::directory_entry& part : fs::directory_iterator(folderOfUpload(id))) {
            bytes += static_cast<int64_t>(part.file_size());
        }
    }
    return bytes;
}

void ObjectStore::remove(const std::string& key) {
    std::error_code ignored; // one that is not there counts as removed
    fs::remove(fileOf(key), ignored);
}

fs::path ObjectStore::incomingName() const {
    return incoming / randomHex(16);
}

std::string ObjectStore::beginUpload(const std::string& key) {
    std::string id = randomHex(16);
    const std::scoped_lock lock(mutex);
    if (open.size() >= MOST_OPEN_UPLOADS) return {};
    fs::create_directory(folderOfUpload(id));
    open.emplace(id, key);
    return id;
}

std::optional<std::string> ObjectStore::keyOfUpload(const std::string& id) const {
    const std::scoped_lock lock(mutex);
    const auto found = open.find(id);
    return found == open.end() ? std::nullopt : std::optional(found->second);
}

bool ObjectStore::takePart(const std::string& id, int number, IncomingFile& part) {
    const std::scoped_lock lock(mutex);
    return open.contains(id) && part.moveTo(folderOfUpload(id) / std::to_string(number));
}

bool ObjectStore::completeUpload(const std::string& id) {
    const std::scoped_lock lock(mutex);
    const auto found = open.find(id);
    if (found == open.end()) return false;
    const fs::path folder = folderOfUpload(id);
    const auto parts = std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    IncomingFile whole(incomingName());
    for (int64_t number = 1; number <= parts; ++number) {
        if (!whole.append(folder / std::to_string(number))) return false;
    }
    if (parts == 0 || !whole.moveTo(fileOf(found->second))) return false;
    fs::remove_all(folder);
    completed.emplace_back(*found);
    if (completed.size() > MOST_OPEN_UPLOADS) completed.pop_front();
    open.erase(found);
    return true;
}

bool ObjectStore::isCompleted(const std::string& id, const std::string& key) const {
    const std::scoped_lock lock(mutex);
    return std::ranges::find(completed, std::pair(id, key)) != completed.end();
}

void ObjectStore::abortUpload(const std::string& id) {
    const std::scoped_lock lock(mutex);
    if (open.erase(id) > 0) fs::remove_all(folderOfUpload(id));
}

size_t ObjectStore::openUploads() const {
    const std::scoped_lock lock(mutex);
    return open.size();
}
