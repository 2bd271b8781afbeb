// The exports of the cloud service.

#include "engine/CloudTable.h"
#include "engine/EngineState.h"
#include "ground/Log.h"
#include "nimbrel/NimbrelEngine.h"
#include "remote/CloudSession.h"
#include "remote/FileS3.h"
#include "remote/S3Utils.h"

#include <cstring>

void setGlimmetEndpoints(const char* apiEndpoint, const char* objectEndpoint, const char* webOrigin) {
    guarded(0, [=] {
        CloudSession::instance().setEndpoints(apiEndpoint, objectEndpoint, webOrigin);
        return 0;
    });
}

int loginGlimmet(const wchar_t* username, const wchar_t* password, int product) {
    if (isAnyNull(username, password)) return -1;
    return guarded(-1, [=] { return S3Utils::login(username, password, product); });
}

int loadPointCloudGlimmet(const wchar_t* name) {
    if (!name) return -1;
    return guarded(-1, [name] {
        setLastError("");
        if (!init) {
            setLastError("the engine is not armed: no key was accepted");
            return -1;
        }
        const auto file = std::make_shared<FileS3>();
        file->openFile(name, false, 0);
        return file->isOpen() ? enterCloud(file, name, false) : -1;
    });
}

int getURLData(const char* host, const char* path, char* buffer) {
    if (isAnyNull(host, path, buffer)) return 0;
    return guarded(0, [=] {
        const std::string body = S3Utils::simpleGet(host, path);
        std::memcpy(buffer, body.data(), body.size());
        return static_cast<int>(body.size());
    });
}

bool uploadGlimmetFile(const wchar_t* path) {
    if (!path) return false;
    return guarded(false, [path] { return S3Utils::uploadFile(path); });
}

void abortGlimmetUpload() {
    guarded(0, [] {
        S3Utils::abortUpload();
        return 0;
    });
}

float getGlimmetUploadProgress() {
    return guarded(0.0F, [] { return S3Utils::getUploadProgress(); });
}

int nimbrelGlimmetUploadState() {
    return guarded(0, [] { return S3Utils::getUploadState(); });
}

const wchar_t* listGlimmetFiles() {
    // The calling thread's own, so that another thread's call does not take the text away.
    thread_local std::wstring glimmetFiles;
    guarded(0, [] {
        glimmetFiles.clear();
        glimmetFiles = S3Utils::listFilesUntilShown();
        return 0;
    });
    return glimmetFiles.c_str(); // NOLINT(clang-analyzer-cplusplus.InnerPointer): taken for a local one
}

bool deleteGlimmetFile(const wchar_t* name) {
    if (!name) return false;
    return guarded(false, [name] { return S3Utils::deleteFile(name); });
}

void emailGlimmetLink(const wchar_t* email, const wchar_t* name, int duration) {
    if (isAnyNull(email, name)) return;
    guarded(0, [=] {
        S3Utils::emailLink(email, name, duration);
        return 0;
    });
}

int64_t getGlimmetStorage() {
    return guarded(int64_t{0}, [] { return S3Utils::getDatabaseNumberValue(0); });
}

int64_t getGlimmetStorageLimit() {
    return guarded(int64_t{0}, [] { return S3Utils::getDatabaseNumberValue(1); });
}

int getGlimmetTier() {
    return guarded(0, [] { return S3Utils::getTier(); });
}

void resetGlimmetNetwork() {
    guarded(0, [] {
        S3Utils::resetNetwork();
        return 0;
    });
}
