#include "cloud/CloudSource.h"
#include "support/WidePath.h"

#include <nimbrel/NimbrelEngine.h>

#include <algorithm>
#include <filesystem>
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

SourceKind kindOfSource(const std::string& name) {
    return protocolOf(name) ? SourceKind::POINT_SERVER : SourceKind::LOCAL_FILE;
}

std::string labelOfSource(const std::string& name) {
    return protocolOf(name) ? name.substr(0, name.find('?')) : name;
}

int openCloudSource(const std::string& name) {
    const Protocol* protocol = protocolOf(name);
    if (!protocol) return loadPointCloudFile(widePath(name).c_str());
    return loadPointCloudNetwork(widePath(withPort(name, *protocol)).c_str());
}

uint64_t sizeOfSource(const std::string& name) {
    std::error_code error;
    const uintmax_t size = protocolOf(name) ? 0 : std::filesystem::file_size(name, error);
    return error ? 0 : size;
}
