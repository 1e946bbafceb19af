// benchutil.h - what the benchmark programs share: reading a whole file and
// the best and median of timed runs.
#pragma once

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace ozmbench {

using Clock = std::chrono::steady_clock;

inline double Seconds(Clock::time_point a, Clock::time_point b) {
    return std::chrono::duration<double>(b - a).count();
}

// The seconds of repeated runs of one piece of work.
struct Timing {
    std::vector<double> runs;
    double Best() const { return *std::min_element(runs.begin(), runs.end()); }
    double Median() const {
        std::vector<double> s = runs;
        std::sort(s.begin(), s.end());
        size_t n = s.size();
        return n % 2 ? s[n / 2] : (s[n / 2 - 1] + s[n / 2]) / 2;
    }
};

inline bool ReadFile(const std::string& path, std::string& out) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

}  // namespace ozmbench
