// The files of an account.

#include "ground/Log.h"
#include "remote/ApiAnswer.h"
#include "remote/CloudSession.h"
#include "remote/S3Utils.h"

static bool isSuccess(int status) {
    return status == 200 || status == 206;
}

std::wstring S3Utils::listFiles() {
    std::wstring files = listingText(callLambdaURL("/ListFiles/", true, 3, "", "", nullptr));
    if (!files.empty()) CloudSession::instance().keepListing(files);
    return files;
}

// What a key is listed as: from its last "/" on. A key without one, its first character apart, is not.
static std::string listedName(const std::string& key) {
    const size_t slash = key.rfind('/');
    return slash == std::string::npos || slash == 0 ? std::string() : key.substr(slash) + ",";
}

std::wstring S3Utils::listingText(const std::string& json) {
    const std::optional<picojson::value> listing = parseJSON(json);
    if (!listing) return {};
    const picojson::value& contents = memberOf(*listing, "Contents");
    if (!contents.is<picojson::array>()) return {};
    std::string text;
    for (const picojson::value& file : contents.get<picojson::array>()) {
        text += listedName(memberOf(file, "Key").to_str());
        text += memberOf(file, "LastModified").to_str() + "," + memberOf(file, "Size").to_str() + ",";
    }
    return toWide(text);
}

std::wstring S3Utils::listFilesUntilShown() {
    constexpr int ATTEMPTS = 10;
    std::wstring files;
    for (int i = 0; i < ATTEMPTS && files.empty() && getDatabaseNumberValue(0) != 0; ++i) files = listFiles();
    return files;
}

bool S3Utils::deleteFile(const std::wstring& name) {
    // Nothing in the key is escaped: the service refuses what that makes of a double quote.
    const std::string body = R"([{"Key":")" + refreshPrefix("") + toUtf8(name) + R"("}])";
    const bool deleted = isSuccess(postToAPI("/DeleteFiles/", body));
    if (deleted) listFiles(); // which renews the service's own
    logText(std::string("DELETE : ") + (deleted ? "1" : "0") + "\n");
    return deleted;
}

void S3Utils::emailLink(const std::wstring& email, const std::wstring& name, int duration) {
    setLastError("");
    const std::string time = std::to_string(duration);
    const std::string link = callLambdaURL(
        "/GetSignedURL/?duration=" + time + "&file=" + refreshPrefix("") + toUtf8(name), true, 3, "", "", nullptr);
    if (link.empty()) return;
    setLastError(""); // that of an attempt before the one that went well
    postToAPI("/SendEmail/?email=" + toUtf8(email) + "&time=" + time, "[\"" + link + "\"]");
}
