#include "format/FileMemoryMap.h"

#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "ground/Log.h"

#include <stdexcept>
#include <system_error>

using memory_mapped_file::base_mmf;

const base_mmf& FileMemoryMap::openMap() const {
    if (readOnly) return readOnlyMap;
    return writableMap;
}

void FileMemoryMap::openFile(const std::wstring& path, bool writable, long long startIn) {
    const std::string name = toUtf8(path);
    start = startIn;
    readOnly = false;
    if (writable) {
        writableMap.open(name.c_str(), memory_mapped_file::if_exists_just_open,
                         memory_mapped_file::if_doesnt_exist_create);
    }
    if (!writableMap.is_open()) {
        readOnly = true;
        readOnlyMap.open(name.c_str(), false);
    }
    logText(std::error_code(0, std::system_category()).message() + "\n");
}

void FileMemoryMap::closeFile() {
    readOnlyMap.close();
    writableMap.close();
    treeStructure = {};
}

bool FileMemoryMap::backs(int64_t byteLocation, int64_t size) {
    const auto fileSize = static_cast<int64_t>(openMap().file_size());
    return byteLocation >= 0 && size >= 0 && byteLocation <= fileSize && size <= fileSize - byteLocation;
}

bool FileMemoryMap::readData(char* out, long long /*nodeIndex*/, long long byteLocation, int size) {
    if (!backs(byteLocation, size)) return false;
    return openMap().read(out, static_cast<uint64_t>(byteLocation), static_cast<size_t>(size));
}

bool FileMemoryMap::saveData(const char* in, long long byteLocation, int size) {
    if (readOnly || !backs(byteLocation, size)) return false;
    return writableMap.write(in, static_cast<uint64_t>(byteLocation), static_cast<size_t>(size));
}

void FileMemoryMap::readHeader(OPCHeader* header) {
    std::vector<unsigned char> image(static_cast<size_t>(header->headerSize));
    if (!openMap().read(image.data(), 0, image.size())) throw std::runtime_error("the header can't be read");
    header->setHeaderData(reinterpret_cast<const char*>(image.data()));

    // A voxel file counts the length in the low 32 bits of `reserved`; the header must lie within it.
    const int64_t length = header->version == OPCHeader::VERSION_VOXEL
                               ? int64_t{static_cast<uint32_t>(header->reserved)}
                               : int64_t{header->nodeCount} * NodeRecord::sizeFor(header->version) + header->headerSize;
    if (length < header->headerSize || !backs(0, length)) {
        throw std::runtime_error("the file is too short for the tree that its header announces");
    }
    treeStructure.resize(static_cast<size_t>(length));
    if (!openMap().read(treeStructure.data(), 0, treeStructure.size())) {
        throw std::runtime_error("the tree can't be read");
    }
}
