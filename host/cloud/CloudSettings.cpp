#include "cloud/CloudSettings.h"
#include "support/Failure.h"
#include "support/Terminal.h"

#define PICOJSON_USE_INT64
#include <picojson.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

// The library takes name and password and gives no token back, so that a sign-in which is to last means a password that
// is kept. It lies, like those of other command line clients, in a file of mode 0600 below the user's configuration,
// and is neither written nor read where others could look into it.

namespace fs = std::filesystem;

static constexpr const char* NAMES[] = {"api", "store", "origin", "user", "password"};

// The texts in the order of NAMES.
static std::string* textsOf(CloudSettings& settings, size_t index) {
    std::string* const texts[] = {&settings.api, &settings.store, &settings.origin, &settings.user, &settings.password};
    return texts[index];
}

// Empty where no place is known to keep anything.
static fs::path settingsFile() {
    const auto folderIn = [](const char* name) {
        const char* text = std::getenv(name);
        return text != nullptr && text[0] == '/' ? fs::path(text) : fs::path(); // relative ones do not count
    };
    fs::path folder = folderIn("XDG_CONFIG_HOME");
    if (folder.empty() && !folderIn("HOME").empty()) folder = folderIn("HOME") / ".config";
    return folder.empty() ? fs::path() : folder / "nimbrel" / "cloud.json";
}

namespace {
class OpenFile {
public:
    OpenFile(const fs::path& path, int flags) : descriptor(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600)) {}
    ~OpenFile() {
        if (descriptor >= 0) close(descriptor);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    const int descriptor;
};
} // namespace

static CommandFailure systemFailure(const fs::path& path) {
    return CommandFailure(path.string(), std::strerror(errno));
}

// Empty when there is no such file.
static std::string readPrivateFile(const fs::path& path) {
    constexpr size_t MOST_BYTES = 65536;
    const OpenFile file(path, O_RDONLY | O_NONBLOCK);
    if (file.descriptor < 0 && (errno == ENOENT || errno == ENOTDIR)) return {};
    struct stat status {};
    if (file.descriptor < 0 || fstat(file.descriptor, &status) != 0) throw systemFailure(path);
    if (!S_ISREG(status.st_mode)) throw CommandFailure(path.string(), "this is no regular file");
    if (status.st_uid != geteuid() || (status.st_mode & 077) != 0) {
        throw CommandFailure(path.string(), "others can read or change this file; 'chmod 600' it, or sign in anew");
    }
    std::string bytes(MOST_BYTES, '\0');
    const ssize_t count = read(file.descriptor, bytes.data(), bytes.size());
    if (count < 0) throw systemFailure(path);
    bytes.resize(static_cast<size_t>(count));
    return bytes;
}

static CloudSettings readKeptSettings() {
    CloudSettings kept;
    const fs::path path = settingsFile();
    if (path.empty()) return kept;
    const std::string bytes = readPrivateFile(path);
    if (bytes.empty()) return kept;
    picojson::value json;
    if (!picojson::parse(json, bytes).empty() || !json.is<picojson::object>()) {
        throw CommandFailure(path.string(), "this is no kept sign-in; remove it, or sign in anew");
    }
    for (size_t i = 0; i < std::size(NAMES); ++i) {
        const picojson::value& value = json.get(NAMES[i]);
        if (value.is<std::string>()) *textsOf(kept, i) = value.get<std::string>();
    }
    if (json.get("product").is<int64_t>()) kept.product = static_cast<int>(json.get("product").get<int64_t>());
    return kept;
}

static std::string fromEnvironment(const char* name) {
    const char* text = std::getenv(name);
    return text != nullptr ? text : "";
}

static CloudSettings environmentSettings() {
    CloudSettings found;
    found.api = fromEnvironment("NIMBREL_CLOUD_API");
    found.store = fromEnvironment("NIMBREL_CLOUD_STORE");
    found.origin = fromEnvironment("NIMBREL_CLOUD_ORIGIN");
    found.user = fromEnvironment("NIMBREL_CLOUD_USER");
    found.password = fromEnvironment("NIMBREL_CLOUD_PASSWORD");
    const std::string product = fromEnvironment("NIMBREL_CLOUD_PRODUCT");
    const char* end = product.data() + product.size();
    if (!product.empty() && std::from_chars(product.data(), end, found.product).ptr != end) {
        throw CommandFailure("NIMBREL_CLOUD_PRODUCT is not a number");
    }
    return found;
}

static void fillFrom(CloudSettings& settings, CloudSettings source) {
    for (size_t i = 0; i < std::size(NAMES); ++i) {
        if (textsOf(settings, i)->empty()) *textsOf(settings, i) = *textsOf(source, i);
    }
    if (settings.product < 0) settings.product = source.product;
}

// Drops closing slashes. Throws CommandFailure for what is no endpoint.
static void checkEndpoint(std::string& endpoint, const char* what) {
    constexpr std::string_view SCHEME = "https://";
    while (endpoint.size() > SCHEME.size() && endpoint.ends_with('/')) endpoint.pop_back();
    if (endpoint.empty()) return;
    const bool hasHost = endpoint.starts_with(SCHEME) && endpoint.size() > SCHEME.size();
    if (!hasHost || endpoint.find_first_of("/?#@ \t\r\n", SCHEME.size()) != std::string::npos) {
        throw CommandFailure(endpoint, std::string("this is no endpoint of ") + what +
                                           ", which reads https://HOST or https://HOST:PORT");
    }
}

CloudSettings findCloudSettings(CloudSettings given, bool withKept) {
    fillFrom(given, environmentSettings());
    checkEndpoint(given.api, "a web API");
    checkEndpoint(given.store, "an object store");
    const bool isComplete =
        !given.api.empty() && !given.store.empty() && !given.user.empty() && !given.password.empty();
    if (isComplete || !withKept) return given; // what is kept does not matter then, not even if it is unusable
    CloudSettings kept = readKeptSettings();
    checkEndpoint(kept.api, "a web API");
    checkEndpoint(kept.store, "an object store");
    const bool isOtherService = !given.api.empty() && given.api != kept.api;
    const bool isOtherUser = !given.user.empty() && given.user != kept.user;
    if (isOtherService || isOtherUser) kept.password.clear();
    if (isOtherService) kept = CloudSettings();
    fillFrom(given, kept);
    return given;
}

static void askFor(std::string& text, const char* question, bool hidden, const char* missing) {
    if (!text.empty()) return;
    text = askOnTerminal(question, hidden).value_or("");
    if (text.empty()) throw CommandFailure(missing);
}

void askForMissing(CloudSettings& settings) {
    askFor(settings.api, "Web API (https://...): ", false,
           "the cloud service is not known: give --api, set NIMBREL_CLOUD_API, or use 'nimbrel cloud login'");
    askFor(
        settings.store, "Object store (https://...): ", false,
        "the cloud's object store is not known: give --store, set NIMBREL_CLOUD_STORE, or use 'nimbrel cloud login'");
    checkEndpoint(settings.api, "a web API");
    checkEndpoint(settings.store, "an object store");
    askFor(settings.user, "User: ", false,
           "the account is not known: give --user, set NIMBREL_CLOUD_USER, or use 'nimbrel cloud login'");
    const std::string question = "Password of " + settings.user + ": ";
    askFor(settings.password, question.c_str(), true,
           "there is no password: set NIMBREL_CLOUD_PASSWORD, or use 'nimbrel cloud login'");
}

static std::string asJson(CloudSettings settings) {
    picojson::object json;
    for (size_t i = 0; i < std::size(NAMES); ++i) {
        if (!textsOf(settings, i)->empty()) json[NAMES[i]] = picojson::value(*textsOf(settings, i));
    }
    if (settings.product >= 0) json["product"] = picojson::value(int64_t{settings.product});
    return picojson::value(json).serialize(true);
}

std::string keepCloudSettings(const CloudSettings& settings) {
    const fs::path path = settingsFile();
    if (path.empty()) throw CommandFailure("there is no place to keep the sign-in: set HOME or XDG_CONFIG_HOME");
    std::error_code error;
    fs::create_directories(path.parent_path().parent_path(), error);
    if (mkdir(path.parent_path().c_str(), 0700) != 0 && errno != EEXIST) throw systemFailure(path.parent_path());
    // A new file rather than the old one, which may be open to others or a link.
    const fs::path unfinished = path.string() + ".part";
    unlink(unfinished.c_str());
    const std::string bytes = asJson(settings);
    const OpenFile file(unfinished, O_WRONLY | O_CREAT | O_EXCL);
    if (file.descriptor < 0) throw systemFailure(unfinished);
    const bool isWritten = write(file.descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    const bool isKept = isWritten && fchmod(file.descriptor, 0600) == 0 && fsync(file.descriptor) == 0 &&
                        std::rename(unfinished.c_str(), path.c_str()) == 0;
    if (isKept) return path.string();
    const CommandFailure failure = systemFailure(path);
    unlink(unfinished.c_str()); // it holds the password
    throw failure;
}

std::string forgetCloudSettings() {
    const fs::path path = settingsFile();
    if (path.empty()) return {};
    if (unlink(path.c_str()) == 0) return path.string();
    if (errno == ENOENT || errno == ENOTDIR) return {};
    throw systemFailure(path);
}
