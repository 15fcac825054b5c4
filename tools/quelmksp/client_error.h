// A failure that ends the command: the message for the user and the exit
// code that goes with it. Commands throw it; main prints it.
#pragma once

#include <stdexcept>
#include <string>

#include "exit_codes.h"

class ClientError : public std::runtime_error {
public:
    ClientError(int exitCode, const std::string& message)
        : std::runtime_error(message), exitCode_(exitCode) {}
    int exitCode() const { return exitCode_; }

private:
    int exitCode_;
};

// Bad arguments: main adds where to find the command's help.
class UsageError : public ClientError {
public:
    explicit UsageError(const std::string& message) : ClientError(exit_code::kUsage, message) {}
};
