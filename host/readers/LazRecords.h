#pragma once

#include "readers/LasRecords.h"

// Decompressed records. Throws FileError for a compression that is not known, and for a file that holds no point
// although its header announces some.
//
// Chunks that are listed in the file's table are decoded a few at a time on threads of their own, ahead of the caller;
// memory holds those chunks and no more. Files of a single code are decoded by the caller.
std::unique_ptr<LasRecords> openLazRecords(std::shared_ptr<const InputFile> file, const LasHeader& header);
