#pragma once

#include <cstdint>
#include <optional>
#include <picojson.h>
#include <string>

// Reading the JSON that servers answer with. Anything may come: nothing here throws for the shape of an answer.

// Empty for what is no JSON, and for numbers beyond those of the machine.
std::optional<picojson::value> parseJSON(const std::string& text);

// A member of an object; null for a missing one, and where there is no object.
const picojson::value& memberOf(const picojson::value& object, const char* name);

// The payload of an answer: its member "value" as text, empty for null. Nothing for what is no JSON.
std::optional<std::string> payloadOf(const std::string& body);

// A figure in an account's record; nothing when it holds none of that name.
std::optional<int64_t> figureIn(const std::string& record, const char* name);
