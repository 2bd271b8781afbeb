#pragma once

#include "cloud/CloudSettings.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The cloud service that the engine is connected to. The engine has one service and one sign-in in a process, and so
// have these operations, which belong to one thread. Failures are thrown as CommandFailure.

// Asks on the terminal for what is missing, and signs in. Once that was done it does nothing more.
void signInToCloud(CloudSettings settings);

// Names the object store of signed URLs, for which nobody needs to sign in. Throws when another one is in use.
void useObjectStore(const std::string& store, const std::string& origin);

struct CloudFile {
    std::string name;
    std::string date;  // as the service writes it
    uint64_t size = 0; // in bytes
};

// The files of the account that is signed in.
std::vector<CloudFile> listCloudFiles();
std::optional<CloudFile> findCloudFile(const std::string& name);

// Takes the engine's listing apart: name, date, size, each with a comma behind it, where names may hold commas
// themselves, begin with a slash that is dropped, and may be missing.
std::vector<CloudFile> parseCloudListing(const std::string& listing);

// Throws for a name that does not survive the protocol, which escapes little.
void checkCloudName(const std::string& name);

// What the engine tells about the last failure, or else `fallback`.
std::string cloudReason(const char* fallback);
