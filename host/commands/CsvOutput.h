#pragma once

#include "support/StandardOutput.h"
#include "writers/PointWriter.h"

// Points as comma-separated text on standard output, in the form that PointWriter.h has for .csv.
class CsvOutput : public PointWriter {
public:
    explicit CsvOutput(StandardOutput& outputToUse);
    void write(const PointBatch& batch) override;
    void finish() override { output.flush(); }

private:
    StandardOutput& output;
};
