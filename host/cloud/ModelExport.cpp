#include "cloud/ModelExport.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/Progress.h"
#include "support/WidePath.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

std::array<int64_t, 3> modelSize(const std::array<double, 6>& box, const ModelOptions& options) {
    std::array<int64_t, 3> size{};
    for (size_t axis = 0; axis < 3; ++axis) {
        const double cells = std::ceil((box[axis + 3] * options.scale - box[axis] * options.scale) / options.voxelSize);
        size[axis] = cells < 0x1p62 ? static_cast<int64_t>(cells) : int64_t{1} << 62;
    }
    return size;
}

std::vector<std::string> ModelExport::filesOf(const std::string& output, ModelForm form) {
    std::vector<std::string> files{output};
    if (form != ModelForm::OBJ) return files;
    const fs::path path(output);
    std::string stem = path.filename().string();
    stem = stem.substr(0, stem.find('.'));
    std::replace(stem.begin(), stem.end(), ' ', '_');
    for (const char* ending : {".mtl", ".png"}) files.push_back((path.parent_path() / (stem + ending)).string());
    return files;
}

static std::string folderOf(const std::string& output) {
    return output + ".parts";
}

ModelExport::ModelExport(const std::string& outputPath, bool force) : output(outputPath), folder(folderOf(outputPath)) {
    if (mkdir(folder.c_str(), 0777) == 0) return;
    const int problem = errno;
    if (problem == EEXIST && !force) {
        throw CommandFailure(folder, "is left over from a command that was killed, or belongs to one at work; --force "
                                     "replaces it");
    }
    if (problem == EEXIST) remove();
    if (problem != EEXIST || mkdir(folder.c_str(), 0777) != 0) {
        throw CommandFailure(folder, std::string("cannot be made: ") + std::strerror(errno));
    }
}

ModelExport::~ModelExport() {
    remove();
}

// Only what an export makes: a folder of that name can be somebody's. It takes another name first, so that an export
// that still runs can't make another file in it.
void ModelExport::remove() const {
    std::string gone = folder;
    if (std::rename(folder.c_str(), (folder + ".old").c_str()) == 0) gone += ".old";
    for (const std::string& file : filesOf((fs::path(gone) / fs::path(output).filename()).string(), ModelForm::OBJ)) {
        unlink(file.c_str());
    }
    rmdir(gone.c_str());
}

NimbrelVoxelReport ModelExport::run(int cloud, uint64_t points, const ModelOptions& options, Console& console) {
    const std::string path = (fs::path(folder) / fs::path(output).filename()).string();
    const std::wstring wide = widePath(path);
    std::atomic<bool> isOver{false};
    std::thread worker([&] {
        exportVoxelModel(cloud, static_cast<int>(options.form), wide.c_str(), options.byIntensity ? 1 : 0,
                         options.voxelSize, options.scale);
        isOver = true;
    });
    {
        Progress progress(console, "Exporting", points);
        while (!isOver) {
            if (isInterrupted()) {
                remove();
                console.clearStatus();
                console.error("interrupted");
                std::_Exit(exitStatusOfInterrupt());
            }
            const float share = getVoxelProgress();
            if (share <= 1.0F) progress.update(0, static_cast<double>(share)); // 2 without an export
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        worker.join();
        progress.finish(points);
    }
    const std::string problem = nimbrelLastError();
    if (!problem.empty()) throw CommandFailure(output, problem);
    NimbrelVoxelReport report{};
    nimbrelGetVoxelReport(&report);
    // The file that names the others comes last.
    std::vector<std::string> from = filesOf(path, options.form);
    std::vector<std::string> to = filesOf(output, options.form);
    for (size_t i = from.size(); i-- > 0;) {
        if (access(from[i].c_str(), F_OK) != 0) continue; // a model of nothing has no texture
        if (std::rename(from[i].c_str(), to[i].c_str()) != 0) {
            throw CommandFailure(to[i], std::string("cannot be moved to its place: ") + std::strerror(errno));
        }
    }
    return report;
}
