#include "ProgressBar.h"

#include <unistd.h>

#include <cstdio>
#include <string>

#include "PlainText.h"

namespace volume {

namespace {

constexpr unsigned WIDTH = 40;
constexpr std::chrono::milliseconds INTERVAL(100);

}  // namespace

ProgressBar::ProgressBar(unsigned long long total) : total_(total), terminal_(isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar()
{
    if (terminal_)
        std::fputc('\n', stderr);
}

void ProgressBar::Show(unsigned long long done)
{
    auto const now = std::chrono::steady_clock::now();
    if (!terminal_ || (now < next_ && done != total_))
        return;

    next_ = now + INTERVAL;
    double const part = total_ == 0 ? 1 : static_cast<double>(done) / static_cast<double>(total_);
    std::string const bar(static_cast<std::size_t>(part * WIDTH), '#');
    std::fprintf(stderr, "\r[%-*s] %3d%%  %s of %s  ", static_cast<int>(WIDTH), bar.c_str(),
                 static_cast<int>(part * 100), ReadableSize(done).c_str(), ReadableSize(total_).c_str());
    std::fflush(stderr);
}

}  // namespace volume
