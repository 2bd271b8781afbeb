#pragma once

#include <memory>
#include <string>

class PointCloudFile;

// Reads the cloud of an opened source and enters it into the table; its id, or -1 when the source holds no sound cloud.
// The table is held for the last step alone, so that frames go on while header and tree are read.
//
// name      what the cloud is known by: a path or a URL
// writable  the source is open for writing
int enterCloud(const std::shared_ptr<PointCloudFile>& file, const std::wstring& name, bool writable);
