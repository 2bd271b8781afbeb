#pragma once

#include <cstdint>
#include <string>

// Where a cloud comes from: what the command line names in the place of a point file.
enum class SourceKind {
    LOCAL_FILE,
    POINT_SERVER, // http:// or https://
    ACCOUNT,      // cloud:NAME, a file of the account in the cloud service
    SIGNED_URL,   // https:// to an object of the cloud service's store
};

// A URL is a signed one when it begins with the endpoint of the object store, as options of `nimbrel cloud` and the
// environment have it; while none is known, when it has a query, which a URL of a point server has not. Throws
// CommandFailure when what is kept of the cloud service cannot be used.
SourceKind kindOfSource(const std::string& name);

// The name as messages and results show it: what is signed in a URL stays out.
std::string labelOfSource(const std::string& name);

// Opens the cloud in the engine; a URL of a point server without a port gets that of its protocol. Signs in to the
// cloud service where that is needed. Returns the id, or -1 as the engine does, which then knows the reason. Throws
// CommandFailure for a name that the engine could not be told, and when nobody can be signed in.
int openCloudSource(const std::string& name);

// In bytes; 0 when that is not known.
uint64_t sizeOfSource(const std::string& name);
