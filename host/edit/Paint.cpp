#include "edit/Paint.h"

#include <nimbrel/NimbrelEngine.h>

void armPaint(const Paint& paint) {
    if (paint.kind == Paint::Kind::COLOUR) {
        activateColourProcess(paint.colour.data(), paint.coverage, paint.strength);
    } else {
        activateLuminanceProcess(paint.amount, paint.kind == Paint::Kind::BRIGHTNESS);
    }
}
