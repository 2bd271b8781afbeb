#include "cloud/CloudService.h"
#include "support/Failure.h"
#include "support/WidePath.h"

#include <nimbrel/NimbrelEngine.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

static constexpr int USUAL_PRODUCT = 0;

// What the engine was told in this process. See the header for why this is no object.
static std::string connectedStore;
static bool isSignedIn = false;

std::string cloudReason(const char* fallback) {
    std::string reason = nimbrelLastError();
    if (reason.find("SSLServerVerification") != std::string::npos) {
        reason += "; its certificate is not trusted (SSL_CERT_FILE can name an authority), or is that of another host";
    }
    return reason.empty() ? fallback : reason;
}

void useObjectStore(const std::string& store, const std::string& origin) {
    if (connectedStore == store) return;
    if (!connectedStore.empty()) throw CommandFailure(store, "files of two object stores cannot be open together");
    setGlimmetEndpoints(nullptr, store.c_str(), origin.c_str());
    connectedStore = store;
}

// Overwritten rather than just freed.
static void wipe(std::wstring& text) {
    volatile wchar_t* characters = text.data();
    for (size_t i = 0; i < text.size(); ++i) characters[i] = 0;
}

void signInToCloud(CloudSettings settings) {
    if (isSignedIn) return;
    askForMissing(settings);
    const auto user = decodeUtf8(settings.user);
    auto password = decodeUtf8(settings.password);
    if (!user || !password) throw CommandFailure("the name of the account or its password is not valid UTF-8");
    useObjectStore(settings.store, settings.origin.empty() ? settings.api : settings.origin);
    setGlimmetEndpoints(settings.api.c_str(), nullptr, nullptr);
    const int product = settings.product < 0 ? USUAL_PRODUCT : settings.product;
    const int status = loginGlimmet(user->c_str(), password->c_str(), product);
    wipe(*password);
    if (status == 1) throw CommandFailure(settings.api, "wrong name or password for '" + settings.user + "'");
    if (status != 0) throw CommandFailure(settings.api, cloudReason("the service could not sign in"));
    isSignedIn = true;
}

static bool isNumber(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](unsigned char c) { return std::isdigit(c) != 0; });
}

static bool looksLikeDate(std::string_view text) {
    return !text.empty() && std::isdigit(static_cast<unsigned char>(text.front())) != 0 &&
           text.find(':') != std::string_view::npos;
}

std::vector<CloudFile> parseCloudListing(const std::string& listing) {
    std::vector<CloudFile> files;
    std::string name;
    std::string_view before; // the value before, not yet part of the name
    std::string_view rest = listing;
    while (!rest.empty()) {
        const size_t comma = std::min(rest.find(','), rest.size());
        const std::string_view value = rest.substr(0, comma);
        rest.remove_prefix(std::min(comma + 1, rest.size()));
        if (isNumber(value) && looksLikeDate(before)) {
            if (name.starts_with('/')) name.erase(0, 1);
            if (name.ends_with(',')) name.pop_back();
            CloudFile file{std::move(name), std::string(before), 0};
            std::from_chars(value.data(), value.data() + value.size(), file.size);
            files.push_back(std::move(file));
            name.clear();
            before = {};
        } else {
            if (before.data() != nullptr) name += std::string(before) + ",";
            before = value;
        }
    }
    return files;
}

std::vector<CloudFile> listCloudFiles() {
    const std::string listing = encodeUtf8(listGlimmetFiles());
    // An account that holds nothing is not asked for its files.
    if (listing.empty() && getGlimmetStorage() != 0) throw CommandFailure(cloudReason("the service lists no files"));
    if (listing.empty() && getGlimmetStorageLimit() == 0) {
        throw CommandFailure(cloudReason("the service tells nothing about the account"));
    }
    return parseCloudListing(listing);
}

std::optional<CloudFile> findCloudFile(const std::string& name) {
    const std::vector<CloudFile> files = listCloudFiles();
    const auto found = std::ranges::find(files, name, &CloudFile::name);
    return found == files.end() ? std::nullopt : std::optional(*found);
}

void checkCloudName(const std::string& name) {
    static constexpr std::string_view REFUSED = "\"\\/,#%&";
    const auto isRefused = [](unsigned char c) {
        return c < 0x20 || c == 0x7F || REFUSED.find(static_cast<char>(c)) != std::string_view::npos;
    };
    if (name.empty()) throw CommandFailure("a file in the cloud needs a name");
    if (std::ranges::any_of(name, isRefused)) {
        throw CommandFailure(name, "a name in the cloud cannot hold control characters, nor any of \" \\ / , # % &");
    }
    widePath(name);
}
