#pragma once

#include <cstdint>
#include <string>

// Where a cloud comes from: what the command line names in the place of a point file.
enum class SourceKind {
    LOCAL_FILE,
    POINT_SERVER, // http:// or https://
};

SourceKind kindOfSource(const std::string& name);

// The name as messages and results show it: the query of a URL stays out.
std::string labelOfSource(const std::string& name);

// Opens the cloud in the engine; a URL of a point server without a port gets that of its protocol. Returns the id, or -1
// as the engine does, which then knows the reason. Throws CommandFailure for a name that the engine could not be told.
int openCloudSource(const std::string& name);

// In bytes; 0 when that is not known.
uint64_t sizeOfSource(const std::string& name);
