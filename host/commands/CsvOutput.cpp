#include "commands/CsvOutput.h"

#include <fmt/compile.h>
#include <iterator>

CsvOutput::CsvOutput(StandardOutput& outputToUse) : output(outputToUse) {
    output.print("x,y,z,red,green,blue,intensity,class\n");
}

void CsvOutput::write(const PointBatch& batch) {
    fmt::memory_buffer text;
    for (size_t i = 0; i < batch.size(); ++i) {
        const double* position = &batch.positions[i * 3];
        const unsigned char* bytes = &batch.attributes[i * 5];
        fmt::format_to(std::back_inserter(text), FMT_COMPILE("{},{},{},{},{},{},{},{}\n"), position[0], position[1],
                       position[2], bytes[0], bytes[1], bytes[2], bytes[3], bytes[4]);
    }
    output.print({text.data(), text.size()});
}
