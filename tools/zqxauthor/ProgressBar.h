#pragma once

#include <cstdio>
#include <string>

namespace zqxauthor {

// A terminal progress bar for the authoring tools. Redraws only when the shown
// percentage changes, so a long file does not flood the terminal.
class ProgressBar {
public:
    static constexpr int kWidth = 40;

    void Show(double fraction)
    {
        const int percent = int(fraction * 100);
        if (percent == shown_)
            return;
        shown_ = percent;
        const int filled = percent * kWidth / 100;
        std::printf("\r[%s%s] %3d%%", std::string(std::size_t(filled), '#').c_str(),
                    std::string(std::size_t(kWidth - filled), '.').c_str(), percent);
        std::fflush(stdout);
    }
    void End()
    {
        if (shown_ >= 0)
            std::printf("\n");
        shown_ = -1;
    }

private:
    int shown_ = -1;
};

} // namespace zqxauthor
