#include "remote/FileNetwork.h"

#include "format/NodeRecord.h"
#include "format/OPCHeader.h"
#include "ground/Log.h"
#include "remote/ApiAnswer.h"
#include "remote/Network.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

namespace {

// The description of a cloud must fit a buffer of 1024 bytes and end there with a zero.
constexpr size_t LONGEST_INFO = 1023;

const picojson::value& member(const picojson::value& info, const char* key) {
    if (!info.is<picojson::object>() || !info.contains(key)) {
        throw std::runtime_error(std::string("the server's description of the cloud lacks ") + key);
    }
    return info.get(key);
}

int64_t wholeNumber(const picojson::value& info, const char* key) {
    const picojson::value& value = member(info, key);
    if (!value.is<int64_t>()) {
        throw std::runtime_error(std::string("the server's description of the cloud has no whole number as ") + key);
    }
    return value.get<int64_t>();
}

std::array<double, 6> box(const picojson::value& info, const char* key) {
    static constexpr char PROBLEM[] = "the server's description of the cloud has no six numbers as ";
    const picojson::value& value = member(info, key);
    std::array<double, 6> numbers{};
    if (!value.is<picojson::array>() || value.get<picojson::array>().size() != numbers.size()) {
        throw std::runtime_error(std::string(PROBLEM) + key);
    }
    for (size_t i = 0; i < numbers.size(); ++i) {
        const picojson::value& number = value.get<picojson::array>()[i];
        if (!number.is<double>()) throw std::runtime_error(std::string(PROBLEM) + key);
        numbers[i] = number.get<double>();
    }
    return numbers;
}

// Nothing of the header is changed unless all of it is there. Nodes and points travel as 32 bits.
void takeInfo(const picojson::value& info, OPCHeader& header) {
    const std::array<double, 6> boundingBox = box(info, "BoundingBox");
    const auto nodes = static_cast<int32_t>(wholeNumber(info, "Nodes"));
    const auto version = static_cast<int32_t>(wholeNumber(info, "Version"));
    const auto points = static_cast<int32_t>(wholeNumber(info, "Points"));
    header.reserved = wholeNumber(info, "Reserved");
    header.headerTag = 1;
    header.boundingBox = boundingBox;
    header.nodeCount = nodes;
    header.version = version;
    header.pointCount = int64_t{points};
    header.changed = true;
}

} // namespace

FileNetwork::FileNetwork() : ahead(connectionCount()) {}

FileNetwork::~FileNetwork() {
    abandonReads();
}

void FileNetwork::openFile(const std::wstring& path, bool /*writable*/, long long /*start*/) {
    network = std::make_unique<Network>(path);
}

void FileNetwork::abandonReads() {
    if (network) network->abandon();
}

bool FileNetwork::readData(char* out, long long nodeIndex, long long /*byteLocation*/, int size) {
    if (!network || size < 0) return false;
    std::fill_n(out, size, '\0');
    const std::span<unsigned char> buffer(reinterpret_cast<unsigned char*>(out), static_cast<size_t>(size));
    return network->processQuery("?node=" + std::to_string(nodeIndex), buffer) == size;
}

void FileNetwork::readHeader(OPCHeader* header) {
    if (!network) return;
    std::array<unsigned char, LONGEST_INFO + 1> buffer{};
    const int length = network->processQuery("?info", std::span(buffer).first(LONGEST_INFO));
    if (length < 0) throw std::runtime_error("the server's description of the cloud is longer than 1023 bytes");
    const std::string text(reinterpret_cast<const char*>(buffer.data())); // up to the first zero
    logText(text + "\n");
    const std::string reason = network->lastFailure();
    if (length == 0) return setLastError(reason.empty() ? "the server's answer is empty" : reason);
    const std::optional<picojson::value> info = parseJSON(text);
    if (!info) return setLastError(reason.empty() ? "the server's answer is no description of a cloud" : reason);
    takeInfo(*info, *header);
    const int64_t treeSize = header->version == OPCHeader::VERSION_VOXEL
                                 ? header->reserved
                                 : int64_t{header->nodeCount} * NodeRecord::Wire::SIZE;
    const bool arrived = network->processQuery("?tree", treeStructure, std::max<int64_t>(treeSize, 0));
    if (header->isValid() && (!arrived || getTreeStructureSize() != treeSize)) {
        throw std::runtime_error("the server sent no tree of the announced size");
    }
    ahead.allowReaders(connectionCount(network->roundTrip()));
}
