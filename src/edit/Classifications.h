#pragma once

#include <array>
#include <cstddef>

// The host's table of the 256 LAS classes: how each is coloured and whether it is hidden. Not locked; written between
// operations.
class Classifications {
public:
    // Red, green, blue and hidden for each class; a class is hidden where the fourth byte is not 0.
    using Table = std::array<unsigned char, 1024>;

    // table  1024 bytes
    void setClassifications(const unsigned char* value);
    [[nodiscard]] const Table& getClassifications() const { return table; }

    [[nodiscard]] bool isClassHidden(unsigned char classValue) const;
    [[nodiscard]] bool isAnyClassHidden() const { return anyHidden; }

private:
    static constexpr size_t HIDDEN = 3;

    Table table{};
    bool anyHidden = false; // lets a whole node be taken without a look at its points
};
