#pragma once

#include <chrono>

namespace volume {

/// Shows on standard error how far a transfer is, where that is a terminal.
class ProgressBar
{
public:
    explicit ProgressBar(unsigned long long total);
    ProgressBar(ProgressBar const&) = delete;
    ProgressBar& operator=(ProgressBar const&) = delete;

    /// Leaves the bar as it is, and goes to the next line.
    ~ProgressBar();

    /// Redraws the bar, at most ten times a second and for the last byte.
    void Show(unsigned long long done);

private:
    unsigned long long const total_;
    bool const terminal_;
    std::chrono::steady_clock::time_point next_;
};

}  // namespace volume
