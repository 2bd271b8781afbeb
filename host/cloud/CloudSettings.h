#pragma once

#include <string>

// Which cloud service to use and who signs in to it; a text is empty where it is not known.
struct CloudSettings {
    std::string api;      // endpoint of the web API, "https://host[:port]"
    std::string store;    // endpoint of the object store, in the same form
    std::string origin;   // web origin that the store is told
    std::string user;     // name of the account
    std::string password; // of the account
    int product = -1;     // number that the service knows this program by; below 0 for the usual one
};

// What `given` leaves out is taken from the environment (NIMBREL_CLOUD_API, _STORE, _ORIGIN, _USER, _PASSWORD and
// _PRODUCT), then, with `withKept`, from what `nimbrel cloud login` kept. A kept password goes only with the endpoint
// and the account that it was kept for. Throws CommandFailure for endpoints that are none, and for a kept sign-in that
// others can read.
CloudSettings findCloudSettings(CloudSettings given, bool withKept = true);

// Asks on the terminal for what a sign-in lacks. Throws CommandFailure, which tells what is missing, where there is
// none.
void askForMissing(CloudSettings& settings);

// Keeps the settings for later commands, in a file that only its owner can read, and returns its path. Throws
// CommandFailure.
std::string keepCloudSettings(const CloudSettings& settings);

// The path of that file, which is removed; empty when there was none. Throws CommandFailure.
std::string forgetCloudSettings();
