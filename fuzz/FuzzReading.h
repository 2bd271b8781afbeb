#pragma once

#include "readers/PointReader.h"

#include <cstdlib>

// Surveys a reader and reads it to the end. What the survey counted must arrive, within the bounds that it found.
inline void checkReading(PointReader& reader) {
    const PointSurvey survey = reader.survey({});
    PointBatch batch;
    uint64_t count = 0;
    while (reader.read(batch, 100) > 0) {
        count += batch.size();
        for (size_t i = 0; i < batch.positions.size(); ++i) {
            const double value = batch.positions[i];
            if (!(value >= survey.bounds[i % 3] && value <= survey.bounds[i % 3 + 3])) std::abort();
        }
    }
    if (count != survey.count) std::abort();
    if (reader.describe().empty() || reader.fractionRead() < 0 || reader.fractionRead() > 1) std::abort();
    for (const std::string& warning : reader.warnings()) {
        if (warning.empty()) std::abort();
    }
}
