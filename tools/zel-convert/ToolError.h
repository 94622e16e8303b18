/*
 * The outcome of a step of zel-convert: empty on success, otherwise the exit code and the one
 * line the user sees. Exit code 2 is bad usage or bad input, 1 a conversion that failed.
 */
#pragma once

#include <string>
#include <utility>

namespace zel::convert {

class ToolError {
public:
    static constexpr int kBadInput = 2;
    static constexpr int kConversionFailed = 1;

    ToolError() = default;
    ToolError(int exitCode, std::string message)
        : mExitCode(exitCode), mMessage(std::move(message)) {}

    static ToolError badInput(std::string message) {
        return ToolError(kBadInput, std::move(message));
    }

    explicit operator bool() const { return mExitCode != 0; }
    int exitCode() const { return mExitCode; }
    const std::string& message() const { return mMessage; }

private:
    int mExitCode = 0;
    std::string mMessage;
};

}  // namespace zel::convert
