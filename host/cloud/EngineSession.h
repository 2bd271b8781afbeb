#pragma once

// The armed engine, for as long as the object lives. There is one at a time, and no cloud outlives it.
class EngineSession {
public:
    EngineSession();
    ~EngineSession();
    EngineSession(const EngineSession&) = delete;
    EngineSession& operator=(const EngineSession&) = delete;
};
