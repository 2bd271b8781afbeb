#pragma once

// The key check of initEngine and createOPC. Everything about keys stands behind it, so that a distributor can replace
// it.
class License {
public:
    // Whether the key is accepted: it is neither null nor empty, and not on the block list, which is empty here.
    static bool isValid(const char* key);
};
