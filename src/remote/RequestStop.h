#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>

// Ends the requests that belong to one piece of work, from another thread: those under way are broken off, later ones
// fail before they are sent. Once requested it stays so.
class RequestStop {
public:
    [[nodiscard]] bool requested() const;

    // A request that is between its first step and its socket can slip through, and then ends in its own time, or with
    // the next call.
    void request();

    // Waits, but not longer than until the stop is requested; whether it is.
    bool pause(std::chrono::milliseconds time);

    // Puts one request under the stop, for as long as it lives.
    class Watch {
    public:
        // stop       may be null
        // interrupt  breaks the request off; called on the thread that stops, with the stop's lock held
        Watch(RequestStop* stopIn, std::function<void()> interrupt);
        ~Watch();
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;

    private:
        RequestStop* const stop;
        std::list<std::function<void()>>::iterator place;
    };

private:
    mutable std::mutex mutex; // guards the two below; taken before those of connections
    bool isRequested = false;
    std::list<std::function<void()>> interrupts; // of requests under way
    std::condition_variable changed;
};
