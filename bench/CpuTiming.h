#pragma once
// CPU time of this process, and the best of several rounds: subjects that
// work on a warm page cache measure steadily this way, and the machine's other
// load does not count against them.
#include <algorithm>
#include <ctime>
#include <functional>
#include <vector>

namespace bench {

// User and system time of this process, in ms.
inline double CpuMilliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1000.0 + double(now.tv_nsec) / 1e6;
}

// Runs the subjects in turn, round after round, so that a busy moment of the
// machine hits them alike; the best CPU time of each, in ms.
inline std::vector<double> BestMilliseconds(const std::vector<std::function<void()>>& subjects, int rounds)
{
    std::vector<double> best(subjects.size(), 1e300);
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < subjects.size(); ++i) {
            const double start = CpuMilliseconds();
            subjects[i]();
            best[i] = std::min(best[i], CpuMilliseconds() - start);
        }
    }
    return best;
}

} // namespace bench
