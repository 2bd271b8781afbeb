#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <vector>

struct Pixel {
    int r, g, b;
    bool operator==(const Pixel&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Pixel& pixel) {
    return out << pixel.r << ' ' << pixel.g << ' ' << pixel.b;
}

// A framebuffer of the host's own, bound while frames are drawn: 8 bits a channel and a depth buffer, cleared to
// BACKGROUND and depth 1.
class HostPicture {
public:
    static constexpr Pixel BACKGROUND{10, 20, 30};

    HostPicture(int widthIn, int heightIn);
    ~HostPicture();
    HostPicture(const HostPicture&) = delete;
    HostPicture& operator=(const HostPicture&) = delete;

    void bind() const;
    void clear(const Pixel& colour = BACKGROUND, float depth = 1.0F) const;

    // y from the bottom.
    [[nodiscard]] Pixel at(int x, int y) const;
    [[nodiscard]] float depthAt(int x, int y) const;

    // The pixels that are not BACKGROUND, as x, y, in rows from the bottom.
    [[nodiscard]] std::vector<std::array<int, 2>> drawn() const;

    // The context is gone, and this with it.
    void forget() { framebuffer = 0; }

    const int width, height;

private:
    uint32_t framebuffer = 0;
    std::array<uint32_t, 2> buffers{};
};
