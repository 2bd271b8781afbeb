#include "cloud/CloudSource.h"
#include "cloud/CloudService.h"
#include "cloud/CloudSettings.h"
#include "support/WidePath.h"

#include <nimbrel/NimbrelEngine.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>

namespace {
struct Protocol {
    std::string_view prefix;
    std::string_view port;
};
constexpr Protocol HTTP{"http://", "80"};
constexpr Protocol HTTPS{"https://", "443"};
} // namespace

static const Protocol* protocolOf(const std::string& name) {
    if (name.starts_with(HTTP.prefix)) return &HTTP;
    return name.starts_with(HTTPS.prefix) ? &HTTPS : nullptr;
}

// The engine wants the port to be there.
static std::string withPort(std::string url, const Protocol& protocol) {
    const size_t hostEnd = std::min(url.find_first_of("/?#", protocol.prefix.size()), url.size());
    const size_t colon = url.find(':', protocol.prefix.size());
    if (colon >= hostEnd) url.insert(hostEnd, protocol.port).insert(hostEnd, 1, ':');
    return url;
}

static std::optional<std::string> accountName(const std::string& name) {
    constexpr std::string_view PREFIX = "cloud:";
    return name.starts_with(PREFIX) ? std::optional(name.substr(PREFIX.size())) : std::nullopt;
}

// The endpoint of the store that a signed URL belongs to; empty for other URLs.
static std::string storeOfUrl(const std::string& url) {
    if (!url.starts_with(HTTPS.prefix)) return {};
    const std::string known = findCloudSettings({}).store;
    if (!known.empty()) return url.starts_with(known) && url[known.size()] == '/' ? known : std::string();
    const size_t hostEnd = url.find('/', HTTPS.prefix.size());
    const bool hasQuery = hostEnd != std::string::npos && url.find('?', hostEnd) != std::string::npos;
    return hasQuery ? url.substr(0, hostEnd) : std::string();
}

SourceKind kindOfSource(const std::string& name) {
    if (accountName(name)) return SourceKind::ACCOUNT;
    if (!protocolOf(name)) return SourceKind::LOCAL_FILE;
    return storeOfUrl(name).empty() ? SourceKind::POINT_SERVER : SourceKind::SIGNED_URL;
}

std::string labelOfSource(const std::string& name) {
    return protocolOf(name) ? name.substr(0, name.find('?')) : name;
}

static int openInAccount(const std::string& name) {
    checkCloudName(name);
    signInToCloud(findCloudSettings({}));
    return loadPointCloudGlimmet(widePath(name).c_str());
}

int openCloudSource(const std::string& name) {
    if (const auto inAccount = accountName(name)) return openInAccount(*inAccount);
    const Protocol* protocol = protocolOf(name);
    if (!protocol) return loadPointCloudFile(widePath(name).c_str());
    const std::string store = storeOfUrl(name);
    if (store.empty()) return loadPointCloudNetwork(widePath(withPort(name, *protocol)).c_str());
    const CloudSettings settings = findCloudSettings({});
    useObjectStore(store, settings.origin.empty() ? settings.api : settings.origin);
    return loadPointCloudGlimmet(widePath(name).c_str());
}

uint64_t sizeOfSource(const std::string& name) {
    if (const auto inAccount = accountName(name)) {
        const std::optional<CloudFile> file = findCloudFile(*inAccount);
        return file ? file->size : 0;
    }
    std::error_code error;
    const uintmax_t size = protocolOf(name) ? 0 : std::filesystem::file_size(name, error);
    return error ? 0 : size;
}
