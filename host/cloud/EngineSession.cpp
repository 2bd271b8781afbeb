#include "cloud/EngineSession.h"
#include "support/Failure.h"

#include <nimbrel/NimbrelEngine.h>

EngineSession::EngineSession() {
    if (initEngine("nimbrel") != 1) throw CommandFailure("the engine refused its key");
}

EngineSession::~EngineSession() {
    shutdownEngine();
}
