#include "viewer/Editor.h"
#include "cloud/EngineSession.h"
#include "support/PointFileMaker.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <nimbrel/NimbrelEngine.h>

// A cloud of two points, of classes 0 and 5, twice: the second of a path is open read-only, and can be marked too.
TEST(Editor, MarksWhatIsShown) {
    const TempDir dir;
    PointFileMaker maker(17);
    maker.add({.pointCount = 2, .stored = fixedPoint(0, 0, 0, 252) + fixedPoint(10000, 0, 0, 1)});
    dir.write("cloud.opc", maker.make());
    const EngineSession session;
    Scene scene({dir.path("cloud.opc"), dir.path("cloud.opc")});
    Editor editor(scene);
    editor.selectAll();
    EXPECT_EQ(4U, editor.selectedPoints());
    const std::array corners{scene.toScene({0.5, -1, -1}), scene.toScene({1.5, 1, 1})};
    editor.strokeBox(Box::around(corners));
    EXPECT_EQ(2U, editor.selectedPoints()) << "in place of the others";
    setEnabled(scene.clouds[0].file->id(), false);
    editor.growByClass();
    EXPECT_EQ(1U, editor.selectedPoints()) << "what is not shown has no class";
}
