#pragma once

#include "writers/OutputFile.h"
#include "writers/PointWriter.h"

// Points as binary PLY; see PointWriter.h.
class PlyWriter : public PointWriter {
public:
    explicit PlyWriter(const std::string& path);
    void write(const PointBatch& batch) override;
    void finish() override;

private:
    OutputFile file;
    uint64_t count = 0;
};
