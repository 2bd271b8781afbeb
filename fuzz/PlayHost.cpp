// Plays random calls of a hostile host, on one thread and on three by turns: playHost ROUNDS [SEED]
// Every round tells its seed, and plays the same from it, as far as the threads allow.

#include "HostileHost.h"

#include <cstdio>
#include <cstdlib>
#include <random>
#include <unistd.h>
#include <vector>

static std::vector<uint8_t> randomBytes(std::mt19937& random) {
    std::vector<uint8_t> bytes(200 + random() % 3000);
    const unsigned oddity = random() % 2 * 48; // of 256 bytes, on top of what comes by chance
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(random());
        if (random() % 256 < oddity) byte |= 15; // HostArguments::isRare
    }
    return bytes;
}

int main(int count, char** arguments) {
    if (count < 2) {
        std::fprintf(stderr, "usage: playHost ROUNDS [SEED]\n");
        return 1;
    }
    constexpr unsigned LONGEST_ROUND = 120; // seconds, after which it counts as hung
    const int rounds = std::atoi(arguments[1]);
    const auto first = static_cast<unsigned>(count > 2 ? std::atoi(arguments[2]) : 1);
    HostileHost host;
    for (int round = 0; round < rounds; ++round) {
        const unsigned seed = first + static_cast<unsigned>(round);
        std::fprintf(stderr, "seed %u\n", seed);
        ::alarm(LONGEST_ROUND);
        std::mt19937 random(seed);
        host.play(randomBytes(random), seed % 2 == 0 ? 3 : 1);
    }
    std::mt19937 random(first);
    host.shutDown(randomBytes(random));
    return 0;
}
