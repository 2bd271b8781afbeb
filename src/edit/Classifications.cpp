#include "edit/Classifications.h"

#include <algorithm>

void Classifications::setClassifications(const unsigned char* value) {
    std::copy_n(value, table.size(), table.begin());
    anyHidden = false;
    for (size_t i = HIDDEN; i < table.size(); i += 4) anyHidden = anyHidden || table[i] != 0;
}

bool Classifications::isClassHidden(unsigned char classValue) const {
    return anyHidden && table[4 * size_t{classValue} + HIDDEN] != 0;
}
