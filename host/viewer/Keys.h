#pragma once

#include "viewer/ViewerState.h"

#include <span>

// What a typed character does. One table serves the keyboard and the list that `?` shows.
struct KeyBinding {
    char key;
    const char* effect;
    void (*act)(ViewerState& state);
};

std::span<const KeyBinding> keyBindings();

// Whether the character is bound; its effect has then taken place.
bool pressKey(unsigned character, ViewerState& state);
