#pragma once

#include "writers/OutputFile.h"
#include "writers/PointWriter.h"

// Points as comma-separated text; see PointWriter.h.
class CsvWriter : public PointWriter {
public:
    explicit CsvWriter(const std::string& path);
    void write(const PointBatch& batch) override;
    void finish() override { file.finish(); }

private:
    OutputFile file;
};
