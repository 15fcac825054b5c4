// JSON text for --format json: strings escaped as RFC 8259 asks, with
// UTF-8 passed through and control characters as \uXXXX.
#pragma once

#include <string>

std::string JsonString(const std::string& text);
