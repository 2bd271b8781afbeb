#include "engine/License.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {
constexpr std::array<std::string_view, 0> BLOCK_LIST{};
}

bool License::isValid(const char* key) {
    if (!key || *key == '\0') return false;
    return std::find(BLOCK_LIST.begin(), BLOCK_LIST.end(), std::string_view(key)) == BLOCK_LIST.end();
}
