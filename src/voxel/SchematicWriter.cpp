// The blocks of a schematic as uncompressed NBT: big-endian tags around two arrays of a byte a cell. Both arrays go
// over the whole grid, Z outermost, then Y from its far end, then X; the cells that are occupied are sorted by Z, Y, X.
// So the rows of a layer are taken last to first, and what lies between two blocks is a run of zeros that costs nothing
// to pass.

#include "voxel/ExportFile.h"
#include "voxel/MinecraftBlock.h"
#include "voxel/VoxelProgress.h"
#include "voxel/VoxelWriters.h"

#include <algorithm>
#include <limits>
#include <string_view>

namespace {

enum Tag : unsigned char { TAG_END = 0, TAG_SHORT = 2, TAG_BYTE_ARRAY = 7, TAG_STRING = 8, TAG_COMPOUND = 10 };

void nbt_write_byte(ExportFile& file, int64_t value) {
    const char byte = static_cast<char>(value);
    file.write({&byte, 1});
}

void nbt_write_short(ExportFile& file, int64_t value) {
    nbt_write_byte(file, value >> 8);
    nbt_write_byte(file, value);
}

void nbt_write_int(ExportFile& file, int64_t value) {
    nbt_write_short(file, value >> 16);
    nbt_write_short(file, value);
}

void nbt_write_string(ExportFile& file, std::string_view text) {
    nbt_write_short(file, static_cast<int64_t>(text.size()));
    file.write(text);
}

void nbt_start_named_tag(ExportFile& file, Tag tag, std::string_view name) {
    nbt_write_byte(file, tag);
    nbt_write_string(file, name);
}

void nbt_start_byte_array(ExportFile& file, std::string_view name, int64_t size) {
    nbt_start_named_tag(file, TAG_BYTE_ARRAY, name);
    nbt_write_int(file, size);
}

// The cells along each axis, of the file and of the model at once. Without cells along one there is nothing to write.
struct Extent {
    explicit Extent(const ModelGrid& grid) : width(grid.count[0]), length(grid.count[1]), height(grid.count[2]) {
        const bool isEmpty = width <= 0 || length <= 0 || height <= 0;
        if (!isEmpty &&
            (__builtin_mul_overflow(width, length, &layer) || __builtin_mul_overflow(layer, height, &total))) {
            total = std::numeric_limits<int64_t>::max(); // more than a file holds
            isWritable = false;
        }
    }

    // What the file says of a number of cells, cut to 32 bits.
    [[nodiscard]] int64_t announced() const {
        return static_cast<int32_t>(static_cast<uint32_t>(width) * static_cast<uint32_t>(length) *
                                    static_cast<uint32_t>(height));
    }

    int64_t width;  // X
    int64_t length; // Y
    int64_t height; // Z
    int64_t layer = 0;
    int64_t total = 0; // cells
    bool isWritable = true;
};

// A solid cell where it stands in the file.
struct Block {
    int64_t place; // in either array
    uint8_t id;
    uint8_t data;
};

// Calls visit(cell, place) for the solid cells of the grid in the order of the file.
template <typename Visit>
void walkBlocks(const std::vector<ModelCell>& cells, const Extent& extent, Visit visit) {
    const auto rowOf = [&extent](const ModelCell& cell) { return cell.key / extent.width; };
    const auto keyLess = [](const ModelCell& cell, int64_t key) { return cell.key < key; };
    auto next = std::lower_bound(cells.begin(), cells.end(), int64_t{0}, keyLess);
    const auto end = std::lower_bound(next, cells.end(), extent.total, keyLess);
    while (next != end) {
        const int64_t layer = next->key / extent.layer;
        const auto layerBegin = next;
        while (next != end && next->key / extent.layer == layer) ++next;
        for (auto rowEnd = next; rowEnd != layerBegin;) {
            const int64_t row = rowOf(*(rowEnd - 1));
            auto rowBegin = rowEnd - 1;
            while (rowBegin != layerBegin && rowOf(*(rowBegin - 1)) == row) --rowBegin;
            const int64_t line = extent.length - 1 - (row - layer * extent.length); // of the file's layer
            const int64_t start = layer * extent.layer + line * extent.width - row * extent.width;
            for (auto cell = rowBegin; cell != rowEnd; ++cell) {
                if (cell->isSolid()) visit(*cell, start + cell->key);
            }
            rowEnd = rowBegin;
        }
    }
}

// One of the two arrays. `stepsBefore` were done before it. Bytes go to the file before they count as steps, so that
// whoever reads the file beside the export finds there all that the progress tells of.
void writeArray(ExportFile& file, const std::vector<Block>& blocks, const Extent& extent, uint8_t Block::*value,
                uint64_t stepsBefore) {
    constexpr int64_t STEPS_AT_ONCE = 65536;
    int64_t place = 0;
    int64_t shown = 0;
    for (const Block& block : blocks) {
        if (block.place > place) file.writeZeros(static_cast<uint64_t>(block.place - place));
        char* out = file.room(1);
        *out++ = static_cast<char>(block.*value);
        file.filled(out);
        place = block.place + 1;
        if (place - shown < STEPS_AT_ONCE) continue;
        file.flush();
        if (file.failed()) return;
        shown = place;
        setVoxelProgress(stepsBefore + static_cast<uint64_t>(place));
    }
    if (extent.total > place) file.writeZeros(static_cast<uint64_t>(extent.total - place));
    file.flush();
    setVoxelProgress(stepsBefore + static_cast<uint64_t>(extent.total));
}

} // namespace

void writeVoxelSchematic(const VoxelModel& model, ExportFile& file, bool useIntensity) {
    const Extent extent(model.grid);
    nbt_start_named_tag(file, TAG_COMPOUND, "Schematic");
    nbt_start_named_tag(file, TAG_SHORT, "Width");
    nbt_write_short(file, extent.width);
    nbt_start_named_tag(file, TAG_SHORT, "Height");
    nbt_write_short(file, extent.height);
    nbt_start_named_tag(file, TAG_SHORT, "Length");
    nbt_write_short(file, extent.length);
    nbt_start_named_tag(file, TAG_STRING, "Materials");
    nbt_write_string(file, "Alpha");
    nextVoxelStage(2 * extent.announced());

    std::vector<Block> blocks;
    if (extent.total > 0 && extent.isWritable) {
        walkBlocks(model.map.cells(), extent, [&](const ModelCell& cell, int64_t place) {
            const MinecraftBlock block = getMinecraftBlock(cell.voxel, useIntensity);
            blocks.push_back({place, static_cast<uint8_t>(block.id), static_cast<uint8_t>(block.data)});
        });
    }
    nbt_start_byte_array(file, "Blocks", extent.announced());
    writeArray(file, blocks, extent, &Block::id, 0);
    nbt_start_byte_array(file, "Data", extent.announced());
    writeArray(file, blocks, extent, &Block::data, static_cast<uint64_t>(extent.total));
    nbt_write_byte(file, TAG_END);
}
