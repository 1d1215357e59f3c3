#pragma once

#include <stdexcept>
#include <string>

// The exception kind that platform facilities raise (for example the JSON
// writer given a string that is not valid UTF-8). Code that catches "the
// platform's exceptions" catches this kind and lets every other kind pass.
class ZMPlatformException : public std::runtime_error {
public:
    ZMPlatformException(std::string name, const std::string& reason)
        : std::runtime_error(reason), name_(std::move(name)) {}

    const std::string& name() const { return name_; }
    // "name: reason", the form written to logs.
    std::string description() const { return name_ + ": " + what(); }

private:
    std::string name_;
};
