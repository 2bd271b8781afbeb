#include "readers/LazBytes.h"

static constexpr size_t BLOCK_SIZE = 64 * 1024;

bool LazBytes::refill() {
    // Once past the end always past it, even if the file grows meanwhile.
    if (behind == nullptr || past) return false;
    block.resize(BLOCK_SIZE);
    const size_t got = behind->readAt(position, block);
    position += got;
    at = block.data();
    end = at + got;
    return got > 0;
}
