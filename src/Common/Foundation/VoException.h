// SPDX-License-Identifier: MIT
// The toolkit's exception: a name (what kind of problem) and a reason (what happened). Its description,
// what() and description(), is the reason, as the platform's exception describes itself.
#pragma once

#include <exception>
#include <string>

namespace vo {

class VoException : public std::exception {
public:
    VoException(std::string name, std::string reason) : name_(std::move(name)), reason_(std::move(reason)) {}

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] const std::string& reason() const { return reason_; }
    [[nodiscard]] const std::string& description() const { return reason_; }
    [[nodiscard]] const char* what() const noexcept override { return reason_.c_str(); }

private:
    std::string name_;
    std::string reason_;
};

}  // namespace vo
