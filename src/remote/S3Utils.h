#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

class RequestStop;

// The client of the Glimmet cloud service: its web API, the object store that it signs URLs of, uploads, and the files
// of an account. docs/cloud.md has the protocol. No instances: there is one service and one sign-in in a process, and
// CloudSession holds them.
//
// Everything may be called from any thread and blocks for the length of its requests. Failures come back as an empty
// string, false or a status, with a reason for nimbrelLastError; no exception gets out.
class S3Utils {
public:
    // ---- The web API (S3Utils.cpp)

    // Calls the API: a GET of `url`, which is a path and perhaps a query, answered with status 200 and a JSON object
    // whose member "value" is the result. Empty on failure, and for null. Tries up to `retries` times, without a pause;
    // sends nothing when `authorised` and nobody is signed in.
    //
    // token   bearer of this call in place of the sign-in's; empty for none
    // query   appended with "?", once more in each attempt: an established oddity
    // status  may be null; 0 once there was a sound answer; for a sign-in 1 after HTTP status 400, 2 after 500
    // stop    may be null; ends the attempts
    static std::string callLambdaURL(std::string url, bool authorised, int retries, const std::string& token,
                                     const std::string& query, int* status, RequestStop* stop = nullptr);

    // A POST of `body` to the API with the sign-in's bearer; the HTTP status, -1 without an answer.
    static int postToAPI(const std::string& url, const std::string& body);

    // The body at any URL, whatever its status; at most MOST_URL_DATA bytes of it.
    static std::string simpleGet(const std::string& host, const std::string& path);
    static constexpr size_t MOST_URL_DATA = size_t{1} << 20;

    // As loginGlimmet.
    static int login(std::wstring_view username, std::wstring_view password, int product);

    // Each stores its argument unless that is empty, and returns what is held; the prefix with a "/" behind it.
    static std::string refreshIDToken(const std::string& newValue);
    static std::string refreshPrefix(const std::string& newValue);
    static std::string refreshUploadFilename(const std::string& newValue);
    static std::string refreshUploadID(const std::string& newValue);

    // The storage region of the account.
    static std::string getCountry();

    // A figure of the account: 0 bytes used, 1 bytes allowed, any other the tier. 0 on failure. An answer stays good
    // while it is asked for at least every 2 seconds.
    static int64_t getDatabaseNumberValue(int which);
    static int getTier();

    static void resetNetwork();

    // ---- Objects (S3Objects.cpp)

    // The signed URL of a file in the account.
    static std::string getSignedURL(const std::wstring& name);

    // Reads a range of an object into `buffer`, which is filled when the result is true and holds anything otherwise.
    // `reset` drops all connections first; with it, `size` may be 0.
    static bool readData(const std::string& url, char* buffer, long long offset, int size, bool reset);

    struct ObjectAnswer {
        bool whole = false;      // every byte asked for came, and no other
        int64_t objectSize = -1; // of the object, if the store told
        std::string version;     // the store's mark for this state of the object, if it has one
        std::string reason;      // why not whole
    };
    // Takes `size` bytes that belong at `position` of the range. A failed attempt is followed by another from 0.
    using ObjectSink = std::function<void(int64_t position, const char* data, size_t size)>;
    static ObjectAnswer readObject(const std::string& url, int64_t offset, int64_t size, const ObjectSink& sink,
                                   RequestStop* stop = nullptr);

    // ---- Uploads (S3Upload.cpp)

    static bool uploadFile(const std::wstring& path);
    static void abortUpload();
    static void abortRunningUpload(); // does nothing with none under way
    static float getUploadProgress();
    static int getUploadState(); // as nimbrelGlimmetUploadState

    // ---- Files (S3Files.cpp)

    // The listing as listGlimmetFiles gives it, after one request.
    static std::wstring listFiles();
    static std::wstring listFilesUntilShown();
    static bool deleteFile(const std::wstring& name);
    static void emailLink(const std::wstring& email, const std::wstring& name, int duration);

    // Turns the service's listing into the one for hosts; empty for anything but a listing.
    static std::wstring listingText(const std::string& json);

private:
    static std::optional<int64_t> accountFigure(const char* name);
};
