#include "writers/PngWriter.h"
#include "readers/PointReader.h"
#include "writers/OutputFile.h"

#include <png.h>

// libpng's simplified interface: errors come back as values, where the full one would jump over destructors.
void writePng(const std::string& path, const Picture& picture) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.width);
    image.height = static_cast<png_uint_32>(picture.height);
    image.format = PNG_FORMAT_RGB;
    png_alloc_size_t size = 0;
    if (png_image_write_to_memory(&image, nullptr, &size, 0, picture.rgb.data(), 0, nullptr) == 0) {
        throw FileError(std::string("cannot be made a PNG picture: ") + image.message);
    }
    std::vector<char> bytes(size);
    if (png_image_write_to_memory(&image, bytes.data(), &size, 0, picture.rgb.data(), 0, nullptr) == 0) {
        throw FileError(std::string("cannot be made a PNG picture: ") + image.message);
    }
    OutputFile file(path);
    file.write({bytes.data(), size});
    file.finish();
}
