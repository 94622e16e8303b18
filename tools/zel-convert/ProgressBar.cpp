#include "ProgressBar.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace zel::convert {

namespace {

constexpr auto kInterval = std::chrono::milliseconds(200);
constexpr int kBarWidth = 30;

}  // namespace

ProgressBar::ProgressBar(bool enabled, int64_t total)
    : mEnabled(enabled && isatty(STDERR_FILENO) == 1),
      mTotal(total),
      mStart(std::chrono::steady_clock::now()),
      mLastDraw(mStart) {}

ProgressBar::~ProgressBar() {
    if (mDrawn) {
        std::fputs("\r\033[K", stderr);
    }
}

void ProgressBar::update(int64_t done) {
    const auto now = std::chrono::steady_clock::now();
    if (!mEnabled || now - mLastDraw < kInterval) {
        return;
    }
    mLastDraw = now;
    draw(done);
}

void ProgressBar::draw(int64_t done) {
    const double seconds = std::chrono::duration<double>(mLastDraw - mStart).count();
    const double fps = seconds > 0 ? done / seconds : 0.0;
    std::string line = "\r";
    if (mTotal > 0) {
        const int filled = static_cast<int>(kBarWidth * done / mTotal);
        line += "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] ";
        line += std::to_string(done) + "/" + std::to_string(mTotal) + " frames";
    } else {
        line += std::to_string(done) + " frames";
    }
    char rate[64];
    std::snprintf(rate, sizeof(rate), "  %.1f fps", fps);
    line += rate;
    if (mTotal > 0 && fps > 0) {
        std::snprintf(rate, sizeof(rate), "  %.0f s left", (mTotal - done) / fps);
        line += rate;
    }
    line += "\033[K";
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
    mDrawn = true;
}

}  // namespace zel::convert
